#pragma once

// Numbers, the one rule both handlers of the grammar read them by: a JSON
// number's text to its correctly rounded double, over UTF-8 or the host's
// UTF-16 text as it stands.

#include <cstdint>
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
  // reading. Inline, so that a loop over numbers keeps its cursor in a
  // register; what the quick lane leaves goes to a call.
  [[gnu::always_inline]] ParseResult number(const Char*& p, double& out) const {
#if defined(__SSE2__)
    if (end_ - p >= kLaneUnits) {
      if (const Char* const after = quick_number(p, out)) {
        p = after;
        return foundation::json::kParseOk;
      }
    }
#endif
    // The cursor goes and comes back by value: were its address taken, the
    // caller's loop would keep it in memory.
    const Read r = careful_number(p, out);
    p = r.after;
    return r.result;
  }

  // Numbers each from a comma to the next, as compact text lists them; p
  // is on a comma. The commas of a block of units are found at once, so
  // where each number starts and ends is known before any is read: a
  // number's reading does not wait on the count of the digits of the one
  // before, which made a chain through every number of a list. A number is
  // taken only where the quick lane reads exactly up to its comma, so it
  // is read as number() reads it; at the first that is not so, and near
  // the end of the text, it stops, p on the comma before the first number
  // not read. put(k, x) takes the k-th number read; at most `most` are.
  template <class Put>
  [[gnu::always_inline]] std::size_t comma_numbers(const Char*& p, std::size_t most, Put&& put) const {
    std::size_t k = 0;
#if defined(__SSE2__)
    const Char* q = p;
    // Spaced text would leave its first number unread, block after block.
    if (end_ - q < kBlockUnits + kLaneUnits || !starts_number(q[1])) return 0;
    while (k != most && end_ - q >= kBlockUnits + kLaneUnits) {
      // Bit 0 is q's own comma; bit b the comma at q + b.
      std::uint64_t commas = comma_bits(q) & ~std::uint64_t(1);
      const Char* last = q;
      for (; commas != 0; commas &= commas - 1) {
        const Char* const stop = q + __builtin_ctzll(commas);
        double x;
        bool whole = quick_number(last + 1, x) == stop;
        // Hidden from the compiler: knowing the lane's end equal to the
        // comma's, it took the lane's as the next start, the chain again.
        // x passes through as well: the lane writes it wherever whole is
        // true, which g++ can no longer see. Set beforehand instead, it cost
        // the loop over int32 data a quarter of its time.
#if !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
        asm("" : "+r"(whole), "+x"(x));
#if !defined(__clang__)
#pragma GCC diagnostic pop
#endif
        if (!whole) [[unlikely]] {
          p = last;
          return k;
        }
        put(k, x);
        last = stop;
        if (++k == most) break;
      }
      if (last == q) break;  // no comma in the block past q's own
      q = last;
    }
    p = q;
#endif
    return k;
  }

  // Whether c is the first unit of a number (what token() says, tested
  // without a branch on the sign, for loops over numbers).
  static bool starts_number(Char c) noexcept { return (code(c) == '-') | (unsigned(code(c) - '0') <= 9); }

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
#if defined(__SSE2__)
  // Sixteen units from p as sixteen bytes, first unit lowest. A UTF-16 unit
  // that is not a byte turns into one that is no digit (0 or 0xFF).
  static __m128i sixteen_units(const Char* p) noexcept {
    if constexpr (sizeof(Char) == 1) {
      return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    } else {
      const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
      const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 8));
      return _mm_packus_epi16(low, high);
    }
  }

  // Bit b: p[b] is a comma, for the sixteen units from p.
  static std::uint64_t comma_bits16(const Char* p) noexcept {
    return unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(sixteen_units(p), _mm_set1_epi8(','))));
  }
  static std::uint64_t comma_bits(const Char* p) noexcept {
    return comma_bits16(p) | comma_bits16(p + 16) << 16 | comma_bits16(p + 32) << 32 | comma_bits16(p + 48) << 48;
  }

  // Which of the sixteen bytes are ASCII digits (bit i: byte i), and how
  // many are, from the first (16: all of them).
  static unsigned digit_bits(__m128i bytes) noexcept {
    const __m128i d = _mm_sub_epi8(bytes, _mm_set1_epi8('0'));
    return unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_min_epu8(d, _mm_set1_epi8(9)), d)));
  }
  static unsigned digit_count(__m128i bytes) noexcept { return unsigned(__builtin_ctz(~digit_bits(bytes))); }
  // The same over thirty-two bytes (32: all of them).
  static unsigned digit_count(__m128i first, __m128i second) noexcept {
    const std::uint64_t bits = digit_bits(first) | std::uint64_t(digit_bits(second)) << 16;
    return unsigned(__builtin_ctzll(~bits));
  }
#endif

  struct Read {
    const Char* after;  // on success; else the unit that could not be read
    ParseResult result;
  };

  // Every number, every fault, a unit at a time near the end of the text.
  [[gnu::noinline]] Read careful_number(const Char* p, double& out) const {
    const Char* const first = p;
    if (p == end_) return {p, foundation::json::kUnexpectedEnd};
    const bool negative = *p == '-';
    if (negative && ++p == end_) return {p, foundation::json::kUnexpectedEnd};
    std::uint64_t m = 0;
    long long count = 0;
    long long power = 0;
    if (*p == '0') {
      ++p;
      if (p != end_ && *p == '.') {
        if (const ParseResult r = fraction(p, m, count, power); r != foundation::json::kParseOk) return {p, r};
      } else {
        digits(p, m, count);
      }
    } else {
      if (!is_digit(*p)) return {p, foundation::json::kDigitExpected};
      digits(p, m, count);
      if (p != end_ && *p == '.') {
        if (const ParseResult r = fraction(p, m, count, power); r != foundation::json::kParseOk) return {p, r};
      }
    }
    if (p != end_ && (*p == 'e' || *p == 'E')) {
      if (++p == end_) return {p, foundation::json::kUnexpectedEnd};
      const bool down = *p == '-';
      if ((*p == '+' || *p == '-') && ++p == end_) return {p, foundation::json::kUnexpectedEnd};
      if (!is_digit(*p)) return {p, foundation::json::kExponentDigitExpected};
      long long e = 0;
      for (; p != end_ && is_digit(*p); ++p)
        if (e < kFarExponent) e = e * 10 + (*p - '0');
      power += down ? -e : e;
    }
    if (!exact_decimal(m, count, power, negative, out)) out = general_double(first, p);
    return {p, foundation::json::kParseOk};
  }

#if defined(__SSE2__)
  // What the quick lane may read from the number's first unit: a sign,
  // sixteen units of integer part, the point, thirty-two of fraction and
  // the unit after them.
  static constexpr std::ptrdiff_t kLaneUnits = 64;
  // The units whose commas comma_numbers finds at once (a number starts
  // within them, and the lane reads on from there).
  static constexpr std::ptrdiff_t kBlockUnits = 64;

  // The common numbers, with no end to look for: an integer part of at
  // most fifteen digits (no leading zero before more digits) and a
  // fraction of at most thirty-one, no exponent. It takes exactly the digits
  // the careful reading takes, so the value is decided alike, and gives
  // where the number ends; anything else is left to the careful reading
  // (null).
  [[gnu::always_inline]] const Char* quick_number(const Char* p, double& out) const {
    const Char* q = p;
    const bool negative = *q == '-';
    q += negative;
    // Most doubles have one integer digit: a branch on that, which the
    // processor predicts, lets the cursor move on before any count of
    // digits is known (a count puts its whole reading between one number
    // and the next).
    std::uint64_t m;
    unsigned n = 1;
    if (is_digit(q[0]) && !is_digit(q[1])) {
      m = std::uint64_t(code(q[0]) - '0');
    } else {
      const __m128i head = sixteen_units(q);
      n = digit_count(head);
      if (n - 1 >= 15 || *q == '0') return nullptr;
      m = run_value(head, n);
    }
    long long count = n, power = 0;
    q += n;
    if (*q == '.') {
      ++q;
      const __m128i first = sixteen_units(q), second = sixteen_units(q + 16);
      const unsigned k = digit_count(first, second);
      if (k - 1 >= 31) return nullptr;
      // The last sixteen units up to the fraction's end, when they are all
      // of this number (the units before the fraction count as zeros),
      // take one step; the digits before them, if any, a run.
      if (k > 16) m = m * kPowersOfTen[k - 16] + run_value(first, k - 16);
      if (std::ptrdiff_t(k) + (q - p) >= 16)
        m = m * kPowersOfTen[k < 16 ? k : 16] + sixteen_digit_value(sixteen_units(q + k - 16), k);
      else  // k < 14 here, which the compiler cannot see: the mask says it
        m = m * kPowersOfTen[k & 15] + run_value(first, k);
      count += k;
      power = -static_cast<long long>(k);
      q += k;
    }
    if ((code(*q) | 0x20) == 'e') return nullptr;
    if (!exact_decimal(m, count, power, negative, out)) out = general_double(p, q);
    return q;
  }

  // The value of the last n (1 to 16) of sixteen digits, in two steps of
  // pairs, fours and eights (each step a multiply-add of 16-bit lanes).
  [[gnu::always_inline]] static std::uint64_t sixteen_digit_value(__m128i bytes, unsigned n) noexcept {
    alignas(16) static constexpr unsigned char kLeading[32] = {
        0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    // Lanes before the last n: kLeading from n on is 0xFF for 16 - n lanes.
    const __m128i before = _mm_loadu_si128(reinterpret_cast<const __m128i*>(kLeading + (n < 16 ? n : 16)));
    const __m128i digits = _mm_andnot_si128(before, _mm_sub_epi8(bytes, _mm_set1_epi8('0')));
    const __m128i zero = _mm_setzero_si128();
    const __m128i tens = _mm_set1_epi32(0x0001000A), hundreds = _mm_set1_epi32(0x00010064),
                  ten_thousands = _mm_set1_epi32(0x00012710);
    const __m128i pairs = _mm_packs_epi32(_mm_madd_epi16(_mm_unpacklo_epi8(digits, zero), tens),
                                          _mm_madd_epi16(_mm_unpackhi_epi8(digits, zero), tens));
    const __m128i fours = _mm_madd_epi16(pairs, hundreds);
    const __m128i eights = _mm_madd_epi16(_mm_packs_epi32(fours, fours), ten_thousands);
    const std::uint64_t both = std::uint64_t(_mm_cvtsi128_si64(eights));
    return (both & 0xFFFFFFFF) * kPowersOfTen[8] + (both >> 32);
  }

  // The value of the first n (1 to 16) digits of bytes.
  [[gnu::always_inline]] static std::uint64_t run_value(__m128i bytes, unsigned n) noexcept {
    const std::uint64_t low = std::uint64_t(_mm_cvtsi128_si64(bytes));
    if (n <= 8) return digit_run_value(low, n);
    const std::uint64_t high = std::uint64_t(_mm_cvtsi128_si64(_mm_unpackhi_epi64(bytes, bytes)));
    return eight_digit_value(low) * kPowersOfTen[n - 8] + digit_run_value(high, n - 8);
  }
#endif

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
  // sixteen units at a time while sixteen are there: most numbers' digit
  // runs end within the first sixteen, so the end is looked for once per
  // run rather than once per digit. Inline, so that m and count stay in
  // registers: as a call they went through memory, a stall per number.
  [[gnu::always_inline]] void digits(const Char*& p, std::uint64_t& m, long long& count) const noexcept {
#if defined(__SSE2__)
    while (end_ - p >= 16) {
      const __m128i bytes = sixteen_units(p);
      const unsigned run = digit_count(bytes);
      if (run != 0) m = m * kPowersOfTen[run] + run_value(bytes, run);  // wraps as the loop below does
      p += run;
      count += run;
      if (run < 16) return;
    }
#endif
    for (; p != end_ && is_digit(*p); ++p, ++count) m = m * 10 + std::uint64_t(*p - '0');
  }

  // p is on the '.'; each fraction digit lowers the power by one.
  [[gnu::always_inline]] ParseResult fraction(const Char*& p, std::uint64_t& m, long long& count, long long& power) const noexcept {
    if (++p == end_) return foundation::json::kUnexpectedEnd;
    if (!is_digit(*p)) return foundation::json::kFractionDigitExpected;
    const Char* const start = p;
    digits(p, m, count);
    power -= p - start;
    return foundation::json::kParseOk;
  }
};

}  // namespace dovra_json::detail
