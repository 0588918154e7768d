#include "json/parser.hpp"

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "ixtal/text.hpp"
#include "json/limits.hpp"
#include "json/parse_step.hpp"

namespace dovra_json {
namespace {

namespace fj = foundation::json;
using fj::ParseResult;
using fj::Value;
using fl::i18n::lcctype::isdigit_ascii;
using fl::i18n::lcctype::isspace_ascii;

constexpr int hex_digit(unsigned char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The UTF-16 unit spelled by four hex digits, or -1.
inline int hex4(const char* p) noexcept {
  const int a = hex_digit(p[0]), b = hex_digit(p[1]), c = hex_digit(p[2]), d = hex_digit(p[3]);
  if ((a | b | c | d) < 0) return -1;
  return (a << 12) | (b << 8) | (c << 4) | d;
}

// Whether any byte of the word is zero (the classic bit trick: exact, since
// a borrow only starts at a byte that is zero).
constexpr bool has_zero_byte(std::uint64_t x) noexcept {
  return ((x - 0x0101010101010101ull) & ~x & 0x8080808080808080ull) != 0;
}

// The first '"' or '\' at or after p, or end. Strings are mostly plain text,
// so eight bytes are tested at a time.
inline const char* find_quote_or_backslash(const char* p, const char* end) noexcept {
  constexpr std::uint64_t kQuotes = 0x2222222222222222ull, kBackslashes = 0x5c5c5c5c5c5c5c5cull;
  while (end - p >= 8) {
    std::uint64_t w;
    std::memcpy(&w, p, 8);
    if (has_zero_byte(w ^ kQuotes) || has_zero_byte(w ^ kBackslashes)) break;
    p += 8;
  }
  while (p != end && *p != '"' && *p != '\\') ++p;
  return p;
}

inline bool spells(const char* p, const char* end, const char* word, std::size_t n) noexcept {
  return std::size_t(end - p) >= n && std::memcmp(p, word, n) == 0;
}

class Parser {
 public:
  Parser(const char* end, unsigned char flags) noexcept : end_(end), comments_((flags & kAllowComments) != 0) {}

  // Why the first byte is enough: all six alternatives start at the same
  // byte. The string fails right there only for a byte other than '"' (8)
  // or at the end (19); after a '"' it always fails further in. The number
  // fails further in once the byte is '-' or a digit, and on that byte
  // otherwise. Object and array fail on the byte unless it opens them, and
  // the literals never move the cursor. So the alternative the byte selects
  // is the only one that can get past it, and where none does, the string
  // comes first among equals: every other failure is 8 at that byte, or 19
  // at the end.
  ParseResult value(const char*& p, Value& out) {
    if (p == end_) return fj::kUnexpectedEnd;
    switch (*p) {
      case '"': {
        std::string s;
        const ParseResult r = string(p, s);
        if (r == fj::kParseOk) out = Value(std::move(s));
        return r;
      }
      case '-': case '0': case '1': case '2': case '3': case '4':
      case '5': case '6': case '7': case '8': case '9':
        return number(p, out);
      case '{': return object(p, out);
      case '[': return array(p, out);
      case 't': return literal(p, "true", 4, Value(true), out);
      case 'f': return literal(p, "false", 5, Value(false), out);
      case 'n': return literal(p, "null", 4, Value(fj::Null{}), out);
      default: return fj::kStringExpected;
    }
  }

 private:
  ParseResult literal(const char*& p, const char* word, std::size_t n, Value v, Value& out) {
    if (!spells(p, end_, word, n)) return fj::kStringExpected;
    p += n;
    out = std::move(v);
    return fj::kParseOk;
  }

  ParseResult string(const char*& p, std::string& out) {
    if (p == end_) return fj::kUnexpectedEnd;
    if (*p != '"') return fj::kStringExpected;
    ++p;
    for (;;) {
      const char* run = p;
      p = find_quote_or_backslash(p, end_);
      out.append(run, p);
      if (p == end_) return fj::kUnexpectedEnd;
      if (*p == '"') {
        ++p;
        return fj::kParseOk;
      }
      if (const ParseResult r = escape(p, out); r != fj::kParseOk) return r;
    }
  }

  // p is on a backslash, and stays there unless the whole escape is read.
  ParseResult escape(const char*& p, std::string& out) {
    const char* e = p + 1;
    if (e == end_) return fj::kUnexpectedEnd;
    char c;
    switch (*e) {
      case '"': case '/': case '\\': c = *e; break;
      case 'b': c = '\b'; break;
      case 'f': c = '\f'; break;
      case 'n': c = '\n'; break;
      case 'r': c = '\r'; break;
      case 't': c = '\t'; break;
      case 'u': return unicode_escape(p, e + 1, out);
      default: return fj::kInvalidEscape;
    }
    out.push_back(c);
    p = e + 1;
    return fj::kParseOk;
  }

  // digits: just after the 'u'. A high surrogate takes a second escape with
  // it, whatever that one holds: u16_to_u8 sorts out unpaired units.
  ParseResult unicode_escape(const char*& p, const char* digits, std::string& out) {
    if (end_ - digits < 4) return fj::kUnexpectedEnd;
    const int first = hex4(digits);
    if (first < 0) return fj::kInvalidUnicodeEscape;
    const char* e = digits + 4;
    if ((first & 0xFC00) == 0xD800) {
      if (end_ - e < 6) return fj::kUnexpectedEnd;
      if (e[0] != '\\' || e[1] != 'u') return fj::kInvalidUnicodeEscape;
      const int second = hex4(e + 2);
      if (second < 0) return fj::kInvalidUnicodeEscape;
      fj::detail::u16_to_u8(char16_t(first), char16_t(second), true, out);
      e += 6;
    } else {
      fj::detail::u16_to_u8(char16_t(first), 0, false, out);
    }
    p = e;
    return fj::kParseOk;
  }

  void skip_digits(const char*& p) const noexcept {
    while (p != end_ && isdigit_ascii(static_cast<unsigned char>(*p))) ++p;
  }

  // A leading zero does not end the integer part: "0123" is 123, but the
  // digits after it cannot take a fraction ("01.5" stops at the '.').
  ParseResult number(const char*& p, Value& out) {
    const char* const first = p;
    if (p == end_) return fj::kUnexpectedEnd;
    if (*p == '-' && ++p == end_) return fj::kUnexpectedEnd;
    if (*p == '0') {
      ++p;
      if (p != end_ && *p == '.') {
        if (const ParseResult r = fraction(p); r != fj::kParseOk) return r;
      } else {
        skip_digits(p);
      }
    } else {
      if (!isdigit_ascii(static_cast<unsigned char>(*p))) return fj::kDigitExpected;
      skip_digits(p);
      if (p != end_ && *p == '.') {
        if (const ParseResult r = fraction(p); r != fj::kParseOk) return r;
      }
    }
    if (p != end_ && (*p == 'e' || *p == 'E')) {
      if (++p == end_) return fj::kUnexpectedEnd;
      if ((*p == '+' || *p == '-') && ++p == end_) return fj::kUnexpectedEnd;
      if (!isdigit_ascii(static_cast<unsigned char>(*p))) return fj::kExponentDigitExpected;
      skip_digits(p);
    }
    out = Value(fj::detail::string_to_double(first, p));
    return fj::kParseOk;
  }

  // p is on the '.'.
  ParseResult fraction(const char*& p) const noexcept {
    if (++p == end_) return fj::kUnexpectedEnd;
    if (!isdigit_ascii(static_cast<unsigned char>(*p))) return fj::kFractionDigitExpected;
    skip_digits(p);
    return fj::kParseOk;
  }

  // Counts one level of array or object nesting for as long as it lives.
  class Level {
   public:
    explicit Level(std::size_t& depth) noexcept : depth_(++depth) {}
    ~Level() { --depth_; }
    Level(const Level&) = delete;
    Level& operator=(const Level&) = delete;

   private:
    std::size_t& depth_;
  };

  ParseResult array(const char*& p, Value& out) {
    if (p == end_) return fj::kUnexpectedEnd;
    if (*p != '[') return fj::kArrayExpected;
    if (depth_ >= kMaxNestingDepth) return fj::kNestingTooDeep;
    Level level(depth_);
    ++p;
    skip_white_space(p);
    if (p == end_) return fj::kUnexpectedEnd;
    fj::Array elements;
    if (*p != ']') {
      for (;;) {
        if (const ParseResult r = value(p, elements.emplace_back()); r != fj::kParseOk) return r;
        skip_white_space(p);
        if (p == end_) return fj::kUnexpectedEnd;
        if (*p == ']') break;
        if (*p != ',') return fj::kCommaOrBracketExpected;
        ++p;
        skip_white_space(p);
      }
    }
    ++p;
    out = Value(std::move(elements));
    return fj::kParseOk;
  }

  ParseResult object(const char*& p, Value& out) {
    if (p == end_) return fj::kUnexpectedEnd;
    if (*p != '{') return fj::kObjectExpected;
    if (depth_ >= kMaxNestingDepth) return fj::kNestingTooDeep;
    Level level(depth_);
    ++p;
    skip_white_space(p);
    if (p == end_) return fj::kUnexpectedEnd;
    fj::Object members;
    if (*p != '}') {
      std::string name;
      for (;;) {
        name.clear();
        if (const ParseResult r = string(p, name); r != fj::kParseOk) return r;
        skip_white_space(p);
        if (p == end_) return fj::kUnexpectedEnd;
        if (*p != ':') return fj::kColonExpected;
        ++p;
        skip_white_space(p);
        Value v;
        if (const ParseResult r = value(p, v); r != fj::kParseOk) return r;
        skip_white_space(p);
        if (p == end_) return fj::kUnexpectedEnd;
        // A repeated name keeps its first value. Members mostly arrive in
        // order, so the end is the likely place for the new one.
        members.try_emplace(members.end(), std::move(name), std::move(v));
        if (*p == '}') break;
        if (*p != ',') return fj::kCommaOrBraceExpected;
        ++p;
        skip_white_space(p);
      }
    }
    ++p;
    out = Value(std::move(members));
    return fj::kParseOk;
  }

  // With comments on, "/* ... */" and "// ... newline" count as white space;
  // an unclosed one runs to the end of the text, and a '/' that starts
  // neither is left for the caller to reject.
  void skip_white_space(const char*& p) const noexcept {
    for (;;) {
      while (p != end_ && isspace_ascii(static_cast<unsigned char>(*p))) ++p;
      if (!comments_ || end_ - p < 2 || p[0] != '/') return;
      if (p[1] == '*') {
        const char* q = p + 2;
        while (end_ - q >= 2 && !(q[0] == '*' && q[1] == '/')) ++q;
        p = end_ - q >= 2 ? q + 2 : end_;
      } else if (p[1] == '/') {
        const void* nl = std::memchr(p + 2, '\n', std::size_t(end_ - (p + 2)));
        p = nl ? static_cast<const char*>(nl) + 1 : end_;
      } else {
        return;
      }
    }
  }

  const char* const end_;
  const bool comments_;
  std::size_t depth_ = 0;
};

}  // namespace

foundation::json::ParseResult parse_value(const char*& cur, const char* end, unsigned char flags,
                                          foundation::json::Value& out) {
  return Parser(end, flags).value(cur, out);
}

}  // namespace dovra_json
