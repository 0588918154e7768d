#pragma once

// The quick way from a number's digits to its double, for the numbers that
// allow it; the parser hands every other one to the general conversion.

#include <cfloat>
#include <cstdint>
#include <cstring>

namespace dovra_json::detail {

// Whether all eight bytes of w are ASCII digits.
inline bool eight_digits(std::uint64_t w) noexcept {
  return (((w & 0xF0F0F0F0F0F0F0F0ull) | (((w + 0x0606060606060606ull) & 0xF0F0F0F0F0F0F0F0ull) >> 4)) ==
          0x3333333333333333ull);
}

// The value of eight ASCII digits (the first byte in memory is the most
// significant digit), pairs, then fours, then the eight combined in place.
inline std::uint64_t eight_digit_value(std::uint64_t w) noexcept {
  constexpr std::uint64_t kMask = 0x000000FF000000FFull;
  constexpr std::uint64_t kMul1 = 100 + (1000000ull << 32);
  constexpr std::uint64_t kMul2 = 1 + (10000ull << 32);
  w -= 0x3030303030303030ull;
  w = (w * 10) + (w >> 8);
  return (((w & kMask) * kMul1) + (((w >> 16) & kMask) * kMul2)) >> 32;
}

// The correctly rounded double of (-1)^negative * m * 10^power, when one
// rounding step gets it; false otherwise. count is the number of digits
// taken into m (m is meaningless beyond 19).
inline bool exact_decimal(std::uint64_t m, long long count, long long power, bool negative, double& out) noexcept {
  if (count > 19) return false;
  if (m == 0) {
    out = negative ? -0.0 : 0.0;
    return true;
  }
  // m and 10^power both exact in a double: one correctly rounded operation.
  static constexpr double kPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                       1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
  if (m <= (std::uint64_t(1) << 53) && power >= -22 && power <= 22) {
    const double x = static_cast<double>(static_cast<std::int64_t>(m));  // a signed conversion is one instruction
    const double v = power == 0 ? x : power < 0 ? x / kPowers[-power] : x * kPowers[power];
    out = negative ? -v : v;
    return true;
  }
#if defined(__x86_64__) && LDBL_MANT_DIG == 64
  // Shortest texts of doubles mostly carry 17 digits, beyond a double's
  // exact integers but inside the 64-bit significand of x87 extended
  // precision, whose powers of ten are exact up to 10^27. One rounding to 64
  // bits, then one to 53: the second only goes wrong when the first lands
  // exactly halfway between two doubles (low eleven bits 10000000000), and
  // those few go to the general conversion.
  static constexpr long double kLongPowers[] = {
      1e0L,  1e1L,  1e2L,  1e3L,  1e4L,  1e5L,  1e6L,  1e7L,  1e8L,  1e9L,  1e10L, 1e11L, 1e12L, 1e13L,
      1e14L, 1e15L, 1e16L, 1e17L, 1e18L, 1e19L, 1e20L, 1e21L, 1e22L, 1e23L, 1e24L, 1e25L, 1e26L, 1e27L};
  if (power >= -27 && power <= 27) {
    const long double x = static_cast<long double>(m);
    const long double v = power < 0 ? x / kLongPowers[-power] : x * kLongPowers[power];
    std::uint64_t significand;
    std::memcpy(&significand, &v, sizeof significand);
    if ((significand & 0x7FF) == 0x400) return false;
    const double d = static_cast<double>(v);
    out = negative ? -d : d;
    return true;
  }
#endif
  return false;
}

}  // namespace dovra_json::detail
