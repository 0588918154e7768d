#include "foundation/json/serializer.hpp"

#include "ixtal/text.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string_view>
#include <type_traits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

// Dragonbox from fmt's header (the build keeps fmt's inline functions out
// of the runtime's exported symbols).
#define FMT_HEADER_ONLY
#include <fmt/format.h>

namespace foundation::json {

namespace {

// For each byte: 0 when it is written as it is, else the letter after the
// backslash ('u' for the \u00XX form).
constexpr std::array<char, 256> kEscapes = [] {
  std::array<char, 256> t{};
  for (int c = 0; c < 0x20; ++c) t[c] = 'u';
  t['\b'] = 'b';
  t['\f'] = 'f';
  t['\n'] = 'n';
  t['\r'] = 'r';
  t['\t'] = 't';
  t['"'] = '"';
  t['\\'] = '\\';
  return t;
}();

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

// Writes v in decimal in two registers of digits, without a branch on its
// length (a loop over digit pairs mispredicts on numbers of mixed lengths),
// and returns the end. Stores 16 bytes at p whatever the length.
// The digits of v, the first in the lowest byte, and their count.
inline unsigned __int128 decimal_register_32(std::uint32_t v, int& digits) noexcept {
  digits = decimal_digits(v);
  const std::uint64_t high = v / 100000000;
  const std::uint64_t high_digits = (high / 10) | ((high % 10) << 8);
  const unsigned __int128 text =
      (static_cast<unsigned __int128>(eight_digits(v % 100000000)) << 16) | high_digits | 0x3030;
  return text >> (8 * (10 - digits));
}

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
// what the digit writers store past its end (16-byte stores up to 18
// bytes in).
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

// Writes x in the shortest text that reads back to it, exactly as
// std::to_chars(x) does: the shortest digits (the nearest to x among
// them, ties to even), in fixed notation unless scientific is shorter.
// Stores up to kNumberRoom bytes at p.
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

// Text goes through a chunk of its own, passed on when full: a value then
// costs a few stores instead of a string append each. The chunk goes either
// to a string as it is or, converted to UTF-16, straight to its final place
// (ASCII, the usual JSON, widened while the chunk is still in cache).
class Writer {
 public:
  Writer(std::string& out, bool pretty) : Writer(pretty) { text_ = &out; }
  Writer(char16_t* out, bool pretty) : Writer(pretty) { units_ = out; }
  // Room for exactly `room` units: a writer whose room was reckoned
  // without the tree stops the process before it would write past it.
  Writer(char16_t* out, std::size_t room) : Writer(false) {
    units_ = out;
    units_end_ = out + room;
  }

  // The end of the UTF-16 output.
  char16_t* units() const noexcept { return units_; }

  // Passes the chunk on; the last flush also converts a sequence the text
  // leaves incomplete (to U+FFFD, as a conversion of the whole text would).
  void flush(bool last = false) {
    const std::size_t n = std::size_t(p_ - chunk_.get());
    if (text_) {
      text_->append(chunk_.get(), n);
      p_ = chunk_.get();
      return;
    }
    const std::size_t held = last ? 0 : fl::i18n::utf8_incomplete_tail(chunk_.get(), n);
    // Never more units than bytes; near the end of the room, where the bytes
    // (three for each U+FFFD, say) may outnumber the room left, the units
    // themselves are counted.
    if (units_end_ && std::size_t(units_end_ - units_) < n - held) [[unlikely]] {
      if (std::size_t(units_end_ - units_) < fl::i18n::codecvt_string_to_ustring("UTF-8").measure(chunk_.get(), n - held))
        std::abort();
    }
    units_ += fl::i18n::codecvt_string_to_ustring("UTF-8").convert_bounded(chunk_.get(), n - held, units_);
    std::memmove(chunk_.get(), p_ - held, held);
    p_ = chunk_.get() + held;
  }

 private:
  // Big enough that passing it on is rare, small enough to stay in cache.
  static constexpr std::size_t kChunk = 1 << 16;

  explicit Writer(bool pretty)
      : pretty_(pretty), chunk_(new char[kChunk]), p_(chunk_.get()), end_(chunk_.get() + kChunk) {}

 public:
  void value(const Value& v, std::size_t level) {
    switch (v.index()) {
      // Undefined has no text of its own; the encoder never hands one over,
      // and null is the nearest thing a reader would understand.
      case Value::kUndefined:
      case Value::kNull: put("null", 4); break;
      case Value::kBool: v.as_bool() ? put("true", 4) : put("false", 5); break;
      case Value::kDouble: number(v.as_double()); break;
      case Value::kFloat: number(v.as_float()); break;
      case Value::kString: string(v.as_string()); break;
      case Value::kArray: array(v.as_array(), level); break;
      case Value::kObject: object(v.as_object(), level); break;
      default: std::abort();
    }
  }

  // Room for n more bytes at p_; n is well below kChunk (a flush may keep
  // three bytes).
  char* room(std::size_t n) {
    if (std::size_t(end_ - p_) < n) [[unlikely]] flush();
    return p_;
  }

  void put(char c) {
    *room(1) = c;
    ++p_;
  }

  void put(const char* s, std::size_t n) {
    while (std::size_t(end_ - p_) < n) [[unlikely]] {  // a long text passes through in pieces
      const std::size_t part = std::size_t(end_ - p_);
      std::memcpy(p_, s, part);
      p_ += part;
      s += part;
      n -= part;
      flush();
    }
    std::memcpy(p_, s, n);
    p_ += n;
  }

  // What TextStream::numbers writes: the loop of a compact array for
  // elements of one type.
  template <class T>
  std::size_t numbers(const T* x, std::size_t n, bool comma) {
    std::size_t i = 0;
    if constexpr (std::is_integral_v<T> && sizeof(T) <= 4) i = units_directly(x, n, comma);
    char* p = p_;
    for (; i < n; ++i) {
      if (std::size_t(end_ - p) < kNumberRoom + 1) [[unlikely]] {
        p_ = p;
        flush();
        p = p_;
      }
      if constexpr (std::is_floating_point_v<T>)
        if (!std::isfinite(x[i])) [[unlikely]] {
          p_ = p;
          return i;
        }
      *p = ',';
      p += i > 0 || comma;
      if constexpr (std::is_same_v<T, float>) {
        p_ = p;
        number(x[i]);  // as the tree's float alternative
        p = p_;
        continue;
      } else {
        char* q;
        if constexpr (std::is_integral_v<T> && sizeof(T) <= 4) {
          q = small_whole_number(p, x[i]);
        } else {
          q = whole_number(p, static_cast<double>(x[i]));
        }
        if (q) [[likely]] {
          p = q;
          continue;
        }
        p_ = p;
        general_number(static_cast<double>(x[i]));
        p = p_;
      }
    }
    p_ = p;
    return n;
  }

 private:
  void array(const Array& a, std::size_t level) {
    put('[');
    const Value* const first = a.data();
    const Value* const last = first + a.size();
    if (pretty_ && first != last && std::all_of(first, last, is_scalar)) {
      // A row of numbers reads best on one line: a matrix then looks like
      // one, and a size stays "[2, 3]".
      for (const Value* e = first; e != last; ++e) {
        if (e != first) put(", ", 2);
        if (e->index() == Value::kObject) {
          const auto& [name, member] = *e->as_object().begin();
          put('{');
          string(name);
          put(": ", 2);
          value(member, level + 1);
          put('}');
        } else {
          value(*e, level + 1);
        }
      }
    } else if (pretty_) {
      for (const Value* e = first; e != last; ++e) {
        if (e != first) put(',');
        newline(level + 1);
        value(*e, level + 1);
      }
      if (first != last) newline(level);
    } else {
      // Numeric arrays are the long ones: their elements skip the switch,
      // and the cursor stays in a register while whole numbers are written.
      char* p = p_;
      for (const Value* e = first; e != last; ++e) {
        if (std::size_t(end_ - p) < kNumberRoom + 1) [[unlikely]] {
          p_ = p;
          flush();
          p = p_;
        }
        if (e != first) *p++ = ',';
        if (e->index() == Value::kDouble) [[likely]] {
          if (char* const q = whole_number(p, e->as_double())) [[likely]] {
            p = q;
            continue;
          }
          p_ = p;
          general_number(e->as_double());
        } else {
          p_ = p;
          value(*e, level + 1);
        }
        p = p_;
      }
      p_ = p;
    }
    put(']');
  }

  // What pretty text keeps on one line inside an array: anything but a
  // container, and the one-member object that stands for a special number
  // ({"tndata": "NaN"}).
  static bool is_scalar(const Value& v) noexcept {
    switch (v.index()) {
      case Value::kArray: return false;
      case Value::kObject: {
        const Object& o = v.as_object();
        return o.size() == 1 && o.begin()->second.index() == Value::kString;
      }
      default: return true;
    }
  }

  void object(const Object& o, std::size_t level) {
    put('{');
    bool first = true;
    for (const auto& [name, member] : o) {
      if (!first) put(',');
      first = false;
      newline(level + 1);
      string(name);
      pretty_ ? put(": ", 2) : put(':');
      value(member, level + 1);
    }
    if (!o.empty()) newline(level);
    put('}');
  }

  void newline(std::size_t level) {
    if (!pretty_) return;
    put('\n');
    for (std::size_t blanks = 2 * level; blanks > 0;) {
      const std::size_t n = std::min(blanks, std::size_t(end_ - room(1)));
      std::memset(p_, ' ', n);
      p_ += n;
      blanks -= n;
    }
  }

  static void check_finite(double d) {
    if (!std::isfinite(d)) throw std::domain_error("JSON text has no form for NaN or infinity");
  }

 public:
  // Numeric arrays are mostly whole numbers, and the general shortest
  // conversion costs many times an integer one. A whole number below 2^53
  // (exact, so its digits are its shortest digits) is written as digits
  // unless scientific notation is shorter, which takes at least five
  // trailing zeros (1e+05, 1.2e+07): those, zero (-0 keeps its sign) and
  // everything else take the general path.
  void number(double d) {
    if (char* const end = whole_number(room(kNumberRoom), d)) [[likely]] {
      p_ = end;
      return;
    }
    general_number(d);
  }

  // Writes d at p when it takes the whole-number path; else returns null.
  static char* whole_number(char* p, double d) noexcept {
    constexpr double kExactWholeBound = 9007199254740992.0;  // 2^53: every whole number below is a double
    if (!(d > -kExactWholeBound && d < kExactWholeBound)) return nullptr;
    const auto i = static_cast<std::int64_t>(d);
    if (static_cast<double>(i) != d || i % 100000 == 0) return nullptr;
    *p = '-';
    const std::uint64_t magnitude = i < 0 ? std::uint64_t(-i) : std::uint64_t(i);
    p += i < 0;
    // Most whole numbers fit 32 bits, where dividing is cheaper.
    if (magnitude <= 0xFFFFFFFF) [[likely]] return write_decimal_32(p, std::uint32_t(magnitude));
    return write_digits(p, magnitude, decimal_digits(magnitude));
  }

  // Integers of up to 32 bits go straight to the UTF-16 output of a writer
  // that knows its room, without the chunk and the conversion after it (the
  // digits are widened in their register). Returns the elements written;
  // the chunk's loop writes the rest.
  template <class T>
  std::size_t units_directly(const T* x, std::size_t n, bool comma) {
    if (!units_end_) return 0;
    if (p_ != chunk_.get()) flush();
    if (p_ != chunk_.get()) return 0;  // the chunk holds the start of a UTF-8 sequence
    // A number takes at most 12 units; the widened digits are 16 stored.
    constexpr std::size_t kUnitsRoom = 2 + 16;
    char16_t* u = units_;
    std::size_t i = 0;
    for (; i < n && std::size_t(units_end_ - u) >= kUnitsRoom + kNumberRoom; ++i) {
      *u = u',';
      u += i > 0 || comma;
      const std::int64_t v = x[i];
      if (v % 100000 == 0) [[unlikely]] {  // scientific may be shorter: the general path, as whole_number
        char text[kNumberRoom];
        const char* const end = shortest(text, static_cast<double>(v));
        for (const char* c = text; c != end; ++c) *u++ = char16_t(*c);
        continue;
      }
      *u = u'-';
      u += v < 0;
      int digits;
      store_widened(u, decimal_register_32(std::uint32_t(v < 0 ? -v : v), digits));
      u += digits;
    }
    units_ = u;
    return i;
  }

  // What string() writes for the UTF-8 of the host text s, written from s
  // straight to the UTF-16 output of a writer that knows its room: the two
  // conversions of a round trip give back every unit except an unpaired
  // surrogate, which becomes U+FFFD.
  void string(std::u16string_view s, bool comma) {
    constexpr std::size_t kEscapedUnits = 6;  // \u00XX
    if (units_end_ && p_ != chunk_.get()) flush();
    if (!units_end_ || p_ != chunk_.get() || std::size_t(units_end_ - units_) / kEscapedUnits < s.size() + 2) {
      std::string utf8;
      fl::i18n::codecvt_ustring_to_string("UTF-8").convert(s.data(), s.size(), utf8);
      if (comma) put(',');
      return string(std::string_view(utf8));
    }
    char16_t* u = units_;
    *u = u',';
    u += comma;
    *u++ = u'"';
    for (std::size_t i = 0; i < s.size(); ++i) {
      const char16_t c = s[i];
      if (c >= 0x80) [[unlikely]] {
        if (c < 0xD800 || c > 0xDFFF) {
          *u++ = c;
        } else if (c <= 0xDBFF && i + 1 < s.size() && s[i + 1] >= 0xDC00 && s[i + 1] <= 0xDFFF) {
          *u++ = c;
          *u++ = s[++i];
        } else {
          *u++ = char16_t(0xFFFD);
        }
        continue;
      }
      const char e = kEscapes[c];
      if (!e) [[likely]] {
        *u++ = c;
        continue;
      }
      *u++ = u'\\';
      *u++ = char16_t(e);
      if (e == 'u') {
        static constexpr char16_t kHex[] = u"0123456789abcdef";
        *u++ = u'0';
        *u++ = u'0';
        *u++ = kHex[c >> 4];
        *u++ = kHex[c & 0xF];
      }
    }
    *u++ = u'"';
    units_ = u;
  }

  // Text that needs no escaping. Between texts written straight to the
  // output it goes there too, so that a comma does not pass through the
  // chunk and its conversion on its own.
  void ascii(const char* s, std::size_t n) {
    if (units_end_ && p_ == chunk_.get() && std::size_t(units_end_ - units_) >= n) {
      for (std::size_t i = 0; i < n; ++i) units_[i] = char16_t(s[i]);
      units_ += n;
      return;
    }
    put(s, n);
  }

  // whole_number for an integer of up to 32 bits, without the double: it
  // is exact and below 2^53, so only the test for trailing zeros remains.
  template <class I>
  static char* small_whole_number(char* p, I v) noexcept {
    const std::int64_t i = v;
    if (i % 100000 == 0) return nullptr;
    *p = '-';
    p += i < 0;
    return write_decimal_32(p, std::uint32_t(i < 0 ? -i : i));
  }

  void general_number(double d) {
    check_finite(d);
    p_ = shortest(room(kNumberRoom), d);
  }

  // The float's own shortest text is kept only when a reader that takes it
  // as a double and narrows gets the same float back; otherwise the exact
  // value is written as a double.
  void number(float f) {
    check_finite(f);
    char* const p = room(kNumberRoom);
    char* const end = shortest(p, f);
    double back = 0;
    std::from_chars(p, end, back);
    if (std::fabs(back) <= kLargestFloat && static_cast<float>(back) == f) [[likely]] {
      p_ = end;
      return;
    }
    general_number(static_cast<double>(f));
  }

  void string(std::string_view s) {
    put('"');
    const char* run = s.data();
    const char* const end = run + s.size();
    for (const char* p = run; p != end; ++p) {
      const char e = kEscapes[static_cast<unsigned char>(*p)];
      if (!e) continue;
      put(run, std::size_t(p - run));
      run = p + 1;
      if (e == 'u') {
        static constexpr char kHex[] = "0123456789abcdef";
        const unsigned char c = static_cast<unsigned char>(*p);
        const char u[] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 0xF]};
        put(u, sizeof u);
      } else {
        const char b[] = {'\\', e};
        put(b, 2);
      }
    }
    put(run, std::size_t(end - run));
    put('"');
  }

 private:
  std::string* text_ = nullptr;
  char16_t* units_ = nullptr;
  char16_t* units_end_ = nullptr;
  const bool pretty_;
  const std::unique_ptr<char[]> chunk_;
  char* p_;
  char* const end_;
};

// Bytes of s once escaped, without the quotes.
std::size_t escaped_size(const std::string& s) noexcept {
  std::size_t n = s.size();
  for (const char c : s) {
    const char e = kEscapes[static_cast<unsigned char>(c)];
    n += e ? (e == 'u' ? 5 : 1) : 0;
  }
  return n;
}

// Room for the text of v at the given level, never short: the text is
// written into it without regrowing. Room reserved and not written is
// never touched.
std::size_t room_for(const Value& v, std::size_t level, bool pretty) noexcept {
  switch (v.index()) {
    case Value::kString: return escaped_size(v.as_string()) + 2;
    case Value::kArray: {
      const std::size_t per_element = 1 + (pretty ? 1 + 2 * (level + 1) : 0);
      std::size_t n = 2 + (pretty ? 1 + 2 * level : 0);
      for (const Value& e : v.as_array())
        n += per_element + (e.index() == Value::kDouble ? kLongestNumberText : room_for(e, level + 1, pretty));
      return n;
    }
    case Value::kObject: {
      const std::size_t per_member = 4 + (pretty ? 2 + 2 * (level + 1) : 0);
      std::size_t n = 2 + (pretty ? 1 + 2 * level : 0);
      for (const auto& [name, member] : v.as_object())
        n += per_member + escaped_size(name) + room_for(member, level + 1, pretty);
      return n;
    }
    default: return kLongestNumberText;
  }
}

}  // namespace

void Serializer::write(std::string& out, const Value& v) const {
  const std::size_t mark = out.size();
  out.reserve(mark + room_for(v, 0, pretty_));
  try {
    Writer writer(out, pretty_);
    writer.value(v, 0);
    writer.flush(true);
  } catch (...) {
    out.resize(mark);  // a failed write leaves nothing behind
    throw;
  }
}

std::size_t Serializer::room(const Value& v) const noexcept { return room_for(v, 0, pretty_); }

std::size_t Serializer::write(char16_t* out, const Value& v) const {
  Writer writer(out, pretty_);
  writer.value(v, 0);
  writer.flush(true);
  return std::size_t(writer.units() - out);
}

class TextStream::Impl : public Writer {
 public:
  using Writer::Writer;
};

TextStream::TextStream(char16_t* out, std::size_t room) : impl_(std::make_unique<Impl>(out, room)), out_(out) {}
TextStream::~TextStream() = default;
void TextStream::raw(std::string_view ascii) { impl_->ascii(ascii.data(), ascii.size()); }
void TextStream::string(std::string_view utf8, bool comma) {
  if (comma) impl_->ascii(",", 1);
  impl_->string(utf8);
}
void TextStream::string(std::u16string_view text, bool comma) { impl_->string(text, comma); }
void TextStream::boolean(bool b, bool comma) {
  if (comma) impl_->put(',');
  b ? impl_->put("true", 4) : impl_->put("false", 5);
}
void TextStream::number(double d, bool comma) {
  if (comma) impl_->put(',');
  impl_->number(d);
}
void TextStream::number(float f) { impl_->number(f); }
template <class T>
std::size_t TextStream::numbers(const T* x, std::size_t n, bool comma) {
  return impl_->numbers(x, n, comma);
}
std::size_t TextStream::finish() {
  impl_->flush(true);
  return std::size_t(impl_->units() - out_);
}

template IXTAL_API std::size_t TextStream::numbers(const double*, std::size_t, bool);
template IXTAL_API std::size_t TextStream::numbers(const float*, std::size_t, bool);
template IXTAL_API std::size_t TextStream::numbers(const std::int8_t*, std::size_t, bool);
template IXTAL_API std::size_t TextStream::numbers(const std::uint8_t*, std::size_t, bool);
template IXTAL_API std::size_t TextStream::numbers(const std::int16_t*, std::size_t, bool);
template IXTAL_API std::size_t TextStream::numbers(const std::uint16_t*, std::size_t, bool);
template IXTAL_API std::size_t TextStream::numbers(const std::int32_t*, std::size_t, bool);
template IXTAL_API std::size_t TextStream::numbers(const std::uint32_t*, std::size_t, bool);
template IXTAL_API std::size_t TextStream::numbers(const std::int64_t*, std::size_t, bool);
template IXTAL_API std::size_t TextStream::numbers(const std::uint64_t*, std::size_t, bool);

void Serializer::write(std::ostream& os, const Value& v) const {
  const std::string text = to_string(v);
  os.write(text.data(), std::streamsize(text.size()));
}

}  // namespace foundation::json
