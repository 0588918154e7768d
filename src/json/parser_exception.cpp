#include "json/parser_exception.hpp"

#include <utility>

namespace foundation::json {

namespace {

std::string message(ParseResult code, const LocationInfo& where, std::string_view description) {
  std::string number = std::to_string(static_cast<std::int32_t>(code));
  if (number.size() < 4) number.insert(0, 4 - number.size(), '0');
  std::string m = "JSON ParserException (E" + number + "): ";
  m.append(description);
  m += " (Line " + std::to_string(where.line) + ", Column " + std::to_string(where.column) + ")\n\t";
  m += where.context;
  m += "\n\t";
  m.append(where.caret, ' ');
  m += '^';
  return m;
}

}  // namespace

ParserException::ParserException(const char* begin, const char* pos, const char* end, ParseResult code,
                                 std::string_view description)
    : ParserException(code, std::uint64_t(pos - begin), get_location_info(begin, pos, end), description) {}

ParserException::ParserException(ParseResult code, std::uint64_t offset, LocationInfo&& where,
                                 std::string_view description)
    : std::runtime_error(message(code, where, description)),
      result_(code),
      offset_(offset),
      line_(where.line),
      column_(where.column),
      caret_(where.caret),
      context_(std::move(where.context)) {}

}  // namespace foundation::json
