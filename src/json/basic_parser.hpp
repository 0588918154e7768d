#pragma once

// The alternatives of the JSON grammar: string, number, array and object,
// and white space between the parts of a container. How a value position
// chooses among the alternatives is left to Derived, which provides
//   foundation::json::ParseResult value(const Char*& p, foundation::json::Value& out);
//
// Char is char for UTF-8 text, or char16_t for the host's UTF-16 text read
// as it stands. Over UTF-16 only ASCII units are grammar; others can only be
// string content, which is stored as UTF-8 like the rest of the tree, so a
// text the UTF-16 parser reads gives the tree the UTF-8 parser gives for the
// text's UTF-8 form. Positions of failures are in units of the text read.
// (parser.cpp chooses by the first byte). Arrays and objects call it for
// their elements, so the choice applies at every depth.
//
// Every function returns a code and leaves the cursor after what it read
// (success) or on the byte it could not read (failure); a failure inside an
// escape leaves it on the escape's backslash.

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#include <iterator>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "foundation/json/support.hpp"
#include "foundation/json/value.hpp"
#include "ixtal/text.hpp"
#include "json/decimal.hpp"
#include "json/limits.hpp"
#include "json/parser.hpp"

namespace dovra_json::detail {

template <class Derived, class Char = char>
class BasicParser {
  static_assert(std::is_same_v<Char, char> || std::is_same_v<Char, char16_t>);

 public:
  // text_size: the length of the whole text, for sizing the scratch stack.
  BasicParser(const Char* end, unsigned char flags, std::size_t text_size = 0) noexcept
      : end_(end), comments_((flags & kAllowComments) != 0) {
    // Room for one element per eight bytes of text, what a dense numeric
    // array needs, so that a large one does not regrow its way up through
    // the stack (one pass over fresh memory instead of twenty). Reserved
    // room that is never written is never touched. Only a hint: without
    // the memory the stack grows as it must.
    try {
      scratch_.reserve(text_size / 8);
    } catch (const std::bad_alloc&) {
    }
  }

 protected:
  using ParseResult = foundation::json::ParseResult;
  using Value = foundation::json::Value;

  ParseResult string(const Char*& p, std::string& out) {
    if (p == end_) return foundation::json::kUnexpectedEnd;
    if (*p != '"') return foundation::json::kStringExpected;
    ++p;
    for (;;) {
      const Char* run = p;
      p = find_quote_or_backslash(p, end_);
      append_content(run, p, out);
      if (p == end_) return foundation::json::kUnexpectedEnd;
      if (*p == '"') {
        ++p;
        return foundation::json::kParseOk;
      }
      if (const ParseResult r = escape(p, out); r != foundation::json::kParseOk) return r;
    }
  }

  // A leading zero does not end the integer part: "0123" is 123, but the
  // digits after it cannot take a fraction ("01.5" stops at the '.'). The
  // digits are gathered as they are checked, so most numbers need no second
  // reading.
  ParseResult number(const Char*& p, Value& out) {
    double d;
    const ParseResult r = number_value(p, d);
    if (r == foundation::json::kParseOk) out = Value(d);
    return r;
  }

  ParseResult number_value(const Char*& p, double& out) {
    const Char* const first = p;
    if (p == end_) return foundation::json::kUnexpectedEnd;
    const bool negative = *p == '-';
    if (negative && ++p == end_) return foundation::json::kUnexpectedEnd;
    std::uint64_t m = 0;
    long long count = 0;
    long long power = 0;
    if (*p == '0') {
      ++p;
      if (p != end_ && *p == '.') {
        if (const ParseResult r = fraction(p, m, count, power); r != foundation::json::kParseOk) return r;
      } else {
        digits(p, m, count);
      }
    } else {
      if (!is_digit(*p)) return foundation::json::kDigitExpected;
      digits(p, m, count);
      if (p != end_ && *p == '.') {
        if (const ParseResult r = fraction(p, m, count, power); r != foundation::json::kParseOk) return r;
      }
    }
    if (p != end_ && (*p == 'e' || *p == 'E')) {
      if (++p == end_) return foundation::json::kUnexpectedEnd;
      const bool down = *p == '-';
      if ((*p == '+' || *p == '-') && ++p == end_) return foundation::json::kUnexpectedEnd;
      if (!is_digit(*p)) return foundation::json::kExponentDigitExpected;
      long long e = 0;
      for (; p != end_ && is_digit(*p); ++p)
        if (e < kFarExponent) e = e * 10 + (*p - '0');
      power += down ? -e : e;
    }
    if (!exact_decimal(m, count, power, negative, out)) out = general_double(first, p);
    return foundation::json::kParseOk;
  }

  // The commonest number of large bodies, an integer of at most 15 digits
  // with no fraction or exponent, read eight units at a time: its double
  // (the one number_value gives) and p after it. False, with p unmoved, for
  // any other text, which number_value then reads.
  bool short_integer(const Char*& p, double& out) const noexcept {
    const bool negative = p != end_ && *p == Char('-');
    const Char* q = p + negative;
    if (end_ - q < 17) return false;  // room for the loads and the unit after
    std::uint64_t w = eight_units(q);
    unsigned n = leading_digits(w);
    if (n == 0) return false;
    std::uint64_t m;
    if (n < 8) {
      m = digits_value(w, n);
    } else {
      w = eight_units(q + 8);
      const unsigned more = leading_digits(w);
      if (more == 8) return false;
      m = eight_digit_value(eight_units(q)) * kTens[more] + digits_value(w, more);
      n += more;
    }
    const Char next = q[n];
    if (next == Char('.') || next == Char('e') || next == Char('E')) return false;
    const double x = static_cast<double>(static_cast<std::int64_t>(m));  // exact: m < 10^15
    out = negative ? -x : x;
    p = q + n;
    return true;
  }

  ParseResult array(const Char*& p, Value& out) {
    if (p == end_) return foundation::json::kUnexpectedEnd;
    if (*p != '[') return foundation::json::kArrayExpected;
    if (depth_ >= kMaxNestingDepth) return foundation::json::kNestingTooDeep;
    Level level(depth_);
    ++p;
    skip_white_space(p);
    if (p == end_) return foundation::json::kUnexpectedEnd;
    // Elements gather on the scratch stack shared by every level and move
    // into a vector of exactly their number at the closing bracket: no
    // vector regrows element by element.
    const std::size_t mark = scratch_.size();
    if (*p != ']') {
      for (;;) {
        Value element;
        if (const ParseResult r = derived().value(p, element); r != foundation::json::kParseOk) return r;
        scratch_.push_back(std::move(element));
        skip_white_space(p);
        if (p == end_) return foundation::json::kUnexpectedEnd;
        if (*p == ']') break;
        if (*p != ',') return foundation::json::kCommaOrBracketExpected;
        ++p;
        skip_white_space(p);
      }
    }
    ++p;
    if (mark == 0 && scratch_.size() >= scratch_.capacity() / 2) {
      // Everything on the stack is this array's and fills at least half of
      // it (a large flat array, most often): the stack itself becomes the
      // array, with no copy and no more spare room than regrowing leaves.
      out = Value(std::exchange(scratch_, {}));
      return foundation::json::kParseOk;
    }
    const auto first = scratch_.begin() + std::ptrdiff_t(mark);
    out = Value(foundation::json::Array(std::make_move_iterator(first), std::make_move_iterator(scratch_.end())));
    scratch_.erase(first, scratch_.end());
    return foundation::json::kParseOk;
  }

  ParseResult object(const Char*& p, Value& out) {
    if (p == end_) return foundation::json::kUnexpectedEnd;
    if (*p != '{') return foundation::json::kObjectExpected;
    if (depth_ >= kMaxNestingDepth) return foundation::json::kNestingTooDeep;
    Level level(depth_);
    ++p;
    skip_white_space(p);
    if (p == end_) return foundation::json::kUnexpectedEnd;
    foundation::json::Object members;
    if (*p != '}') {
      std::string name;
      for (;;) {
        name.clear();
        if (const ParseResult r = string(p, name); r != foundation::json::kParseOk) return r;
        skip_white_space(p);
        if (p == end_) return foundation::json::kUnexpectedEnd;
        if (*p != ':') return foundation::json::kColonExpected;
        ++p;
        skip_white_space(p);
        Value v;
        if (const ParseResult r = derived().value(p, v); r != foundation::json::kParseOk) return r;
        skip_white_space(p);
        if (p == end_) return foundation::json::kUnexpectedEnd;
        // A repeated name keeps its first value. Members mostly arrive in
        // order, so the end is the likely place for the new one.
        members.try_emplace(members.end(), std::move(name), std::move(v));
        if (*p == '}') break;
        if (*p != ',') return foundation::json::kCommaOrBraceExpected;
        ++p;
        skip_white_space(p);
      }
    }
    ++p;
    out = Value(std::move(members));
    return foundation::json::kParseOk;
  }

  // With comments on, "/* ... */" and "// ... newline" count as white space;
  // an unclosed one runs to the end of the text, and a '/' that starts
  // neither is left for the caller to reject.
  void skip_white_space(const Char*& p) const noexcept {
    for (;;) {
      while (p != end_ && is_space(*p)) ++p;
      if (!comments_ || end_ - p < 2 || p[0] != '/') return;
      if (p[1] == '*') {
        const Char* q = p + 2;
        while (end_ - q >= 2 && !(q[0] == '*' && q[1] == '/')) ++q;
        p = end_ - q >= 2 ? q + 2 : end_;
      } else if (p[1] == '/') {
        const Char* nl = std::find(p + 2, end_, Char('\n'));
        p = nl != end_ ? nl + 1 : end_;
      } else {
        return;
      }
    }
  }

  const Char* end() const noexcept { return end_; }

 private:
  Derived& derived() noexcept { return static_cast<Derived&>(*this); }

  // The unit as a code point for the ASCII tests (a char may be signed).
  static int code(Char c) noexcept {
    if constexpr (sizeof(Char) == 1)
      return static_cast<unsigned char>(c);
    else
      return c;
  }
  static bool is_digit(Char c) noexcept { return fl::i18n::lcctype::isdigit_ascii(code(c)); }
  static bool is_space(Char c) noexcept { return fl::i18n::lcctype::isspace_ascii(code(c)); }

  static int hex_digit(Char c) noexcept {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  }

 protected:
  // The UTF-16 unit spelled by four hex digits, or -1.
  static int hex4(const Char* p) noexcept {
    const int a = hex_digit(p[0]), b = hex_digit(p[1]), c = hex_digit(p[2]), d = hex_digit(p[3]);
    if ((a | b | c | d) < 0) return -1;
    return (a << 12) | (b << 8) | (c << 4) | d;
  }

  // Each unit of Char's width in a 64-bit word: the lowest bit of every
  // unit, and the highest.
  static constexpr std::uint64_t kLowBits = sizeof(Char) == 1 ? 0x0101010101010101ull : 0x0001000100010001ull;
  static constexpr std::uint64_t kHighBits = kLowBits << (8 * sizeof(Char) - 1);
  static constexpr std::ptrdiff_t kUnitsPerWord = 8 / sizeof(Char);

  // Whether any unit of the word is zero (exact: a borrow only starts at a
  // unit that is zero).
  static bool has_zero_unit(std::uint64_t x) noexcept { return ((x - kLowBits) & ~x & kHighBits) != 0; }

  // The first '"' or '\' at or after p, or end. Strings are mostly plain
  // text, so a word is tested at a time.
  static const Char* find_quote_or_backslash(const Char* p, const Char* end) noexcept {
    constexpr std::uint64_t kQuotes = kLowBits * '"', kBackslashes = kLowBits * '\\';
    while (end - p >= kUnitsPerWord) {
      std::uint64_t w;
      std::memcpy(&w, p, 8);
      if (has_zero_unit(w ^ kQuotes) || has_zero_unit(w ^ kBackslashes)) break;
      p += kUnitsPerWord;
    }
    while (p != end && *p != '"' && *p != '\\') ++p;
    return p;
  }

 private:
  // p is on a backslash, and stays there unless the whole escape is read.
  ParseResult escape(const Char*& p, std::string& out) {
    const Char* e = p + 1;
    if (e == end_) return foundation::json::kUnexpectedEnd;
    char c;
    switch (*e) {
      case '"': case '/': case '\\': c = char(*e); break;
      case 'b': c = '\b'; break;
      case 'f': c = '\f'; break;
      case 'n': c = '\n'; break;
      case 'r': c = '\r'; break;
      case 't': c = '\t'; break;
      case 'u': return unicode_escape(p, e + 1, out);
      default: return foundation::json::kInvalidEscape;
    }
    out.push_back(c);
    p = e + 1;
    return foundation::json::kParseOk;
  }

  // digits: just after the 'u'. A high surrogate takes a second escape with
  // it, whatever that one holds: u16_to_u8 sorts out unpaired units.
  ParseResult unicode_escape(const Char*& p, const Char* digits, std::string& out) {
    if (end_ - digits < 4) return foundation::json::kUnexpectedEnd;
    const int first = hex4(digits);
    if (first < 0) return foundation::json::kInvalidUnicodeEscape;
    const Char* e = digits + 4;
    if ((first & 0xFC00) == 0xD800) {
      if (end_ - e < 6) return foundation::json::kUnexpectedEnd;
      if (e[0] != '\\' || e[1] != 'u') return foundation::json::kInvalidUnicodeEscape;
      const int second = hex4(e + 2);
      if (second < 0) return foundation::json::kInvalidUnicodeEscape;
      foundation::json::detail::u16_to_u8(char16_t(first), char16_t(second), true, out);
      e += 6;
    } else {
      foundation::json::detail::u16_to_u8(char16_t(first), 0, false, out);
    }
    p = e;
    return foundation::json::kParseOk;
  }

  // Eight units from p as eight bytes, first unit lowest. A UTF-16 unit
  // that is not a byte turns into one that is no digit (0 or 0xFF).
  static std::uint64_t eight_units(const Char* p) noexcept {
    std::uint64_t w;
    if constexpr (sizeof(Char) == 1) {
      std::memcpy(&w, p, 8);
    } else {
#if defined(__SSE2__)
      const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
      w = std::uint64_t(_mm_cvtsi128_si64(_mm_packus_epi16(units, units)));
#else
      w = 0;
      for (int i = 0; i < 8; ++i) w |= std::uint64_t(p[i] < 0x100 ? p[i] : 0) << (8 * i);
#endif
    }
    return w;
  }

  // How many of w's bytes, from the first, are ASCII digits. A non-digit
  // byte's +6 may carry into the next, but never into an earlier one.
  static unsigned leading_digits(std::uint64_t w) noexcept {
    const std::uint64_t t = w ^ 0x3030303030303030ull;
    const std::uint64_t other = (t | (t + 0x0606060606060606ull)) & 0xF0F0F0F0F0F0F0F0ull;
    return other == 0 ? 8 : unsigned(std::countr_zero(other)) / 8;
  }

  // The value of w's first n digits (0 < n <= 8): they become the last of
  // eight, after leading '0's.
  static std::uint64_t digits_value(std::uint64_t w, unsigned n) noexcept {
    if (n == 0) return 0;
    if (n == 8) return eight_digit_value(w);
    return eight_digit_value((w << (8 * (8 - n))) | (0x3030303030303030ull >> (8 * n)));
  }

  static constexpr std::uint64_t kTens[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000};

  // String content between p and q, as UTF-8.
  static void append_content(const Char* p, const Char* q, std::string& out) {
    if constexpr (sizeof(Char) == 1) {
      out.append(p, q);
    } else {
      // Mostly ASCII: narrowed in place; the rest (and unpaired
      // surrogates, as U+FFFD) as the host's conversion writes it.
      const std::size_t at = out.size();
      out.resize(at + std::size_t(q - p));
      char* o = out.data() + at;
      for (; p != q && *p < 0x80; ++p) *o++ = char(*p);
      out.resize(std::size_t(o - out.data()));
      if (p != q) fl::i18n::codecvt_ustring_to_string("UTF-8").convert(p, std::size_t(q - p), out);
    }
  }

  // The general conversion, for the numbers the quick path refuses. The
  // grammar has checked [first, last): it is all ASCII.
  static double general_double(const Char* first, const Char* last) {
    if constexpr (sizeof(Char) == 1) {
      return foundation::json::detail::string_to_double(first, last);
    } else {
      const std::string bytes(first, last);
      return foundation::json::detail::string_to_double(bytes.data(), bytes.data() + bytes.size());
    }
  }

  // Beyond any double's range, and far from overflowing when saturated.
  static constexpr long long kFarExponent = 1'000'000'000;

  // Reads a run of digits into m (count says how many, m wraps beyond 19),
  // eight at a time while eight are there.
  void digits(const Char*& p, std::uint64_t& m, long long& count) const noexcept {
    while (end_ - p >= 8) {
      const std::uint64_t w = eight_units(p);
      if (!eight_digits(w)) break;
      m = m * 100000000 + eight_digit_value(w);
      p += 8;
      count += 8;
    }
    for (; p != end_ && is_digit(*p); ++p, ++count) m = m * 10 + std::uint64_t(*p - '0');
  }

  // p is on the '.'; each fraction digit lowers the power by one.
  ParseResult fraction(const Char*& p, std::uint64_t& m, long long& count, long long& power) const noexcept {
    if (++p == end_) return foundation::json::kUnexpectedEnd;
    if (!is_digit(*p)) return foundation::json::kFractionDigitExpected;
    const Char* const start = p;
    digits(p, m, count);
    power -= p - start;
    return foundation::json::kParseOk;
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

  const Char* const end_;
  const bool comments_;
  std::size_t depth_ = 0;
  std::vector<Value> scratch_;
};

}  // namespace dovra_json::detail
