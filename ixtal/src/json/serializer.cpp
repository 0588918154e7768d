#include "foundation/json/serializer.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <ostream>
#include <stdexcept>

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

constexpr std::array<std::uint64_t, 17> kPowersOfTen = [] {
  std::array<std::uint64_t, 17> t{};
  t[0] = 1;
  for (std::size_t i = 1; i < t.size(); ++i) t[i] = t[i - 1] * 10;
  return t;
}();

inline int decimal_digits(std::uint64_t v) noexcept {
  const int t = (std::bit_width(v | 1) * 1233) >> 12;  // log10 from log2, low by at most one
  return t - (v < kPowersOfTen[t]) + 1;
}

// Writes v (below 10^16) in decimal and returns the end.
template <class U>
inline char* write_decimal(char* p, U v) noexcept {
  char* const end = p + decimal_digits(v);
  char* q = end;
  while (v >= 100) {
    const auto pair = std::size_t(v % 100);
    v /= 100;
    q -= 2;
    std::memcpy(q, &kDigitPairs[2 * pair], 2);
  }
  if (v >= 10) {
    std::memcpy(q - 2, &kDigitPairs[2 * v], 2);
  } else {
    q[-1] = char('0' + v);
  }
  return end;
}

// Writes v in decimal in two registers of digits, without a branch on its
// length (a loop over digit pairs mispredicts on numbers of mixed lengths),
// and returns the end. Stores 16 bytes at p whatever the length.
inline char* write_decimal_32(char* p, std::uint32_t v) noexcept {
  const int digits = decimal_digits(v);
  const std::uint64_t high = v / 100000000, low = v % 100000000;
  // Eight digits of low, one per byte, the first digit in the lowest byte:
  // split into 4-digit lanes, then 2-digit lanes, then digits.
  std::uint64_t lanes = (low / 10000) | ((low % 10000) << 32);
  std::uint64_t hundreds = ((lanes * 10486) >> 20) & 0x0000007F0000007FULL;  // x / 100 per lane
  lanes = hundreds | ((lanes - 100 * hundreds) << 16);
  std::uint64_t tens = ((lanes * 103) >> 10) & 0x000F000F000F000FULL;  // x / 10 per lane
  lanes = tens | ((lanes - 10 * tens) << 8);
  const std::uint64_t high_digits = (high / 10) | ((high % 10) << 8);
  unsigned __int128 text = (static_cast<unsigned __int128>(lanes) << 16) | high_digits;
  text |= (static_cast<unsigned __int128>(0x3030303030303030ULL) << 16) | 0x3030;
  text >>= 8 * (10 - digits);
  std::memcpy(p, &text, 16);
  return p + digits;
}

// Text goes through a chunk of its own, appended to the output when full:
// a value then costs a few stores instead of a string append each.
class Writer {
 public:
  Writer(std::string& out, bool pretty)
      : out_(out), pretty_(pretty), chunk_(new char[kChunk]), p_(chunk_.get()), end_(chunk_.get() + kChunk) {}

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

  void flush() {
    out_.append(chunk_.get(), std::size_t(p_ - chunk_.get()));
    p_ = chunk_.get();
  }

 private:
  static constexpr std::size_t kChunk = 1 << 16;
  static constexpr std::size_t kLongestNumber = 32;

  // Room for n more bytes at p_; n is at most kChunk.
  char* room(std::size_t n) {
    if (std::size_t(end_ - p_) < n) [[unlikely]] flush();
    return p_;
  }

  void put(char c) {
    *room(1) = c;
    ++p_;
  }

  void put(const char* s, std::size_t n) {
    if (std::size_t(end_ - p_) < n) {
      flush();
      if (n > kChunk) {
        out_.append(s, n);
        return;
      }
    }
    std::memcpy(p_, s, n);
    p_ += n;
  }

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
        if (std::size_t(end_ - p) < kLongestNumber + 1) [[unlikely]] {
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

  // Numeric arrays are mostly whole numbers, and the general shortest
  // conversion costs many times an integer one. A whole number below 2^53
  // (exact, so its digits are its shortest digits) is written as digits
  // unless scientific notation is shorter, which takes at least five
  // trailing zeros (1e+05, 1.2e+07): those, zero (-0 keeps its sign) and
  // everything else take the general path.
  void number(double d) {
    if (char* const end = whole_number(room(kLongestNumber), d)) [[likely]] {
      p_ = end;
      return;
    }
    general_number(d);
  }

  // Writes d at p when it takes the whole-number path; else returns null.
  static char* whole_number(char* p, double d) noexcept {
    constexpr double kExactBound = 9007199254740992.0;  // 2^53
    if (!(d > -kExactBound && d < kExactBound)) return nullptr;
    const auto i = static_cast<std::int64_t>(d);
    if (static_cast<double>(i) != d || i % 100000 == 0) return nullptr;
    *p = '-';
    const std::uint64_t magnitude = i < 0 ? std::uint64_t(-i) : std::uint64_t(i);
    p += i < 0;
    // Most whole numbers fit 32 bits, where dividing is cheaper.
    if (magnitude <= 0xFFFFFFFF) [[likely]] return write_decimal_32(p, std::uint32_t(magnitude));
    return write_decimal(p, magnitude);
  }

  void general_number(double d) {
    check_finite(d);
    char* const p = room(kLongestNumber);
    char* end = integral_chars(p, d);
    if (!end) end = std::to_chars(p, p + kLongestNumber, d).ptr;
    p_ = end;
  }

  // Gives the same text as std::to_chars(double) for whole numbers below
  // 10^15: digits unless scientific notation is shorter (1e+06), in which
  // case null is returned and std::to_chars writes it.
  static char* integral_chars(char* buf, double d) noexcept {
    constexpr double kExactBound = 1e15;
    if (!(d > -kExactBound && d < kExactBound) || d != static_cast<double>(static_cast<std::int64_t>(d))) return nullptr;
    if (d == 0) return nullptr;  // no significant digit, and -0 keeps its sign on the general path
    char* const end = std::to_chars(buf, buf + kLongestNumber, static_cast<std::int64_t>(d)).ptr;
    const char* const first = buf + (d < 0);
    const char* last = end;
    while (last[-1] == '0') --last;
    const std::ptrdiff_t digits = end - first, significant = last - first;
    const std::ptrdiff_t scientific = (significant == 1 ? 1 : significant + 1) + 4;  // "d.ddde+XX"
    return digits <= scientific ? end : nullptr;
  }

  // The float's own shortest text is kept only when a reader that takes it
  // as a double and narrows gets the same float back; otherwise the exact
  // value is written as a double.
  void number(float f) {
    check_finite(f);
    char buf[32];
    const auto r = std::to_chars(buf, buf + sizeof buf, f);
    double back = 0;
    std::from_chars(buf, r.ptr, back);
    if (std::fabs(back) <= kLargestFloat && static_cast<float>(back) == f) {
      put(buf, std::size_t(r.ptr - buf));
      return;
    }
    general_number(static_cast<double>(f));
  }

  void string(const std::string& s) {
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

  std::string& out_;
  const bool pretty_;
  const std::unique_ptr<char[]> chunk_;
  char* p_;
  char* const end_;
};

// Room for the text of v at the given level: never short for numbers,
// booleans and null, so a numeric array's text is written into one buffer
// without regrowing it; strings needing escapes may still grow it. Room
// reserved and not written is never touched.
std::size_t room_for(const Value& v, std::size_t level, bool pretty) noexcept {
  constexpr std::size_t kLongestNumber = 24;  // "-2.2250738585072014e-308"
  switch (v.index()) {
    case Value::kString: return v.as_string().size() + 2;
    case Value::kArray: {
      const std::size_t per_element = 1 + (pretty ? 1 + 2 * (level + 1) : 0);
      std::size_t n = 2 + (pretty ? 1 + 2 * level : 0);
      for (const Value& e : v.as_array())
        n += per_element + (e.index() == Value::kDouble ? kLongestNumber : room_for(e, level + 1, pretty));
      return n;
    }
    case Value::kObject: {
      const std::size_t per_member = 4 + (pretty ? 2 + 2 * (level + 1) : 0);
      std::size_t n = 2 + (pretty ? 1 + 2 * level : 0);
      for (const auto& [name, member] : v.as_object())
        n += per_member + name.size() + room_for(member, level + 1, pretty);
      return n;
    }
    default: return kLongestNumber;
  }
}

}  // namespace

void Serializer::write(std::string& out, const Value& v) const {
  const std::size_t mark = out.size();
  out.reserve(mark + room_for(v, 0, pretty_));
  try {
    Writer writer(out, pretty_);
    writer.value(v, 0);
    writer.flush();
  } catch (...) {
    out.resize(mark);  // a failed write leaves nothing behind
    throw;
  }
}

void Serializer::write(std::ostream& os, const Value& v) const {
  const std::string text = to_string(v);
  os.write(text.data(), std::streamsize(text.size()));
}

}  // namespace foundation::json
