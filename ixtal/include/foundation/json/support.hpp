#pragma once

// Support functions of the host JSON library that the builtins' parser and
// decoder build on.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "ixtal/export.hpp"

namespace foundation::json {

// Result codes of a parse. The numbering is shared with the parser of the
// builtins library; 3, 4, 7, 9 and 10 exist for other clients of this
// library and are never produced by that parser.
enum ParseResult : std::int32_t {
  kParseOk = 0,
  kNullExpected = 1,
  kBooleanExpected = 2,
  kCommentNotClosed = 3,
  kInvalidCommentStart = 4,
  kInvalidUnicodeEscape = 5,
  kInvalidEscape = 6,
  kInvalidCharacter = 7,
  kStringExpected = 8,
  kInvalidUtf8 = 9,
  kNumberOutOfRange = 10,
  kDigitExpected = 11,
  kFractionDigitExpected = 12,
  kExponentDigitExpected = 13,
  kArrayExpected = 14,
  kCommaOrBracketExpected = 15,
  kObjectExpected = 16,
  kCommaOrBraceExpected = 17,
  kColonExpected = 18,
  kUnexpectedEnd = 19,
  kNestingTooDeep = 20,
};

// A short English text for each code; "Unknown parse result" otherwise.
IXTAL_API const char* get_parse_result_description(ParseResult code) noexcept;

namespace detail {

// The correctly rounded nearest double of a JSON number lexeme (optional
// '-', digits, optional fraction and exponent; leading zeros allowed).
// Magnitudes beyond the largest double give +-infinity; magnitudes below the
// smallest subnormal give +-0.0 (the sign is kept).
IXTAL_API double string_to_double(const char* first, const char* last) noexcept;

// Appends the UTF-8 form of one or two UTF-16 code units to out. A valid
// surrogate pair gives one 4-byte sequence; every unpaired surrogate is
// written as U+FFFD (EF BF BD), followed by the second unit's own encoding
// when that unit is not a low surrogate. Never fails.
IXTAL_API void u16_to_u8(char16_t first, char16_t second, bool has_second, std::string& out);

}  // namespace detail
}  // namespace foundation::json
