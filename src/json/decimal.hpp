#pragma once

// The quick way from a number's digits to its double, for the numbers that
// allow it; the parser hands every other one to the general conversion.

#include <bit>
#include <cstdint>

#include <fast_float/fast_float.h>

namespace dovra_json::detail {

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

// The value of the first run (1 to 8) digits of w.
inline std::uint64_t digit_run_value(std::uint64_t w, unsigned run) noexcept {
  // The run becomes the last digits of eight, with zeros before it.
  const unsigned shift = 8 * (8 - run);
  return eight_digit_value((w << shift) | (0x3030303030303030ull & ((std::uint64_t(1) << shift) - 1)));
}

inline constexpr std::uint64_t kPowersOfTen[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000,
                                                 1000000000, 10000000000, 100000000000, 1000000000000,
                                                 10000000000000, 100000000000000, 1000000000000000,
                                                 10000000000000000};

// A double, or that one rounding step could not decide it. Returned in
// registers: a result through a reference kept every number's double in
// memory, in the callers' loops too.
struct Decided {
  double value;
  bool decided;
};

// The rest of exact_decimal below, apart so that its quick part inlines.
[[gnu::noinline]] inline Decided wide_decimal(std::uint64_t m, long long power, bool negative) noexcept {
  if (m == 0) return {negative ? -0.0 : 0.0, true};
  // Beyond that, the product is found in 128 bits from a table of powers of
  // five (the Eisel-Lemire step, from fast_float's header), correctly
  // rounded wherever it can tell; where it cannot (a negative power of two)
  // the general conversion decides.
  const fast_float::adjusted_mantissa am =
      fast_float::compute_float<fast_float::binary_format<double>>(std::int64_t(power), m);
  if (am.power2 < 0) return {0, false};
  double out;
  fast_float::to_float(negative, am, out);
  return {out, true};
}

// The correctly rounded double of (-1)^negative * m * 10^power, when one
// rounding step gets it; false otherwise. count is the number of digits
// taken into m (m is meaningless beyond 19).
inline bool exact_decimal(std::uint64_t m, long long count, long long power, bool negative, double& out) noexcept {
  // Fifteen digits or fewer and a power of ten within 22: m and 10^power
  // are both exact in a double, one correctly rounded operation. The test
  // is on the count of digits, not on m: the 16- and 17-digit fractions of
  // real data fit 53 bits or not at random, and a branch on that went
  // either way; on the count they all take the 128-bit step, and short
  // numbers all take this one.
  static constexpr double kPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                       1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
  if (count <= 15 && power >= -22 && power <= 22) [[likely]] {
    const double x = static_cast<double>(static_cast<std::int64_t>(m));  // a signed conversion is one instruction
    const double v = power == 0 ? x : power < 0 ? x / kPowers[-power] : x * kPowers[power];
    // The sign set as a bit: half of real data is negative, and a branch on
    // it is mispredicted as often.
    out = std::bit_cast<double>(std::bit_cast<std::uint64_t>(v) | std::uint64_t(negative) << 63);
    return true;
  }
  if (count > 19) return false;
  const Decided d = wide_decimal(m, power, negative);
  out = d.value;
  return d.decided;
}

}  // namespace dovra_json::detail
