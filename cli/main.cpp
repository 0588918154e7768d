// dovra-json: a host on the command line. It loads the builtins library the
// way any host does and calls only what the library publishes: the two table
// entries and dovra.json.decode.

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>

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

matrix::owned_array encode(const Options& o, const ixArray* value) {
  const matrix::owned_array format(ixCreateString(o.format.c_str()));
  const matrix::owned_array nan_inf(ixCreateString(o.nan_inf.c_str()));
  const matrix::owned_array pretty(ixCreateLogicalScalar(o.pretty));
  auto results = ixtal::call(ixtal::kJsonEncodeName, 1, {value, format.get(), nan_inf.get(), pretty.get()});
  return std::move(results.at(0));
}

// Standard output refused the text: a full disk, a closed pipe with SIGPIPE
// ignored, a revoked terminal.
struct WriteError {
  int error;
};

void write_all(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = ::write(STDOUT_FILENO, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) throw WriteError{n < 0 ? errno : EIO};
    bytes.remove_prefix(std::size_t(n));
  }
}

// Writes an encoded char row as UTF-8 through one small buffer: a second
// copy of a text of tens of megabytes would cost as much memory as the row.
void write_row(const ixArray* row) {
  const matrix::typed_array<char16_t> units(row);
  const fl::i18n::codecvt_ustring_to_string to_utf8("UTF-8");
  constexpr std::size_t kChunk = 1 << 14;
  std::unique_ptr<char[]> buffer(new char[3 * kChunk + 1]);
  std::size_t at = 0;
  while (at < units.size()) {
    std::size_t n = std::min(kChunk, units.size() - at);
    // A surrogate pair is never cut in two: each half alone is ill-formed.
    if (at + n < units.size() && (units.data()[at + n - 1] & 0xFC00) == 0xD800) --n;
    std::size_t bytes = to_utf8.convert_bounded(units.data() + at, n, buffer.get());
    at += n;
    if (at == units.size()) buffer[bytes++] = '\n';
    write_all(std::string_view(buffer.get(), bytes));
  }
  if (units.size() == 0) write_all("\n");
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

  // Everything is made before the first byte is written: a failure leaves
  // standard output empty.
  matrix::owned_array encoded;
  std::string shown_text;
  try {
    matrix::owned_array value = decode(o, std::move(input));
    if (o.command == Command::encode) {
      encoded = encode(o, value.get());
    } else {
      std::ostringstream shown;
      display(shown, value.get(), o.full ? DisplayLimits::unlimited() : DisplayLimits{});
      shown_text = shown.str();
    }
  } catch (const ixtal::HostError& e) {
    write_error(std::cerr, Failure::from(e), o.error_format);
    return kExitError;
  }
  try {
    if (encoded) write_row(encoded.get());
    else write_all(shown_text);
  } catch (const WriteError& e) {
    std::cerr << "dovra-json: cannot write standard output: " << std::strerror(e.error) << "\n";
    return kExitError;
  }
  return 0;
}

}  // namespace
}  // namespace dovra_cli

int main(int argc, char** argv) {
  using namespace dovra_cli;
  std::ios::sync_with_stdio(false);
  // Running out of memory can happen in any step, the command's own as well
  // as the builtins': reading the input, making the host text, showing the
  // result. Every such failure ends here, as the host's own error.
  ErrorFormat format = ErrorFormat::text;
  try {
    const Options options = parse_arguments(argc, argv);
    format = options.error_format;
    return run(options);
  } catch (const UsageError& e) {
    std::cerr << "dovra-json: " << e.what() << "\n" << kUsage;
    return kExitUsage;
  } catch (const std::bad_alloc&) {
    const resource_core::BaseMsgID nomem("IXTAL", "nomem");
    write_error(std::cerr, {nomem.id(), {}, ixtal::format_message(nomem)}, format);
    return kExitError;
  }
}
