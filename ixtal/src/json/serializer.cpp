#include "foundation/json/serializer.hpp"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
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

class Writer {
 public:
  Writer(std::string& out, bool pretty) noexcept : out_(out), pretty_(pretty) {}

  void value(const Value& v, std::size_t level) {
    switch (v.index()) {
      // Undefined has no text of its own; the encoder never hands one over,
      // and null is the nearest thing a reader would understand.
      case Value::kUndefined:
      case Value::kNull: out_.append("null", 4); break;
      case Value::kBool: v.as_bool() ? out_.append("true", 4) : out_.append("false", 5); break;
      case Value::kDouble: number(v.as_double()); break;
      case Value::kFloat: number(v.as_float()); break;
      case Value::kString: string(v.as_string()); break;
      case Value::kArray: array(v.as_array(), level); break;
      case Value::kObject: object(v.as_object(), level); break;
      default: std::abort();
    }
  }

 private:
  void array(const Array& a, std::size_t level) {
    out_.push_back('[');
    bool first = true;
    for (const Value& e : a) {
      if (!first) out_.push_back(',');
      first = false;
      newline(level + 1);
      value(e, level + 1);
    }
    if (!a.empty()) newline(level);
    out_.push_back(']');
  }

  void object(const Object& o, std::size_t level) {
    out_.push_back('{');
    bool first = true;
    for (const auto& [name, member] : o) {
      if (!first) out_.push_back(',');
      first = false;
      newline(level + 1);
      string(name);
      pretty_ ? out_.append(": ", 2) : out_.append(":", 1);
      value(member, level + 1);
    }
    if (!o.empty()) newline(level);
    out_.push_back('}');
  }

  void newline(std::size_t level) {
    if (!pretty_) return;
    out_.push_back('\n');
    out_.append(2 * level, ' ');
  }

  static void check_finite(double d) {
    if (!std::isfinite(d)) throw std::domain_error("JSON text has no form for NaN or infinity");
  }

  void number(double d) {
    check_finite(d);
    char buf[32];
    char* end = integral_chars(buf, d);
    if (!end) end = std::to_chars(buf, buf + sizeof buf, d).ptr;
    out_.append(buf, std::size_t(end - buf));  // the counted form: the iterator form goes through replace()
  }

  // Numeric arrays are mostly whole numbers, and the general shortest
  // conversion costs many times an integer one. Gives the same text as
  // std::to_chars(double): digits unless scientific notation is shorter
  // (1e+06), in which case null is returned and the general path writes it.
  static char* integral_chars(char* buf, double d) noexcept {
    constexpr double kExactBound = 1e15;  // far inside 2^53: every integer is exact
    if (!(d > -kExactBound && d < kExactBound) || d != static_cast<double>(static_cast<std::int64_t>(d))) return nullptr;
    if (d == 0) return nullptr;  // no significant digit, and -0 keeps its sign on the general path
    char* const end = std::to_chars(buf, buf + 32, static_cast<std::int64_t>(d)).ptr;
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
      out_.append(buf, std::size_t(r.ptr - buf));
      return;
    }
    number(static_cast<double>(f));
  }

  void string(const std::string& s) {
    out_.push_back('"');
    const char* run = s.data();
    const char* const end = run + s.size();
    for (const char* p = run; p != end; ++p) {
      const char e = kEscapes[static_cast<unsigned char>(*p)];
      if (!e) continue;
      out_.append(run, std::size_t(p - run));
      run = p + 1;
      if (e == 'u') {
        static constexpr char kHex[] = "0123456789abcdef";
        const unsigned char c = static_cast<unsigned char>(*p);
        const char u[] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 0xF]};
        out_.append(u, sizeof u);
      } else {
        const char b[] = {'\\', e};
        out_.append(b, 2);
      }
    }
    out_.append(run, std::size_t(end - run));
    out_.push_back('"');
  }

  std::string& out_;
  const bool pretty_;
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
      for (const Value& e : v.as_array()) n += per_element + room_for(e, level + 1, pretty);
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
    Writer(out, pretty_).value(v, 0);
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
