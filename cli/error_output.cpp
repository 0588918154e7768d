#include "error_output.hpp"

#include <boost/variant/static_visitor.hpp>
#include <cstdio>

#include "ixtal/text.hpp"

namespace dovra_cli {
namespace {

bool is_high_surrogate(char16_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool is_low_surrogate(char16_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

void append_escape(std::string& out, char16_t unit) {
  char buffer[8];
  std::snprintf(buffer, sizeof buffer, "\\u%04x", unsigned(unit));
  out += buffer;
}

struct json_argument : boost::static_visitor<std::string> {
  std::string operator()(long v) const { return std::to_string(v); }
  std::string operator()(const std::string& s) const { return json_quoted(s); }
  std::string operator()(const std::u16string& s) const { return json_quoted(s); }
};

}  // namespace

std::string json_quoted(std::u16string_view text) {
  std::string out = "\"";
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char16_t c = text[i];
    switch (c) {
      case u'"': out += "\\\""; continue;
      case u'\\': out += "\\\\"; continue;
      case u'\b': out += "\\b"; continue;
      case u'\f': out += "\\f"; continue;
      case u'\n': out += "\\n"; continue;
      case u'\r': out += "\\r"; continue;
      case u'\t': out += "\\t"; continue;
      default: break;
    }
    if (c >= 0x20 && c < 0x7F) {
      out += char(c);
    } else if (is_high_surrogate(c) && i + 1 < text.size() && is_low_surrogate(text[i + 1])) {
      append_escape(out, c);
      append_escape(out, text[++i]);
    } else if (is_high_surrogate(c) || is_low_surrogate(c)) {
      append_escape(out, 0xFFFD);
    } else {
      append_escape(out, c);
    }
  }
  out += '"';
  return out;
}

std::string json_quoted(std::string_view utf8) {
  return json_quoted(fl::i18n::codecvt_string_to_ustring("UTF-8")(utf8));
}

void write_error_text(std::ostream& out, const Failure& f) {
  out << "error: " << f.message << '\n';
  if (const auto& where = f.location) {
    out << "at " << (where->path.empty() ? "the top level" : where->path);
    if (where->in_text)
      out << " (line " << where->line << ", column " << where->column << ", byte offset " << where->offset << "):\n"
          << "    " << where->context << "\n    " << std::string(where->caret, ' ') << '^';
    out << '\n';
  }
  out << "identifier: " << f.identifier << '\n';
}

void write_error_json(std::ostream& out, const Failure& f) {
  std::string line = "{\"identifier\":" + json_quoted(f.identifier) + ",\"arguments\":[";
  for (std::size_t i = 0; i < f.arguments.size(); ++i) {
    if (i) line += ',';
    line += boost::apply_visitor(json_argument(), f.arguments[i]);
  }
  line += "],\"message\":" + json_quoted(f.message);
  if (const auto& where = f.location) {
    line += ",\"location\":{\"path\":" + json_quoted(where->path);
    if (where->in_text)
      line += ",\"offset\":" + std::to_string(where->offset) + ",\"line\":" + std::to_string(where->line) +
              ",\"column\":" + std::to_string(where->column);
    line += '}';
  }
  line += "}\n";
  out << line;
}

void write_error(std::ostream& out, const Failure& f, ErrorFormat format) {
  if (format == ErrorFormat::json) write_error_json(out, f);
  else write_error_text(out, f);
  out.flush();
}

}  // namespace dovra_cli
