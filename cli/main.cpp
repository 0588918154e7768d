// dovra-json: a host on the command line. It loads the builtins library the
// way any host does, through the runtime's host kit, and calls only what the
// library publishes: the two table entries and dovra.json.decode.

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <new>
#include <sstream>
#include <string>

#include "display.hpp"
#include "error_output.hpp"
#include "input.hpp"
#include "ixtal/errors.hpp"
#include "ixtal/json_host.hpp"
#include "ixtal/text.hpp"
#include "options.hpp"

namespace dovra_cli {
namespace {

constexpr int kExitError = 1;
constexpr int kExitUsage = 2;

// What the command writes to standard output, held until the whole command
// has succeeded, so that a failure leaves standard output empty.
struct Output {
  matrix::owned_array chars;  // encode: the JSON text as the builtin returned it
  std::ostringstream shown;   // decode: the display
};

void produce(const Options& o, Input& input, Output& out) {
  matrix::owned_array value = [&] {
    const matrix::owned_array text = input.host_text();
    return o.lhs ? ixtal::json_host::decode_response(text.get()) : ixtal::json_host::decode(text.get());
  }();
  if (o.command == Command::encode) {
    out.chars = ixtal::json_host::encode_chars(value.get(), {o.format, o.nan_inf, o.pretty});
    return;
  }
  display(out.shown, value.get(), o.full ? DisplayLimits::unlimited() : DisplayLimits{});
  // A string stream that cannot grow sets badbit instead of throwing.
  if (!out.shown) throw std::bad_alloc();
}

// Writes the body and its ending to standard output as they are, with no
// copy into a stream's buffer; false with errno set when the output refuses.
bool write_all(std::string_view body, std::string_view ending) {
  while (!body.empty() || !ending.empty()) {
    iovec pieces[2] = {{const_cast<char*>(body.data()), body.size()},
                       {const_cast<char*>(ending.data()), ending.size()}};
    const ssize_t n = ::writev(STDOUT_FILENO, pieces, 2);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    const std::size_t from_body = std::min(std::size_t(n), body.size());
    body.remove_prefix(from_body);
    ending.remove_prefix(std::size_t(n) - from_body);
  }
  return true;
}

// Writes an encoded char row as UTF-8 through one small buffer: a UTF-8 copy
// of a text of tens of megabytes would cost as much memory as the row.
bool write_row(const ixArray* row) {
  const matrix::typed_array<char16_t> units(row);
  const fl::i18n::codecvt_ustring_to_string to_utf8("UTF-8");
  constexpr std::size_t kChunk = 1 << 14;
  char buffer[3 * kChunk];
  std::size_t at = 0;
  do {
    std::size_t n = std::min(kChunk, units.size() - at);
    // A surrogate pair is never cut in two: each half alone is ill-formed.
    if (at + n < units.size() && (units.data()[at + n - 1] & 0xFC00) == 0xD800) --n;
    const std::size_t bytes = to_utf8.convert_bounded(units.data() + at, n, buffer);
    at += n;
    if (!write_all(std::string_view(buffer, bytes), at == units.size() ? "\n" : "")) return false;
  } while (at < units.size());
  return true;
}

// A write error is the output's fault, not the document's: one line naming
// the output and the reason.
int write_output(const Options& o, const Output& out) {
  const bool written = out.chars ? write_row(out.chars.get()) : write_all(out.shown.view(), "");
  if (written) return 0;
  const std::string reason = std::strerror(errno);
  if (o.error_format == ErrorFormat::json)
    write_error_json(std::cerr, {"dovra-json:CannotWriteOutput", {std::string("standard output"), reason},
                                 "cannot write standard output: " + reason, std::nullopt});
  else
    std::cerr << "dovra-json: cannot write standard output: " << reason << "\n";
  return kExitError;
}

int run(const Options& o) {
  if (o.command == Command::help) {
    std::cout << kHelp;
    return 0;
  }
  // The one place where a host error, or an allocation that failed in any
  // step of the command (reading, the host text, the conversions, the
  // display), becomes the report; the command's steps themselves never catch.
  try {
    Input input;
    if (o.command != Command::version) read_input(o, input);  // before loading: a usage error costs nothing
    const ixtal::BuiltinLibrary& library = ixtal::json_host::load();
    if (o.command == Command::version) {
      std::cout << "dovra-json " << DOVRA_VERSION << "\n"
                << "library dovra_json_builtins " << library.table().identifier << "\n"
                << "loaded from " << library.path() << "\n";
      return 0;
    }
    Output out;
    produce(o, input, out);
    return write_output(o, out);
  } catch (const ixtal::HostError& e) {
    write_error(std::cerr, Failure::from(e), o.error_format);
  } catch (const std::bad_alloc&) {
    write_error(std::cerr, Failure::from(ixtal::json_host::nomem()), o.error_format);
  }
  return kExitError;
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
  } catch (const std::bad_alloc&) {  // while reading the arguments
    write_error(std::cerr, Failure::from(ixtal::json_host::nomem()), ErrorFormat::text);
    return kExitError;
  }
}
