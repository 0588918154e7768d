#include "number_text.hpp"

#include <type_traits>

namespace foundation::json::number_text {
namespace {

#include "powers_of_ten.inc"

struct Decimal {
  std::uint64_t digits;
  int exponent;
};

// (g * cp) / 2^128, rounded to odd: whole results stay exact, the others
// keep a one below the point, so that comparisons with whole numbers come
// out as for the exact product.
inline std::uint64_t scaled(const std::uint64_t* g, std::uint64_t cp) noexcept {
  const unsigned __int128 low = static_cast<unsigned __int128>(g[1]) * cp;
  const unsigned __int128 high = static_cast<unsigned __int128>(g[0]) * cp;
  const unsigned __int128 middle = high + std::uint64_t(low >> 64);
  return std::uint64_t(middle >> 64) | (std::uint64_t(middle) != 0);
}

// The shortest digits of a finite x >= 0 and their power of ten: the
// shortest decimal in the interval of reals that round to x, the nearest
// to x among the shortest, ties to the even digit. The scaled bounds of
// the interval come from one 128-bit power of ten each, so that every
// choice below is a comparison of whole numbers, made without a branch
// (doubles of 16 and 17 digits come about equally often: a branch on which
// mispredicts half the time).
template <class F>
Decimal shortest_digits(F x) noexcept {
  using Bits = std::conditional_t<sizeof(F) == 8, std::uint64_t, std::uint32_t>;
  constexpr int kFraction = std::numeric_limits<F>::digits - 1;
  constexpr int kLeastExponent = std::numeric_limits<F>::min_exponent - 1 - kFraction;  // of the least subnormal
  const Bits bits = std::bit_cast<Bits>(x);
  const std::uint64_t fraction = bits & ((Bits(1) << kFraction) - 1);
  const int biased = int(bits >> kFraction);
  const std::uint64_t c = biased ? fraction | (std::uint64_t(1) << kFraction) : fraction;
  const int q = biased ? biased - 1 + kLeastExponent : kLeastExponent;
  // Just above a power of two the values below are half as far apart.
  const bool closer_below = fraction == 0 && biased > 1;
  const std::uint64_t odd = c & 1;  // the interval's ends round to x only when c is even
  // 10^k: the unit in which the interval is 1 to 10 wide, so that it holds
  // one or two whole numbers and at most one multiple of ten.
  const std::int64_t k = (std::int64_t(q) * 661971961083 - (closer_below ? 274743187321 : 0)) >> 41;
  const int h = q + int((-k * 913124641741) >> 38) + 1;  // 0 to 7: bounds * 2^h fit 64 bits
  const std::uint64_t* const g = kPowersOfTen128[-k - kLeastPowerOfTen];
  const std::uint64_t cb = c << 2;
  const std::uint64_t vb = scaled(g, cb << h);               // 4 x / 10^k
  const std::uint64_t vbl = scaled(g, (cb - 2 + closer_below) << h) + odd;  // the interval in the same units
  const std::uint64_t vbr = scaled(g, (cb + 2) << h) - odd;
  const std::uint64_t s = vb >> 2;
  // One digit fewer where a multiple of ten is in the interval.
  const std::uint64_t shorter = s / 10;
  const bool low_in = vbl <= 40 * shorter, high_in = 40 * shorter + 40 <= vbr;
  // Else s or s + 1, whichever is in; both: the nearer, ties to even.
  const bool s_in = vbl <= 4 * s, next_in = 4 * s + 4 <= vbr;
  const bool nearer_above = vb + (s & 1) > 4 * s + 2;  // a tie goes to the even one
  const std::uint64_t full = s + (next_in & (!s_in | nearer_above));  // one of them is in
  const bool fewer = low_in != high_in;
  const std::uint64_t pick = std::uint64_t(0) - fewer;  // a mask, not a branch
  return {((shorter + high_in) & pick) | (full & ~pick), int(k) + fewer};
}

// The digits without trailing zeros: a rare loop (one in ten shortest
// doubles ends in zero).
template <class F>
Decimal shortest_decimal(F x) noexcept {
  if (x == 0) return {0, 0};  // no interval around it: its bounds would wrap
  Decimal d = shortest_digits(x);
  while (d.digits % 10 == 0) [[unlikely]] {
    d.digits /= 10;
    ++d.exponent;
  }
  return d;
}

template <class Unit>
inline void copy16(Unit* to, const Unit* from) noexcept {
  std::memcpy(to, from, 16 * sizeof(Unit));
}

// The text of x, in bytes or UTF-16 units, from its shortest digits. Every
// notation is cut from one row of digits: 17 places with leading zeros,
// and eight more zeros before them for "0.000ddd"; the pieces are copied
// in fixed widths, so that only the notation is a branch, not the digit
// count.
template <class Unit, class F>
Unit* layout(Unit* p, Decimal decimal, F x) noexcept {
  const std::uint64_t digits = decimal.digits;
  const int e = decimal.exponent;
  const int n = decimal_digits(digits);
  Unit* const start = p;
  *p = '-';
  p += std::signbit(x);

  alignas(16) Unit row[64];
  const Unit* const s = digit_row(row, digits) - n;  // the first significant digit

  const int point = n + e;  // digits before the decimal point
  // Fixed notation unless scientific is shorter: that is, while at most
  // three zeros (two for a single digit) come between the point and the
  // digits, or at most five (four) end a whole number.
  if (e < 0 && point >= -2 - (n > 1)) [[likely]] {
    // "12.34", or "0.0012" as the row's zeros before the digits show it.
    const int integral = point > 0 ? point : 1;
    const Unit* const from = s + point - integral;
    copy16(p, from);
    p[integral] = '.';
    copy16(p + integral + 1, from + integral);
    std::memcpy(p + integral + 17, from + integral + 16, 4 * sizeof(Unit));  // "0.000" and 17 digits: 20 after the point
    return p + integral + 1 + (n - point);
  }
  if (e >= 0 && e <= 4 + (n > 1)) {
    // Fixed notation spells out a whole number's exact value, which is its
    // shortest digits padded with zeros only where every whole number is
    // exact (float 4032688896 is not 4032689000). Beyond that, rarely.
    constexpr F kExactWholeBound = F(std::uint64_t(1) << std::numeric_limits<F>::digits);
    if (std::fabs(x) >= kExactWholeBound) [[unlikely]] {
      char text[kNumberRoom];
      const char* const end = std::to_chars(text, text + sizeof text, x).ptr;
      Unit* u = start;
      for (const char* c = text; c != end; ++c) *u++ = Unit(*c);
      return u;
    }
    copy16(p, s);
    p[16] = s[16];
    std::memcpy(p + n, row, 8 * sizeof(Unit));  // the row's zeros
    return p + n + e;
  }
  const int exponent = point - 1;
  p[0] = s[0];
  p[1] = '.';
  copy16(p + 2, s + 1);
  Unit* q = p + 1 + (n > 1) + (n - 1);
  q[0] = 'e';
  q[1] = exponent < 0 ? '-' : '+';
  q += 2;
  unsigned magnitude = unsigned(exponent < 0 ? -exponent : exponent);
  if (magnitude >= 100) {
    *q++ = Unit('0' + magnitude / 100);
    magnitude %= 100;
  }
  q[0] = Unit(kDigitPairs[2 * magnitude]);
  q[1] = Unit(kDigitPairs[2 * magnitude + 1]);
  return q + 2;
}

// A whole number written as its digits (written_as_digits) needs no
// search for them; the rest, and -0, take the shortest digits.
inline char16_t* number_units(char16_t* u, double x) noexcept {
  const double magnitude = std::fabs(x);
  const auto whole = std::int64_t(magnitude < kExactWholeBound ? magnitude : 0);
  const bool digits_as_they_are = double(whole) == magnitude && written_as_digits(whole);
  return layout(u, digits_as_they_are ? Decimal{std::uint64_t(whole), 0} : shortest_decimal(magnitude), x);
}

}  // namespace

char* shortest(char* p, double x) noexcept { return layout(p, shortest_decimal(std::fabs(x)), x); }
char* shortest(char* p, float x) noexcept { return layout(p, shortest_decimal(std::fabs(x)), x); }

// The loop is here so that the writer is inline in it, with no call per
// element.
std::size_t number_units(char16_t*& units, const char16_t* last, const double* x, std::size_t n, bool comma) noexcept {
  char16_t* u = units;
  std::size_t i = 0;
  for (; i < n && u <= last && std::isfinite(x[i]); ++i) {
    *u = u',';
    u = number_units(u + (i > 0 || comma), x[i]);
  }
  units = u;
  return i;
}

}  // namespace foundation::json::number_text
