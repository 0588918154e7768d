#pragma once

// The command line of dovra-json, read into one record before anything is
// loaded, so that a mistyped option never costs a library load.

#include <optional>
#include <stdexcept>
#include <string>

namespace dovra_cli {

enum class Command { decode, encode, help, version };
enum class ErrorFormat { text, json };

struct Options {
  Command command = Command::help;
  bool lhs = false;     // through the response-decode builtin
  bool full = false;    // decode: no abbreviation of large arrays
  bool pretty = false;  // encode
  // Handed to the encode builtin as they are: the builtin owns their
  // validation, so its own error reaches the user.
  std::string format = "large";
  std::string nan_inf = "string";
  ErrorFormat error_format = ErrorFormat::text;
  std::optional<std::string> text;  // --text
  std::optional<std::string> file;  // absent or "-": standard input
};

// Exit status 2: the command line cannot be acted on.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

Options parse_arguments(int argc, const char* const* argv);

extern const char* const kUsage;  // a few lines, for usage errors
extern const char* const kHelp;   // --help

}  // namespace dovra_cli
