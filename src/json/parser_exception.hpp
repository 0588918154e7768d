#pragma once

// A failed parse: the parser's code and where it stopped.

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "foundation/json/support.hpp"
#include "json/location.hpp"

namespace foundation::json {

class ParserException : public std::runtime_error {
 public:
  // [begin, end) is the whole UTF-8 text and pos the failure in it. The
  // message is "JSON ParserException (E0019): <description> (Line L,
  // Column C)", then the context line and a caret line, each after a tab.
  ParserException(const char* begin, const char* pos, const char* end, ParseResult code,
                  std::string_view description);

  ParseResult result() const noexcept { return result_; }  // 0 when text follows a complete value
  std::uint64_t offset() const noexcept { return offset_; }
  std::uint64_t line() const noexcept { return line_; }
  std::uint64_t column() const noexcept { return column_; }
  std::uint64_t caret() const noexcept { return caret_; }
  const std::string& context() const noexcept { return context_; }

 private:
  ParserException(ParseResult code, std::uint64_t offset, LocationInfo&& where,
                  std::string_view description);

  ParseResult result_;
  std::uint64_t offset_;
  std::uint64_t line_;
  std::uint64_t column_;
  std::uint64_t caret_;
  std::string context_;
};

}  // namespace foundation::json
