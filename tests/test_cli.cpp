// dovra-json end to end, through its process: command line, input sources,
// the final-newline rule, the display, encoding, both error formats, and the
// README's sessions.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "ixtal/text.hpp"
#include "json/parser.hpp"

extern char** environ;

namespace {

namespace fs = std::filesystem;

const std::string kBinary = std::string(DOVRA_BINARY_DIR) + "/bin/dovra-json";

// A directory per test process: ctest runs them in parallel.
const fs::path& scratch() {
  static const struct Dir {
    fs::path path;
    Dir() {
      char pattern[] = "/tmp/dovra-cli-test-XXXXXX";
      path = ::mkdtemp(pattern);
    }
    ~Dir() { fs::remove_all(path); }
  } dir;
  return dir.path;
}

std::string write_file(const std::string& name, std::string_view bytes) {
  std::ofstream(scratch() / name, std::ios::binary) << bytes;
  return (scratch() / name).string();
}

std::string read_file(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

struct Result {
  int status = -1;
  std::string out, err;
};

// Files rather than pipes carry the streams, so no output size can
// dead-lock the test.
Result run_program(const std::vector<std::string>& argv, std::string_view input) {
  const std::string in = write_file("stdin", input), out = write_file("stdout", ""), err = write_file("stderr", "");
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, 0, in.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&files, 1, out.c_str(), O_WRONLY | O_TRUNC, 0);
  posix_spawn_file_actions_addopen(&files, 2, err.c_str(), O_WRONLY | O_TRUNC, 0);
  std::vector<char*> args;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  Result r;
  pid_t pid;
  if (posix_spawn(&pid, argv[0].c_str(), &files, nullptr, args.data(), environ) == 0) {
    int status = 0;
    waitpid(pid, &status, 0);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  posix_spawn_file_actions_destroy(&files);
  r.out = read_file(out);
  r.err = read_file(err);
  return r;
}

Result dovra(std::vector<std::string> args, std::string_view input = {}) {
  args.insert(args.begin(), kBinary);
  return run_program(args, input);
}

std::string describe(const std::vector<std::string>& args) {
  std::string s = "dovra-json";
  for (const auto& a : args) s += " '" + a + "'";
  return s;
}

// Arguments as the json line writes them: integers bare, texts quoted.
using Args = std::vector<std::string>;

// The two arguments of every parse error: the position prefix, and the
// context line with the caret under it.
Args parse_error(int line, int column, int offset, const std::string& context, int caret) {
  return {"\"JSON syntax error at line " + std::to_string(line) + ", column " + std::to_string(column) +
              " (byte offset " + std::to_string(offset) + ")\"",
          "\"    " + context + "\n    " + std::string(std::size_t(caret), ' ') + "^\""};
}

// Where a conversion error's value lies: its path, and its context line with
// the caret under it.
struct Where {
  std::string path;
  long offset, line, column;
  std::string context;
};

// Runs a failing command in both error formats. The json report must be one
// ASCII line that a JSON parser reads back to the expected identifier and
// arguments, and the text report must carry the same message and identifier.
// A conversion error's location comes after the message in both.
void expect_error(std::vector<std::string> args, std::string_view input, const std::string& identifier,
                  const Args& expected, const std::optional<Where>& where = std::nullopt) {
  SCOPED_TRACE(describe(args));
  args.insert(args.begin() + 1, {"--error-format", "json"});
  const Result json = dovra(args, input);
  args[2] = "text";
  const Result text = dovra(args, input);
  EXPECT_TRUE(json.status == 1 && text.status == 1 && json.out.empty() && text.out.empty());
  ASSERT_EQ(std::count(json.err.begin(), json.err.end(), '\n'), 1);
  ASSERT_TRUE(json.err.ends_with('\n'));
  EXPECT_TRUE(std::all_of(json.err.begin(), json.err.end(), [](char c) { return c > 0 && c < 0x7F; })) << json.err;

  const auto report = dovra_json::parse(json.err.substr(0, json.err.size() - 1)).as_object();
  ASSERT_EQ(report.size(), where ? 4u : 3u) << json.err;
  EXPECT_EQ(report.at("identifier").get<std::string>(), identifier);
  Args arguments;
  for (const auto& a : report.at("arguments").get<foundation::json::Array>())
    arguments.push_back(a.is_double() ? std::to_string(long(a.as_double())) : "\"" + a.get<std::string>() + "\"");
  EXPECT_EQ(arguments, expected);
  std::string located;
  if (where) {
    const auto& at = report.at("location").as_object();
    EXPECT_EQ(at.at("path").get<std::string>(), where->path);
    EXPECT_EQ(long(at.at("offset").as_double()), where->offset);
    EXPECT_EQ(long(at.at("line").as_double()), where->line);
    EXPECT_EQ(long(at.at("column").as_double()), where->column);
    located = "at " + where->path + " (line " + std::to_string(where->line) + ", column " +
              std::to_string(where->column) + ", byte offset " + std::to_string(where->offset) + "):\n    " +
              where->context + "\n    " + std::string(std::size_t(where->column), ' ') + "^\n";
  }
  EXPECT_EQ(text.err,
            "error: " + report.at("message").get<std::string>() + "\n" + located + "identifier: " + identifier + "\n");
}

// --- the command line ---------------------------------------------------------

TEST(CliUsage, CommandLinesThatCannotBeActedOnExitWith2) {
  const std::string missing = (scratch() / "absent.json").string(), dir = scratch().string();
  const std::pair<std::vector<std::string>, std::string> rows[] = {
      {{}, "no command given"},
      {{"convert"}, "unknown command 'convert'"},
      {{"decode", "--format", "small"}, "unknown option '--format' for decode"},
      {{"encode", "--full"}, "unknown option '--full' for encode"},
      {{"encode", "--lhs=yes"}, "option --lhs takes no value"},
      {{"decode", "--text"}, "option --text needs a value"},
      {{"decode", "--error-format", "xml", "--text", "1"}, "--error-format must be text or json, not 'xml'"},
      {{"decode", "--text", "1", "a.json"}, "give either --text or a FILE, not both"},
      {{"decode", "a.json", "b.json"}, "more than one input file given"},
      {{"decode", missing}, "cannot open '" + missing + "': No such file or directory"},
      {{"decode", dir}, "cannot read '" + dir + "': Is a directory"},
  };
  for (const auto& [args, complaint] : rows) {
    const Result r = dovra(args);
    EXPECT_EQ(r.status, 2) << describe(args);
    EXPECT_EQ(r.out, "");
    EXPECT_TRUE(r.err.starts_with("dovra-json: " + complaint + "\nusage: dovra-json decode")) << r.err;
  }
}

TEST(CliUsage, HelpVersionAndAMissingLibrary) {
  for (const auto& args : {std::vector<std::string>{"--help"}, {"decode", "--text", "1", "-h"}}) {
    const Result r = dovra(args);
    EXPECT_TRUE(r.status == 0 && r.out.find("usage: dovra-json decode") != std::string::npos && r.err.empty());
  }
  const Result v = dovra({"--version"});
  EXPECT_EQ(v.status, 0);
  EXPECT_NE(v.out.find("\nlibrary dovra_json_builtins afe2da95_651e_4e6e_b52d_49beb1405e7d\n"), std::string::npos);

  const std::string bogus = write_file("not-a-library.so", "not an ELF file");
  setenv("DOVRA_JSON_BUILTINS", bogus.c_str(), 1);
  const Result r = dovra({"decode", "--error-format", "json", "--text", "1"});
  unsetenv("DOVRA_JSON_BUILTINS");
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(r.err.starts_with("{\"identifier\":\"IXTAL:CannotLoadLibrary\",\"arguments\":[\"" + bogus + "\",")) << r.err;
}

// --- input --------------------------------------------------------------------

enum class Source { text, file, stdin_implicit, stdin_dash };

// The command line for the source; input receives what goes to stdin.
std::vector<std::string> from(Source source, std::vector<std::string> args, const std::string& bytes, std::string& input) {
  input.clear();
  if (source == Source::text) args.insert(args.end(), {"--text", bytes});
  if (source == Source::file) args.push_back(write_file("input.json", bytes));
  if (source == Source::stdin_implicit || source == Source::stdin_dash) input = bytes;
  if (source == Source::stdin_dash) args.push_back("-");
  return args;
}

// Where a parse error is reported shows exactly which bytes reached the
// parser: a line ending that was kept moves the end of the text.
TEST(CliInput, OnlyOneFinalLineEndingIsDroppedAndNulBytesPass) {
  const char* incomplete = "DOVRA:IXTAL:JSON:DecodeIncomplete";
  const char* unexpected = "DOVRA:IXTAL:JSON:DecodeUnexpectedValue";
  const struct {
    Source source;
    std::string bytes;
    const char* identifier;
    Args arguments;
  } rows[] = {
      {Source::file, "[1,\n", incomplete, parse_error(1, 3, 3, "[1,", 3)},
      {Source::file, "[1,\r\n", incomplete, parse_error(1, 3, 3, "[1,", 3)},
      {Source::file, "[1,", incomplete, parse_error(1, 3, 3, "[1,", 3)},
      {Source::file, "[1,\n\n", incomplete, parse_error(2, 0, 4, "", 0)},
      {Source::file, "[1,\r\n\r\n", incomplete, parse_error(2, 0, 5, "", 0)},
      {Source::file, "[1,\r", incomplete, parse_error(1, 4, 4, "[1,\r", 4)},
      {Source::stdin_implicit, "[1,\n", incomplete, parse_error(1, 3, 3, "[1,", 3)},
      {Source::stdin_dash, "[1,\n\n", incomplete, parse_error(2, 0, 4, "", 0)},
      {Source::text, "[1,\n", incomplete, parse_error(2, 0, 4, "", 0)},
      // A NUL byte neither ends the document nor is dropped.
      {Source::file, std::string("[1]\0\n", 5), unexpected, parse_error(1, 3, 3, std::string("[1]\0", 4), 3)},
      {Source::stdin_implicit, std::string("[1,\0 2]", 7), unexpected, parse_error(1, 3, 3, std::string("[1,\0 2]", 7), 3)},
  };
  for (const auto& row : rows) {
    std::string input;
    const auto args = from(row.source, {"decode"}, row.bytes, input);
    expect_error(args, input, row.identifier, row.arguments);
  }
}

TEST(CliInput, Utf8SurvivesEveryPathUnchanged) {
  // "café 日本 😀": ten UTF-16 units, the last two a surrogate pair.
  const std::string text = "\"caf\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80\"";
  for (Source source : {Source::text, Source::file, Source::stdin_implicit, Source::stdin_dash}) {
    // The parser takes no white space around the document: files and
    // standard input lose their final line ending, --text is passed exactly.
    const std::string bytes = source == Source::text ? text : text + "\n";
    std::string input;
    const auto encode = from(source, {"encode", "--format", "small"}, bytes, input);
    EXPECT_EQ(dovra(encode, input).out, text + "\n") << describe(encode);
    const auto decode = from(source, {"decode"}, bytes, input);
    EXPECT_EQ(dovra(decode, input).out, "1x10 char\n    '" + text.substr(1, text.size() - 2) + "'\n") << describe(decode);
  }
}

TEST(CliOutput, LongTextsKeepSurrogatePairsAcrossTheWriteBuffer) {
  // The first pair straddles the writer's first 16 Ki-unit step; the
  // others fall around the later steps.
  std::string text = "\"";
  for (std::size_t run : {16382, 16381, 16383, 16380}) text += std::string(run, 'a') + "\xF0\x9F\x98\x80";
  text += "\"";
  const Result r = dovra({"encode", "--format", "small", write_file("long.json", text)});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(r.out == text + "\n");
}

TEST(CliInput, SequencesCutByTheConversionPiecesAreKept) {
  // A file is converted a mebibyte at a time; a sequence across the cut,
  // valid or not, must come out as a conversion of the whole text gives it.
  constexpr std::size_t kPiece = std::size_t(1) << 20;
  const fl::i18n::codecvt_string_to_ustring to_utf16("UTF-8");
  const fl::i18n::codecvt_ustring_to_string to_utf8("UTF-8");
  for (const std::string sequence : {"\xC3\xA9", "\xE6\x97\xA5", "\xF0\x9F\x98\x80", "\xE6\x97z", "\x80\x80\x80\x80"}) {
    for (std::size_t before = 1; before < sequence.size(); ++before) {
      const std::string text = "\"" + std::string(kPiece - 1 - before, 'a') + sequence + "b\"";
      const Result r = dovra({"encode", "--format", "small", write_file("cut.json", text)});
      EXPECT_EQ(r.status, 0) << r.err;
      EXPECT_TRUE(r.out == to_utf8(to_utf16(text)) + "\n") << "sequence of " << sequence.size() << ", " << before << " before the cut";
    }
  }
}

// --- decode and encode ------------------------------------------------------------

struct Row {
  std::vector<std::string> args;  // before --text
  const char* text;
  std::string expected;
};

void expect_output(const Row& row) {
  auto args = row.args;
  args.insert(args.end(), {"--text", row.text});
  const Result r = dovra(args);
  EXPECT_EQ(r.status, 0) << describe(args) << "\n" << r.err;
  EXPECT_EQ(r.out, row.expected) << describe(args);
}

TEST(CliDecode, ShowsClassSizeAndValues) {
  const Row rows[] = {
      {{"decode"}, "3.5", "1x1 double\n    3.5\n"},
      {{"decode"}, "[[1,2,3],[4,5,6]]", "2x3 double\n    1   2   3\n    4   5   6\n"},
      {{"decode"}, "[[1.5,-2.25],[1000000,{\"tndata\":\"NaN\"}]]", "2x2 double\n      1.5   -2.25\n    1e+06     NaN\n"},
      {{"decode"}, "[[[1,2],[3,4]],[[5,6],[7,8]]]",
       "2x2x2 double\n    (:,:,1)\n        1   3\n        5   7\n    (:,:,2)\n        2   4\n        6   8\n"},
      {{"decode"}, "{\"tntype\":\"double\",\"tnsize\":[1,2],\"tndata\":[1,2,3,-4],\"tncomplex\":true}",
       "1x2 complex double\n    1 + 2i   3 - 4i\n"},
      {{"decode"}, "{\"tntype\":\"int8\",\"tnsize\":[2,1],\"tndata\":[-128,127]}", "2x1 int8\n    -128\n     127\n"},
      {{"decode"}, "[true,false]", "2x1 logical\n    1\n    0\n"},
      {{"decode"}, "\"\"", "0x0 char\n"},
      {{"decode"}, "{\"id\":{\"tntype\":\"uint16\",\"tnsize\":[1,1],\"tndata\":[7]},\"tags\":\"a\",\"m\":[[1,2],[3,4]]}",
       "1x1 struct\n    id: 7 (uint16)\n    m: 2x2 double\n        1   2\n        3   4\n    tags: 'a'\n"},
      {{"decode", "--lhs"}, "{\"lhs\":[1,\"a\",true,[]]}", "4x1 cell\n    {1}: 1\n    {2}: 'a'\n    {3}: true\n    {4}: 0x1 double\n"},
      {{"decode", "--lhs"}, "{\"rhs\":[1]}", "1x1 logical\n    false\n"},
      {{"decode"}, "{\"tntype\":\"cell\",\"tnsize\":[2,2],\"tndata\":[1,\"b\",[],{\"tntype\":\"cell\",\"tnsize\":[0,0],\"tndata\":[]}]}",
       "2x2 cell\n    {1,1}: 1\n    {2,1}: 'b'\n    {1,2}: 0x1 double\n    {2,2}: 0x0 cell\n"},
      {{"decode"}, "{\"tntype\":\"string\",\"tnsize\":[1,3],\"tndata\":[\"a\",null,\"ccc\"]}",
       "1x3 string\n    \"a\"         <missing>   \"ccc\"\n"},
      // Control characters are escaped so that they cannot break the layout.
      {{"decode"}, "{\"a b\":1,\"\":2,\"x\\ny\":\"\\u0001\\u00e9\"}", "1x1 struct\n    '': 2\n    'a b': 1\n    'x\\ny': '\\x01\xC3\xA9'\n"},
  };
  for (const auto& row : rows) expect_output(row);
}

TEST(CliDecode, LargeArraysAreAbbreviatedUnlessFull) {
  std::string m = "[";
  for (int r = 0; r < 30; ++r) {
    m += r ? ",[" : "[";
    for (int c = 0; c < 40; ++c) m += (c ? "," : "") + std::to_string(r * 40 + c);
    m += "]";
  }
  m += "]";
  const std::string brief = dovra({"decode", "--text", m}).out, full = dovra({"decode", "--full", "--text", m}).out;
  EXPECT_TRUE(brief.starts_with("30x40 double\n      0     1     2")) << brief;
  EXPECT_NE(brief.find("   369   ...\n    ...\n    (showing rows 1-10 of 30 and columns 1-10 of 40; --full shows all)\n"),
            std::string::npos) << brief;
  EXPECT_EQ(std::count(full.begin(), full.end(), '\n'), 31);
  EXPECT_TRUE(full.ends_with("   1199\n") && full.find("...") == std::string::npos);

  const std::string text = "\"" + std::string(300, 'x') + "\"";
  expect_output({{"decode"}, text.c_str(),
                 "1x300 char\n    '" + std::string(200, 'x') + "'...\n    (showing characters 1-200 of 300; --full shows all)\n"});
  expect_output({{"decode", "--full"}, text.c_str(), "1x300 char\n    '" + std::string(300, 'x') + "'\n"});
}

TEST(CliEncode, PassesFormatNanInfAndPrettyToTheBuiltin) {
  const Row rows[] = {
      {{"encode"}, "[[1,2],[3,4]]", "{\"tndata\":[1,3,2,4],\"tnsize\":[2,2],\"tntype\":\"double\"}\n"},
      {{"encode", "--format", "small"}, "[[1,2],[3,4]]", "[[1,2],[3,4]]\n"},
      {{"encode", "--format=large"}, "[1,{\"tndata\":\"Inf\"}]", "{\"tndata\":[1,\"Inf\"],\"tnsize\":[2,1],\"tntype\":\"double\"}\n"},
      {{"encode", "--nan-inf", "object"}, "[1,{\"tndata\":\"Inf\"}]",
       "{\"tndata\":[1,{\"tndata\":\"Inf\"}],\"tnsize\":[2,1],\"tntype\":\"double\"}\n"},
      {{"encode", "--format", "small", "--pretty"}, "{\"a\":[[1,2]]}", "{\n  \"a\": [\n    [1, 2]\n  ]\n}\n"},
      {{"encode", "--lhs", "--format", "small"}, "{\"lhs\":[1,\"x\"]}", "{\"tndata\":[1,\"x\"],\"tnsize\":[2,1],\"tntype\":\"cell\"}\n"},
  };
  for (const auto& row : rows) expect_output(row);
}

// --- errors ---------------------------------------------------------------------

TEST(CliErrors, BothFormatsReportTheBuiltinsErrorAndItsArguments) {
  const struct {
    std::vector<std::string> args;
    const char* identifier;
    Args arguments;
    std::optional<Where> where = std::nullopt;
  } rows[] = {
      {{"decode", "--text", "{\"a\" 1}"}, "DOVRA:IXTAL:JSON:DecodeObjectNoColonAfterName", parse_error(1, 5, 5, "{\"a\" 1}", 5)},
      // The context line carries non-ASCII text and control characters.
      {{"decode", "--text", "[\"\xC3\xA9\xF0\x9F\x98\x80\",\t\x01]"}, "DOVRA:IXTAL:JSON:DecodeUnexpectedValue",
       parse_error(1, 11, 11, "[\"\xC3\xA9\xF0\x9F\x98\x80\",\t\x01]", 11)},
      {{"decode", "--text", "\"a\\qb\""}, "DOVRA:IXTAL:JSON:DecodeCharInvalidEscape", parse_error(1, 2, 2, "\"a\\qb\"", 2)},
      {{"decode", "--text", "[1,true]"}, "DOVRA:IXTAL:JSON:DecodeArrayInconsistentTypes", {"\"double\"", "\"logical\""},
       Where{"$[1]", 3, 1, 3, "[1,true]"}},
      {{"decode", "--lhs", "--text", "{\"lhs\":[null]}"}, "DOVRA:IXTAL:JSON:DecodeNullNotSupported", {},
       Where{"$.lhs[0]", 8, 1, 8, "{\"lhs\":[null]}"}},
      {{"encode", "--format", "Large", "--text", "1"}, "IXTAL:class:InvalidArgument", {"\"format\"", "\"format\""}},
      {{"encode", "--format", "", "--text", "1"}, "IXTAL:class:InvalidArgument", {"\"format\"", "\"format\""}},
      {{"encode", "--nan-inf", "strings", "--text", "1"}, "IXTAL:class:InvalidArgument", {"\"nanInfType\"", "\"nanInfType\""}},
  };
  for (const auto& row : rows) expect_error(row.args, "", row.identifier, row.arguments, row.where);
}

// An encode error names the path through the arrays: 333 structures nested
// in large notation leave the double inside no room.
TEST(CliErrors, AnEncodeErrorNamesThePathThroughTheArrays) {
  std::string doc = "1", path;
  for (int k = 0; k < 333; ++k) {
    doc = "{\"f\":" + doc + "}";
    path += ".f";
  }
  const Result text = dovra({"encode", "--text", doc}, "");
  EXPECT_EQ(text.status, 1);
  EXPECT_NE(text.err.find("\nat " + path + "\nidentifier: DOVRA:IXTAL:JSON:EncodeNestingTooDeep\n"), std::string::npos)
      << text.err;
  const Result json = dovra({"encode", "--error-format", "json", "--text", doc}, "");
  EXPECT_NE(json.err.find(",\"location\":{\"path\":\"" + path + "\"}}\n"), std::string::npos) << json.err;
}

// --- the README ------------------------------------------------------------------

// The README's sessions are ```console blocks of "$ dovra-json ..." lines,
// each followed by what it prints; running them keeps the README true.
TEST(CliReadme, SessionsPrintWhatTheReadmeShows) {
  std::istringstream readme(read_file(fs::path(DOVRA_SOURCE_DIR) / "README.md"));
  std::vector<std::pair<std::string, std::string>> sessions;  // command, output
  bool in_console = false;
  for (std::string line; std::getline(readme, line);) {
    if (line.starts_with("```")) in_console = line == "```console";
    else if (in_console && line.starts_with("$ ")) sessions.emplace_back(line.substr(2), "");
    else if (in_console && !sessions.empty()) sessions.back().second += line + "\n";
  }
  ASSERT_GE(sessions.size(), 3u);
  const std::string path = "PATH='" + fs::path(kBinary).parent_path().string() + "':\"$PATH\" ";
  for (const auto& [command, output] : sessions) {
    ASSERT_TRUE(command.starts_with("dovra-json ")) << command;
    const std::string script = "cd '" + std::string(DOVRA_SOURCE_DIR) + "' && " + path + command + " 2>&1";
    EXPECT_EQ(run_program({"/bin/sh", "-c", script}, "").out, output) << command;
  }
}

}  // namespace
