#include "options.hpp"

#include <string_view>

namespace dovra_cli {

const char* const kUsage =
    "usage: dovra-json decode [--lhs] [--full] [--error-format text|json] [--text TEXT | FILE]\n"
    "       dovra-json encode [--lhs] [--format F] [--nan-inf N] [--pretty] [--error-format text|json]\n"
    "                         [--text TEXT | FILE]\n"
    "       dovra-json --help | --version\n";

const char* const kHelp =
    "dovra-json: decode JSON to host arrays, and convert between the two notations.\n"
    "\n"
    "usage: dovra-json decode [--lhs] [--full] [--error-format text|json] [--text TEXT | FILE]\n"
    "       dovra-json encode [--lhs] [--format F] [--nan-inf N] [--pretty] [--error-format text|json]\n"
    "                         [--text TEXT | FILE]\n"
    "       dovra-json --help | --version\n"
    "\n"
    "decode            show the array that dovra.json.decode makes of the text\n"
    "encode            decode the text, then encode the array again as JSON\n"
    "\n"
    "--text TEXT       the JSON text itself\n"
    "FILE              read the text from FILE; standard input when FILE is absent or '-'.\n"
    "                  One final line ending is dropped, every other byte is kept.\n"
    "--lhs             the text is a response {\"lhs\":[...]}: decode it to a cell of outputs\n"
    "--full            show large arrays in full instead of their leading rows and columns\n"
    "--format F        notation to encode to: large (default) or small\n"
    "--nan-inf N       how to write NaN and Inf: string (default) or object\n"
    "--pretty          indent the encoded text\n"
    "--error-format E  text (default): a readable message and the identifier;\n"
    "                  json: one line {\"identifier\",\"arguments\",\"message\"}\n"
    "\n"
    "Exit status: 0 success, 1 the builtin raised an error, 2 usage error.\n";

namespace {

class ArgumentReader {
 public:
  ArgumentReader(int argc, const char* const* argv) : argc_(argc), argv_(argv) {}

  bool done() const { return next_ >= argc_; }
  std::string_view take() { return argv_[next_++]; }

  // The value of an option given as "--name VALUE" or "--name=VALUE".
  std::string value_of(std::string_view option, std::string_view inline_value, bool has_inline) {
    if (has_inline) return std::string(inline_value);
    if (done()) throw UsageError("option " + std::string(option) + " needs a value");
    return std::string(take());
  }

 private:
  int argc_;
  const char* const* argv_;
  int next_ = 1;
};

}  // namespace

Options parse_arguments(int argc, const char* const* argv) {
  ArgumentReader args(argc, argv);
  Options o;
  if (args.done()) throw UsageError("no command given");

  const std::string_view command = args.take();
  if (command == "--help" || command == "-h") return o;
  if (command == "--version") {
    o.command = Command::version;
    if (!args.done()) throw UsageError("--version takes no arguments");
    return o;
  }
  if (command == "decode") o.command = Command::decode;
  else if (command == "encode") o.command = Command::encode;
  else throw UsageError("unknown command '" + std::string(command) + "'");
  const bool encode = o.command == Command::encode;

  bool options_ended = false;
  while (!args.done()) {
    const std::string_view arg = args.take();
    if (options_ended || arg == "-" || arg.substr(0, 1) != "-") {
      if (o.file) throw UsageError("more than one input file given");
      o.file = std::string(arg);
      continue;
    }
    if (arg == "--") {
      options_ended = true;
      continue;
    }
    const std::size_t eq = arg.find('=');
    const bool has_inline = eq != std::string_view::npos && arg.substr(0, 2) == "--";
    const std::string_view name = has_inline ? arg.substr(0, eq) : arg;
    const std::string_view inline_value = has_inline ? arg.substr(eq + 1) : std::string_view();
    auto flag = [&](bool& target) {
      if (has_inline) throw UsageError("option " + std::string(name) + " takes no value");
      target = true;
    };

    if (name == "--help" || name == "-h") {
      o.command = Command::help;
      return o;
    } else if (name == "--text") {
      o.text = args.value_of(name, inline_value, has_inline);
    } else if (name == "--lhs") {
      flag(o.lhs);
    } else if (name == "--error-format") {
      const std::string v = args.value_of(name, inline_value, has_inline);
      if (v == "text") o.error_format = ErrorFormat::text;
      else if (v == "json") o.error_format = ErrorFormat::json;
      else throw UsageError("--error-format must be text or json, not '" + v + "'");
    } else if (name == "--full" && !encode) {
      flag(o.full);
    } else if (name == "--format" && encode) {
      o.format = args.value_of(name, inline_value, has_inline);
    } else if (name == "--nan-inf" && encode) {
      o.nan_inf = args.value_of(name, inline_value, has_inline);
    } else if (name == "--pretty" && encode) {
      flag(o.pretty);
    } else {
      throw UsageError("unknown option '" + std::string(name) + "' for " + std::string(command));
    }
  }
  if (o.text && o.file) throw UsageError("give either --text or a FILE, not both");
  return o;
}

}  // namespace dovra_cli
