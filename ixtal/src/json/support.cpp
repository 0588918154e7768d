#include "foundation/json/support.hpp"

#include <charconv>
#include <limits>

namespace foundation::json {

const char* get_parse_result_description(ParseResult code) noexcept {
  switch (code) {
    case kParseOk: return "No error";
    case kNullExpected: return "Expected null";
    case kBooleanExpected: return "Expected true or false";
    case kCommentNotClosed: return "Comment not closed";
    case kInvalidCommentStart: return "Invalid comment start";
    case kInvalidUnicodeEscape: return "Invalid Unicode escape";
    case kInvalidEscape: return "Invalid escape character";
    case kInvalidCharacter: return "Invalid character";
    case kStringExpected: return "Expected a string or another value";
    case kInvalidUtf8: return "Invalid UTF-8";
    case kNumberOutOfRange: return "Number out of range";
    case kDigitExpected: return "Expected a digit";
    case kFractionDigitExpected: return "Expected a digit after the decimal point";
    case kExponentDigitExpected: return "Expected a digit in the exponent";
    case kArrayExpected: return "Expected an array";
    case kCommaOrBracketExpected: return "Expected ',' or ']'";
    case kObjectExpected: return "Expected an object";
    case kCommaOrBraceExpected: return "Expected ',' or '}'";
    case kColonExpected: return "Expected ':' after the member name";
    case kUnexpectedEnd: return "Unexpected end of text";
    case kNestingTooDeep: return "Arrays and objects nested too deeply";
  }
  return "Unknown parse result";
}

namespace detail {

namespace {

constexpr bool is_digit(char c) noexcept { return c >= '0' && c <= '9'; }

// The power of ten of the lexeme's first significant digit (1 for "12.5",
// -3 for "0.00125e0"), saturated far beyond any double's range; false for a
// lexeme with no significant digit.
bool leading_power_of_ten(const char* p, const char* last, long long& power) noexcept {
  constexpr long long kFar = 1'000'000'000'000LL;
  if (p != last && *p == '-') ++p;
  const char* digits = p;
  while (p != last && is_digit(*p)) ++p;
  const char* lead = digits;
  while (lead != p && *lead == '0') ++lead;
  bool found = lead != p;
  if (found) power = (p - lead) - 1;
  if (p != last && *p == '.') {
    const char* fraction = ++p;
    while (p != last && is_digit(*p)) {
      if (!found && *p != '0') {
        found = true;
        power = -((p - fraction) + 1);
      }
      ++p;
    }
  }
  if (!found) return false;
  if (p != last && (*p == 'e' || *p == 'E')) {
    ++p;
    const bool negative = p != last && *p == '-';
    if (p != last && (*p == '-' || *p == '+')) ++p;
    long long e = 0;
    for (; p != last && is_digit(*p); ++p) e = e < kFar ? e * 10 + (*p - '0') : kFar;
    power += negative ? -e : e;
  }
  return true;
}

void put_code_point(char32_t c, std::string& out) {
  if (c < 0x80) {
    out.push_back(char(c));
  } else if (c < 0x800) {
    const char b[] = {char(0xC0 | (c >> 6)), char(0x80 | (c & 0x3F))};
    out.append(b, 2);
  } else if (c < 0x10000) {
    const char b[] = {char(0xE0 | (c >> 12)), char(0x80 | ((c >> 6) & 0x3F)), char(0x80 | (c & 0x3F))};
    out.append(b, 3);
  } else {
    const char b[] = {char(0xF0 | (c >> 18)), char(0x80 | ((c >> 12) & 0x3F)), char(0x80 | ((c >> 6) & 0x3F)),
                      char(0x80 | (c & 0x3F))};
    out.append(b, 4);
  }
}

constexpr bool is_surrogate(char16_t u) noexcept { return (u & 0xF800) == 0xD800; }
constexpr bool is_high_surrogate(char16_t u) noexcept { return (u & 0xFC00) == 0xD800; }
constexpr bool is_low_surrogate(char16_t u) noexcept { return (u & 0xFC00) == 0xDC00; }

void put_unit(char16_t u, std::string& out) { put_code_point(is_surrogate(u) ? 0xFFFD : u, out); }

}  // namespace

double string_to_double(const char* first, const char* last) noexcept {
  double value = 0;
  const auto [ptr, ec] = std::from_chars(first, last, value);
  if (ec == std::errc()) return value;
  if (ec != std::errc::result_out_of_range) return std::numeric_limits<double>::quiet_NaN();
  // from_chars leaves the value alone when the magnitude is out of range;
  // the lexeme's decimal magnitude tells which end it fell off.
  long long power = 0;
  const bool large = leading_power_of_ten(first, last, power) && power >= 0;
  const double magnitude = large ? std::numeric_limits<double>::infinity() : 0.0;
  return first != last && *first == '-' ? -magnitude : magnitude;
}

void u16_to_u8(char16_t first, char16_t second, bool has_second, std::string& out) {
  if (has_second && is_high_surrogate(first) && is_low_surrogate(second)) {
    put_code_point(0x10000 + ((char32_t(first) - 0xD800) << 10) + (char32_t(second) - 0xDC00), out);
    return;
  }
  put_unit(first, out);
  if (has_second) put_unit(second, out);
}

}  // namespace detail
}  // namespace foundation::json
