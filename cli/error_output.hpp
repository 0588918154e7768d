#pragma once

// How a failed call reaches the person or the script that ran the command.

#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "ixtal/errors.hpp"
#include "options.hpp"

namespace dovra_cli {

// What is reported: a host error as raised, or a failure of the command
// itself (the library cannot be loaded) put in the same shape.
struct Failure {
  std::string identifier;
  std::vector<resource_core::MsgArg> arguments;
  std::string message;
  std::optional<ixtal::ErrorLocation> location;  // where the value at fault lies, if the error names one

  static Failure from(const ixtal::HostError& e) {
    Failure f{e.identifier(), e.arguments(), e.what(), std::nullopt};
    if (e.location()) f.location = *e.location();
    return f;
  }
};

// text: the catalog message (parse errors carry their context and caret
// lines in it); the location, if any, under it: "at PATH (line L, column
// C, byte offset O):" and the context line with a caret, or "at PATH" for
// a path through arrays; then the identifier on a line of its own.
void write_error_text(std::ostream& out, const Failure& f);
// json: exactly one line, {"identifier":...,"arguments":[...],"message":...},
// and "location":{"path":...,"offset":...,"line":...,"column":...} after
// them when there is one (a path through arrays has the path alone).
void write_error_json(std::ostream& out, const Failure& f);
void write_error(std::ostream& out, const Failure& f, ErrorFormat format);

// A JSON string literal of the text. The output is ASCII whatever the text
// holds, so the line survives any terminal or locale: non-ASCII characters
// become \u escapes (surrogate pairs beyond U+FFFF), ill-formed UTF-8 and
// unpaired surrogates become \ufffd.
std::string json_quoted(std::string_view utf8);
std::string json_quoted(std::u16string_view utf16);

}  // namespace dovra_cli
