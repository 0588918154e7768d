// dovra-json: a host on the command line. It loads the builtins library the
// way any host does and calls only what the library publishes: the two table
// entries and dovra.json.decode.

#include <iostream>
#include <memory>
#include <sstream>
#include <string>

#include "display.hpp"
#include "error_output.hpp"
#include "input.hpp"
#include "ixtal/errors.hpp"
#include "ixtal/host.hpp"
#include "ixtal/text.hpp"
#include "options.hpp"

namespace dovra_cli {
namespace {

constexpr int kExitError = 1;
constexpr int kExitUsage = 2;

// Raised when the library cannot be loaded; reported like a host error so
// that scripts reading --error-format json always get their one line.
constexpr const char* kLoadFailedId = "dovra-json:CannotLoadLibrary";

std::unique_ptr<ixtal::BuiltinLibrary> load(const std::string& path) {
  return std::make_unique<ixtal::BuiltinLibrary>(
      path, "dovra_json_builtins", std::vector<std::string>{ixtal::kJsonEncodeName, ixtal::kJsonDecodeResponseName});
}

// Takes the input: it is released once the host text holds its bytes, so
// the two do not both live through the call.
matrix::owned_array decode(const Options& o, Input input) {
  const matrix::owned_array text = host_text(input.bytes());
  input.release();
  auto results = ixtal::call(o.lhs ? ixtal::kJsonDecodeResponseName : ixtal::kJsonDecodeName, 1, {text.get()});
  return std::move(results.at(0));
}

std::string encode(const Options& o, const ixArray* value) {
  const matrix::owned_array format(ixCreateString(o.format.c_str()));
  const matrix::owned_array nan_inf(ixCreateString(o.nan_inf.c_str()));
  const matrix::owned_array pretty(ixCreateLogicalScalar(o.pretty));
  auto results = ixtal::call(ixtal::kJsonEncodeName, 1, {value, format.get(), nan_inf.get(), pretty.get()});
  fl::i18n::codecvt_ustring_to_string to_utf8("UTF-8");
  return matrix::get_string(results.at(0).get(), to_utf8);
}

int run(const Options& o) {
  if (o.command == Command::help) {
    std::cout << kHelp;
    return 0;
  }
  const std::string path = ixtal::default_json_builtins_path();
  Input input;
  if (o.command != Command::version) input = read_input(o);  // before loading: a usage error costs nothing

  std::unique_ptr<ixtal::BuiltinLibrary> library;
  try {
    library = load(path);
  } catch (const std::exception& e) {
    write_error(std::cerr, {kLoadFailedId, {path, std::string(e.what())}, "cannot load the builtins library " + path + ": " + e.what()},
                o.error_format);
    return kExitError;
  }

  if (o.command == Command::version) {
    std::cout << "dovra-json " << DOVRA_VERSION << "\n"
              << "library dovra_json_builtins " << library->table().identifier << "\n"
              << "loaded from " << path << "\n";
    return 0;
  }

  // Everything goes to a buffer first: a failure leaves standard output empty.
  std::string output;
  try {
    matrix::owned_array value = decode(o, std::move(input));
    if (o.command == Command::encode) {
      output = encode(o, value.get()) + "\n";
    } else {
      std::ostringstream shown;
      display(shown, value.get(), o.full ? DisplayLimits::unlimited() : DisplayLimits{});
      output = shown.str();
    }
  } catch (const ixtal::HostError& e) {
    write_error(std::cerr, Failure::from(e), o.error_format);
    return kExitError;
  }
  std::cout << output << std::flush;
  return std::cout ? 0 : kExitError;
}

}  // namespace
}  // namespace dovra_cli

int main(int argc, char** argv) {
  using namespace dovra_cli;
  std::ios::sync_with_stdio(false);
  try {
    return run(parse_arguments(argc, argv));
  } catch (const UsageError& e) {
    std::cerr << "dovra-json: " << e.what() << "\n" << kUsage;
    return kExitUsage;
  }
}
