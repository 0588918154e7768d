#pragma once

// Scans over runs of text units that the grammar's string rule and its
// handlers share: where a string's plain run stops, the hex digits of an
// escape, and white space. Over UTF-8 bytes or the host's UTF-16 units
// alike.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "ixtal/text.hpp"

namespace dovra_json::detail {

template <class Char>
struct UnitScan {
  static int code(Char c) noexcept { return static_cast<std::make_unsigned_t<Char>>(c); }

  // The first '"' or '\\' at or after p, or end. units stays below 0x80
  // when every unit before it is ASCII, and is 0x80 or more otherwise.
  // Names and most strings are short: over UTF-16 most take one block.
  static const Char* plain_run(const Char* p, const Char* end, int& units) noexcept {
#if defined(__SSE2__)
    if constexpr (sizeof(Char) == 2) {
      const __m128i quote = _mm_set1_epi16('"'), backslash = _mm_set1_epi16('\\');
      const __m128i beyond = _mm_set1_epi16(short(0xFF80));
      for (; end - p >= 8; p += 8) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const unsigned stop =
            unsigned(_mm_movemask_epi8(_mm_or_si128(_mm_cmpeq_epi16(v, quote), _mm_cmpeq_epi16(v, backslash))));
        const unsigned ascii = unsigned(_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(v, beyond), _mm_setzero_si128())));
        const unsigned before = stop ? (stop & -stop) - 1 : 0xFFFFu;  // the bytes of the units before the stop
        if (~ascii & before) units |= 0x80;
        if (stop) return p + __builtin_ctz(stop) / 2;
      }
    }
#endif
    for (; p != end && *p != '"' && *p != '\\'; ++p) units |= code(*p);
    return p;
  }

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

  static int hex_digit(Char c) noexcept {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  }

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

  static bool is_space(Char c) noexcept { return fl::i18n::lcctype::isspace_ascii(code(c)); }

  // Past the white space at p. With comments on, "/* ... */" and
  // "// ... newline" count as white space; an unclosed one runs to the end
  // of the text, and a '/' that starts neither is left for the caller to
  // reject.
  static const Char* white_space(const Char* p, const Char* end, bool comments) noexcept {
    while (p != end && is_space(*p)) ++p;
    return comments ? comments_and_space(p, end) : p;
  }

 private:
  // Apart, so that the common case inlines.
  [[gnu::noinline]] static const Char* comments_and_space(const Char* p, const Char* end) noexcept {
    for (;;) {
      while (p != end && is_space(*p)) ++p;
      if (end - p < 2 || p[0] != '/') return p;
      if (p[1] == '*') {
        const Char* q = p + 2;
        while (end - q >= 2 && !(q[0] == '*' && q[1] == '/')) ++q;
        p = end - q >= 2 ? q + 2 : end;
      } else if (p[1] == '/') {
        const Char* nl = std::find(p + 2, end, Char('\n'));
        p = nl != end ? nl + 1 : end;
      } else {
        return p;
      }
    }
  }
};

}  // namespace dovra_json::detail
