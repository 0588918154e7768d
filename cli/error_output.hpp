#pragma once

// How a failed call reaches the person or the script that ran the command.

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

  static Failure from(const ixtal::HostError& e) { return {e.identifier(), e.arguments(), e.what()}; }
};

// text: the catalog message (parse errors carry their context and caret
// lines in it), then the identifier on a line of its own.
void write_error_text(std::ostream& out, const Failure& f);
// json: exactly one line, {"identifier":...,"arguments":[...],"message":...}.
void write_error_json(std::ostream& out, const Failure& f);
void write_error(std::ostream& out, const Failure& f, ErrorFormat format);

// A JSON string literal of the text. The output is ASCII whatever the text
// holds, so the line survives any terminal or locale: non-ASCII characters
// become \u escapes (surrogate pairs beyond U+FFFF), ill-formed UTF-8 and
// unpaired surrogates become \ufffd.
std::string json_quoted(std::string_view utf8);
std::string json_quoted(std::u16string_view utf16);

}  // namespace dovra_cli
