#pragma once

// Numbers, the one rule both handlers of the grammar read them by: a JSON
// number's text to its correctly rounded double, over UTF-8 or the host's
// UTF-16 text as it stands.

#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "foundation/json/support.hpp"
#include "ixtal/text.hpp"
#include "json/decimal.hpp"

namespace dovra_json::detail {

using foundation::json::ParseResult;

template <class Char>
class NumberGrammar {
  static_assert(std::is_same_v<Char, char> || std::is_same_v<Char, char16_t>);

 public:
  explicit NumberGrammar(const Char* end) noexcept : end_(end) {}

  // A leading zero does not end the integer part: "0123" is 123, but the
  // digits after it cannot take a fraction ("01.5" stops at the '.'). The
  // digits are gathered as they are checked, so most numbers need no second
  // reading.
  ParseResult number(const Char*& p, double& out) const {
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

 protected:
  // The unit as a code point for the ASCII tests (a char may be signed).
  static int code(Char c) noexcept {
    if constexpr (sizeof(Char) == 1)
      return static_cast<unsigned char>(c);
    else
      return c;
  }
  static bool is_digit(Char c) noexcept { return fl::i18n::lcctype::isdigit_ascii(code(c)); }

  const Char* const end_;

 private:
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
  // eight at a time while eight are there. Inline, so that m and count stay
  // in registers: as a call they went through memory, a stall per number.
  [[gnu::always_inline]] void digits(const Char*& p, std::uint64_t& m, long long& count) const noexcept {
    while (end_ - p >= 8) {
      const std::uint64_t w = eight_units(p);
      const unsigned run = digit_run(w);
      if (run == 8) {
        m = m * 100000000 + eight_digit_value(w);
        p += 8;
        count += 8;
        continue;
      }
      // The run ends within these eight: most numbers are one short run,
      // or one block and a short run. A run of one or two digits alone is
      // quicker digit by digit.
      if (run > 2 || (run && count >= 8)) {
        m = m * kPowersOfTen[run] + digit_run_value(w, run);
        p += run;
        count += run;
        return;
      }
      break;
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
};

}  // namespace dovra_json::detail
