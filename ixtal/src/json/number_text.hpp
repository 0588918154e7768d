#pragma once

// Numbers as JSON text: the shortest text that reads back to the same value,
// and the digit writers it is made of. Internal to the runtime's writers.

#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace foundation::json::number_text {

// The largest float as a double. A shortest float text that reads back
// beyond it ("3.4028235e+38") would overflow a reader that narrows with a
// range check.
constexpr double kLargestFloat = 3.4028234663852886e38;

// Two digits at a time: "00" to "99".
constexpr std::array<char, 200> kDigitPairs = [] {
  std::array<char, 200> t{};
  for (int i = 0; i < 100; ++i) {
    t[2 * i] = char('0' + i / 10);
    t[2 * i + 1] = char('0' + i % 10);
  }
  return t;
}();

constexpr std::array<std::uint64_t, 20> kPowersOfTen = [] {
  std::array<std::uint64_t, 20> t{};
  t[0] = 1;
  for (std::size_t i = 1; i < t.size(); ++i) t[i] = t[i - 1] * 10;
  return t;
}();

// The number of decimal digits of v; zero has one. (v | 1 has as many
// digits as v: no power of ten above 1 is odd.)
inline int decimal_digits(std::uint64_t v) noexcept {
  v |= 1;
  const int t = (std::bit_width(v) * 1233) >> 12;  // log10 from log2, low by at most one
  return t - (v < kPowersOfTen[t]) + 1;
}

// The eight decimal digits of v (below 10^8, with leading zeros) as eight
// characters in one register, the first in the lowest byte: split into
// 4-digit lanes, then 2-digit lanes, then digits, with no loop.
inline std::uint64_t eight_digits(std::uint32_t v) noexcept {
  std::uint64_t lanes = (v / 10000) | (std::uint64_t(v % 10000) << 32);
  const std::uint64_t hundreds = ((lanes * 10486) >> 20) & 0x0000007F0000007FULL;  // x / 100 per lane
  lanes = hundreds | ((lanes - 100 * hundreds) << 16);
  const std::uint64_t tens = ((lanes * 103) >> 10) & 0x000F000F000F000FULL;  // x / 10 per lane
  lanes = tens | ((lanes - 10 * tens) << 8);
  return lanes | 0x3030303030303030ULL;
}

// The digits of v in one register, the first in the lowest byte, and their
// count: without a branch on its length (a loop over digit pairs
// mispredicts on numbers of mixed lengths).
inline unsigned __int128 decimal_register_32(std::uint32_t v, int& digits) noexcept {
  digits = decimal_digits(v);
  const std::uint64_t high = v / 100000000;
  const std::uint64_t high_digits = (high / 10) | ((high % 10) << 8);
  const unsigned __int128 text =
      (static_cast<unsigned __int128>(eight_digits(v % 100000000)) << 16) | high_digits | 0x3030;
  return text >> (8 * (10 - digits));
}

// Writes v in decimal and returns the end. Stores 16 bytes at p whatever
// the length.
inline char* write_decimal_32(char* p, std::uint32_t v) noexcept {
  int digits;
  const unsigned __int128 text = decimal_register_32(v, digits);
  std::memcpy(p, &text, 16);
  return p + digits;
}

// Stores the 16 bytes of text as 16 UTF-16 units at u.
inline void store_widened(char16_t* u, unsigned __int128 text) noexcept {
#if defined(__SSE2__)
  const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(&text));
  const __m128i zero = _mm_setzero_si128();
  _mm_storeu_si128(reinterpret_cast<__m128i*>(u), _mm_unpacklo_epi8(bytes, zero));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(u + 8), _mm_unpackhi_epi8(bytes, zero));
#else
  for (int i = 0; i < 16; ++i) u[i] = char16_t(static_cast<std::uint8_t>(text >> (8 * i)));
#endif
}

// The longest number text: "-2.2250738585072014e-308".
constexpr std::size_t kLongestNumberText = 24;

// Room the writer makes before writing one number: its longest text and
// what the digit writers store past its end (the shortest writer's copies
// of fixed width reach 38 places in).
constexpr std::size_t kNumberRoom = 48;

// The count decimal digits of d (below 10^17) without a loop (a loop over
// digit pairs is a chain of dependent divisions): sixteen are made in two
// registers at once and the leading zeros shifted out. A 17th digit is
// written at p first and p moves past it, without a branch (shortest
// doubles have 16 or 17 digits about equally often); with fewer, that byte
// is left for the caller to overwrite. Returns the other digits, the first
// in the lowest byte.
inline unsigned __int128 digit_register(char*& p, std::uint64_t d, int count) noexcept {
  constexpr std::uint64_t k1e8 = 100000000, k1e16 = k1e8 * k1e8;
  const std::uint64_t top = d / k1e16;
  *p = char('0' + top);
  d -= top * k1e16;
  const bool seventeen = count > 16;
  p += seventeen;
  count -= seventeen;
  const unsigned __int128 text =
      (static_cast<unsigned __int128>(eight_digits(std::uint32_t(d % k1e8))) << 64) | eight_digits(std::uint32_t(d / k1e8));
  return text >> (8 * (16 - count));
}

// Writes the count digits of d at p and returns the end; stores 17 bytes.
inline char* write_digits(char* p, std::uint64_t d, int count) noexcept {
  char* const end = p + count;
  const unsigned __int128 text = digit_register(p, d, count);
  std::memcpy(p, &text, 16);
  return end;
}

// The 17 decimal places of d (below 10^17, with leading zeros) after eight
// zeros, at row, in bytes or UTF-16 units; returns the end of the places.
// Stores 25 units. The two runs of eight places below the first are made
// side by side in one register: x / 10^4, then each half / 10^3, 10^2,
// 10^1, 10^0 by multiplying 16-bit lanes (4x times 8389 / 2^16 / 2^9 is
// x / 1000 for every x below 10^4, and so on), then minus ten times the
// lane before. The lanes are UTF-16 digits as they stand.
template <class Unit>
inline Unit* digit_row(Unit* row, std::uint64_t d) noexcept {
  constexpr std::uint64_t k1e8 = 100000000;
  const std::uint64_t high = d / k1e8;
  const std::uint32_t top = std::uint32_t(high / k1e8);
  const std::uint32_t first = std::uint32_t(high - top * k1e8), second = std::uint32_t(d - high * k1e8);
#if defined(__SSE2__)
  const __m128i runs = _mm_set_epi64x(second, first);
  const __m128i upper = _mm_srli_epi64(_mm_mul_epu32(runs, _mm_set1_epi32(int(0xD1B71759))), 45);  // / 10^4
  const __m128i lower = _mm_sub_epi32(runs, _mm_mul_epu32(upper, _mm_set1_epi32(10000)));
  // 16-bit lanes: 4 x upper, 4 x lower of the first run, the same of the second
  const __m128i fours = _mm_slli_epi16(_mm_shuffle_epi32(_mm_or_si128(upper, _mm_slli_epi64(lower, 16)), 0xD8), 2);
  const __m128i pairs = _mm_unpacklo_epi16(fours, fours);
  const __m128i divisors = _mm_set_epi16(-32768, 13108, 5243, 8389, -32768, 13108, 5243, 8389);
  const __m128i shifts = _mm_set_epi16(-32768, 8192, 2048, 128, -32768, 8192, 2048, 128);
  const __m128i ten = _mm_set1_epi16(10);
  const auto places = [&](__m128i x) {
    const __m128i prefixes = _mm_mulhi_epu16(_mm_mulhi_epu16(x, divisors), shifts);
    return _mm_sub_epi16(prefixes, _mm_slli_epi64(_mm_mullo_epi16(prefixes, ten), 16));
  };
  const __m128i head = places(_mm_unpacklo_epi32(pairs, pairs)), tail = places(_mm_unpackhi_epi32(pairs, pairs));
  if constexpr (sizeof(Unit) == 1) {
    std::memset(row, '0', 8);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(row + 9), _mm_add_epi8(_mm_packus_epi16(head, tail), _mm_set1_epi8('0')));
  } else {
    const __m128i zero = _mm_set1_epi16('0');
    _mm_storeu_si128(reinterpret_cast<__m128i*>(row), zero);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(row + 9), _mm_add_epi16(head, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(row + 17), _mm_add_epi16(tail, zero));
  }
#else
  const std::uint64_t texts[2] = {eight_digits(first), eight_digits(second)};
  for (int i = 0; i < 8; ++i) row[i] = Unit('0');
  for (int i = 0; i < 16; ++i) row[9 + i] = Unit(reinterpret_cast<const char*>(texts)[i]);
#endif
  row[8] = Unit('0' + top);
  return row + 25;
}

// Writes x in the shortest text that reads back to it, exactly as
// std::to_chars(x) does: the shortest digits (the nearest to x among
// them, ties to even), in fixed notation unless scientific is shorter.
// Stores up to kNumberRoom bytes at p. Finite x only.
char* shortest(char* p, double x) noexcept;
char* shortest(char* p, float x) noexcept;

// Writes x[0], x[1], ... in UTF-16 at u, each as the shortest text, or a
// whole number below 2^53 from its digits as whole_number does, a comma
// before each but the first (before the first too when comma is set);
// goes on while u is at most last and stops before an element that is not
// finite. Returns the elements written and moves u past them. Stores up to
// kNumberRoom + 1 units past last.
std::size_t number_units(char16_t*& u, const char16_t* last, const double* x, std::size_t n, bool comma) noexcept;

// Below 2^53 every whole number is a double, so its digits are its
// shortest digits.
constexpr double kExactWholeBound = 9007199254740992.0;

// Whether such a whole number is written as its digits: with five trailing
// zeros or more (zero included) scientific notation (1e+05) is as short,
// and the shortest writer decides.
inline bool written_as_digits(std::int64_t whole) noexcept { return whole % 100000 != 0; }

// Writes d at p when it is a whole number below 2^53 that is written as
// its digits; else returns null. Zero takes the general path: -0 keeps its
// sign.
inline char* whole_number(char* p, double d) noexcept {
  if (!(d > -kExactWholeBound && d < kExactWholeBound)) return nullptr;
  const auto i = static_cast<std::int64_t>(d);
  if (static_cast<double>(i) != d || !written_as_digits(i)) return nullptr;
  *p = '-';
  const std::uint64_t magnitude = i < 0 ? std::uint64_t(-i) : std::uint64_t(i);
  p += i < 0;
  // Most whole numbers fit 32 bits, where dividing is cheaper.
  if (magnitude <= 0xFFFFFFFF) [[likely]] return write_decimal_32(p, std::uint32_t(magnitude));
  return write_digits(p, magnitude, decimal_digits(magnitude));
}

// whole_number for an integer of up to 32 bits, without the double: it is
// exact and below 2^53, so only the test for trailing zeros remains.
template <class I>
char* small_whole_number(char* p, I v) noexcept {
  const std::int64_t i = v;
  if (!written_as_digits(i)) return nullptr;
  *p = '-';
  p += i < 0;
  return write_decimal_32(p, std::uint32_t(i < 0 ? -i : i));
}

}  // namespace foundation::json::number_text
