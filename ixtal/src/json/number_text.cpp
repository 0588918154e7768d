#include "number_text.hpp"

// Dragonbox from fmt's header (the build keeps fmt's inline functions out
// of the runtime's exported symbols).
#define FMT_HEADER_ONLY
#include <fmt/format.h>

namespace foundation::json::number_text {
namespace {

// The digits come from fmt's Dragonbox, used from its header: faster than
// std::to_chars (see bench/README.md), and no library to load.
template <class F>
char* shortest(char* p, F x) noexcept {
  const auto decimal = fmt::detail::dragonbox::to_decimal(std::fabs(x));
  const std::uint64_t digits = decimal.significand;
  const int e = decimal.exponent;
  const int n = decimal_digits(digits);
  char* const start = p;
  *p = '-';
  p += std::signbit(x);
  const int point = n + e;  // digits before the decimal point
  const int exponent = point - 1;
  const int scientific = n + (n > 1) + (exponent <= -100 || exponent >= 100 ? 5 : 4);
  const int fixed = e >= 0 ? point : point > 0 ? n + 1 : 2 - e;
  if (fixed <= scientific) {
    if (e >= 0) {
      // Fixed notation spells out a whole number's exact value, which is
      // its shortest digits padded with zeros only where every whole number
      // is exact (float 4032688896 is not 4032689000). Beyond that, rarely.
      constexpr F kExactWholeBound = F(std::uint64_t(1) << std::numeric_limits<F>::digits);
      if (std::fabs(x) >= kExactWholeBound) [[unlikely]] return std::to_chars(start, start + kNumberRoom, x).ptr;
      p = write_digits(p, digits, n);
      std::memset(p, '0', std::size_t(e));
      return p + e;
    }
    if (point > 0) {  // "12.34": each side of the point is one store from the digits' register
      char* const end = p + n + 1;
      const int integral = point - (n > 16);  // digits before the point in the register: at most 15
      const unsigned __int128 text = digit_register(p, digits, n);
      const unsigned __int128 head = (text & ((static_cast<unsigned __int128>(1) << (8 * integral)) - 1)) |
                                     (static_cast<unsigned __int128>('.') << (8 * integral));
      const unsigned __int128 tail = text >> (8 * integral);
      std::memcpy(p, &head, 16);
      std::memcpy(p + integral + 1, &tail, 16);
      return end;
    }
    std::memcpy(p, "0.00000000", 10);  // "0.0012": at most a few zeros, or scientific is shorter
    return write_digits(p + 2 - point, digits, n);
  }
  char* const end = write_digits(p + 1, digits, n);
  p[0] = p[1];
  char* q = end;
  if (n > 1) {
    p[1] = '.';
  } else {
    q = p + 1;
  }
  *q++ = 'e';
  *q++ = exponent < 0 ? '-' : '+';
  unsigned magnitude = unsigned(exponent < 0 ? -exponent : exponent);
  if (magnitude >= 100) {
    *q++ = char('0' + magnitude / 100);
    magnitude %= 100;
  }
  std::memcpy(q, &kDigitPairs[2 * magnitude], 2);
  return q + 2;
}

}  // namespace

char* shortest(char* p, double x) noexcept { return shortest<double>(p, x); }
char* shortest(char* p, float x) noexcept { return shortest<float>(p, x); }

}  // namespace foundation::json::number_text
