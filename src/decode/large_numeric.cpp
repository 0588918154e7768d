#include "decode/large_numeric.hpp"

#include <cmath>
#include <string>
#include <vector>

#include "decode/dimensions.hpp"
#include "decode/element_rules.hpp"
#include "decode/ixtal_type.hpp"
#include "foundation/json/ixtal_type.hpp"
#include "host/json_keys.hpp"
#include "json/basic_parser.hpp"

namespace ixtal_json {
namespace {

namespace fj = foundation::json;
using detail::dims_vector;
using detail::IxtalType;

// What the members said, before the class is known: "tndata" may come
// first, so its values wait as doubles (or booleans) until "tntype" is read.
struct LargeMembers {
  std::string type;
  dims_vector dims;
  std::vector<double> numbers;
  std::vector<bool> booleans;
  bool has_type = false, has_size = false, has_data = false;
};

template <class Char>
class LargeNumericReader : public dovra_json::detail::BasicParser<LargeNumericReader<Char>, Char> {
  using Base = dovra_json::detail::BasicParser<LargeNumericReader<Char>, Char>;

 public:
  explicit LargeNumericReader(const Char* end) noexcept : Base(end, 0) {}

  // The members of the object at p, or false for any text the reader
  // leaves to the general path.
  bool read(const Char* p, LargeMembers& m) {
    if (!at(p, '{')) return false;
    ++p;
    std::string name;
    for (;;) {
      this->skip_white_space(p);
      if (!plain_string(p, name)) return false;
      this->skip_white_space(p);
      if (!at(p, ':')) return false;
      ++p;
      this->skip_white_space(p);
      if (name == keys::tntype && !m.has_type) {
        m.has_type = true;
        if (!plain_string(p, m.type)) return false;
      } else if (name == keys::tnsize && !m.has_size) {
        m.has_size = true;
        if (!size(p, m.dims)) return false;
      } else if (name == keys::tndata && !m.has_data) {
        m.has_data = true;
        if (!data(p, m)) return false;
      } else {
        return false;
      }
      this->skip_white_space(p);
      if (at(p, '}')) break;
      if (!at(p, ',')) return false;
      ++p;
    }
    return ++p == this->end() && m.has_type && m.has_size && m.has_data;
  }

 private:
  bool at(const Char* p, char c) const noexcept { return p != this->end() && *p == Char(c); }

  // A string of ASCII text without escapes: the names and the class.
  bool plain_string(const Char*& p, std::string& out) {
    if (!at(p, '"')) return false;
    const Char* const first = ++p;
    p = Base::find_quote_or_backslash(p, this->end());
    if (!at(p, '"')) return false;
    out.clear();
    for (const Char* q = first; q != p; ++q) {
      if (std::make_unsigned_t<Char>(*q) > 0x7F) return false;
      out.push_back(char(*q));
    }
    ++p;
    return true;
  }

  // Each entry an integral number in [0, 2^64); at least two entries.
  bool size(const Char*& p, dims_vector& dims) {
    bool ok = true;
    const bool listed = list(p, [&](const Char*& q) {
      double x;
      if (this->number_value(q, x) != fj::kParseOk) return false;
      if (std::trunc(x) != x || x <= -1.0 || x >= 18446744073709551616.0) ok = false;
      else dims.push_back(static_cast<ixSize>(x));
      return true;
    });
    return listed && ok && dims.size() >= 2;
  }

  // Numbers, or booleans, not both.
  bool data(const Char*& p, LargeMembers& m) {
    // Room for one number per eight units of text, what a dense list of
    // short numbers needs, so that a large one does not regrow its way up;
    // room never written is never touched.
    m.numbers.reserve(std::size_t(this->end() - p) / 8);
    // Data are mostly all integers or all not: the quick reading of
    // integers is tried until it first fails.
    bool integers = true;
    return list(p, [&](const Char*& q) {
      if (at(q, 't') || at(q, 'f')) {
        const bool v = *q == Char('t');
        const char* word = v ? "true" : "false";
        const std::size_t n = v ? 4 : 5;
        if (std::size_t(this->end() - q) < n || !std::equal(word, word + n, q)) return false;
        q += n;
        m.booleans.push_back(v);
        return m.numbers.empty();
      }
      if (!(at(q, '-') || (q != this->end() && *q >= Char('0') && *q <= Char('9')))) return false;
      double x;
      if (integers && this->short_integer(q, x)) {
        m.numbers.push_back(x);
        return m.booleans.empty();
      }
      integers = false;
      if (this->number_value(q, x) != fj::kParseOk) return false;
      m.numbers.push_back(x);
      return m.booleans.empty();
    });
  }

  // [ element, ... ] with element(p) reading one; p on the '['.
  template <class Element>
  bool list(const Char*& p, Element&& element) {
    if (!at(p, '[')) return false;
    ++p;
    this->skip_white_space(p);
    if (at(p, ']')) {
      ++p;
      return true;
    }
    for (;;) {
      if (!element(p)) return false;
      this->skip_white_space(p);
      if (at(p, ']')) {
        ++p;
        return true;
      }
      if (!at(p, ',')) return false;
      ++p;
      this->skip_white_space(p);
    }
  }
};

// The array of class X from the members, when every element passes the
// class's rule.
struct make_array {
  const LargeMembers& m;

  template <IxtalType X>
  std::optional<matrix::owned_array> operator()(detail::ixtal_type_tag<X>) const {
    if constexpr (detail::is_numeric_type(X) || X == IxtalType::kLogical) {
      using T = detail::element_type_of<X>;
      constexpr bool logical = X == IxtalType::kLogical;
      const std::size_t count = logical ? m.booleans.size() : m.numbers.size();
      if ((logical ? !m.numbers.empty() : !m.booleans.empty()) || detail::element_count(m.dims) != count)
        return std::nullopt;
      auto a = detail::uninitialised_array<T>(m.dims);
      T* out = detail::data_of<T>(a);
      for (std::size_t i = 0; i < count; ++i) {
        if constexpr (logical) out[i] = m.booleans[i];
        else if (!detail::convert_number(m.numbers[i], out[i])) return std::nullopt;
      }
      return a;
    } else {
      return std::nullopt;
    }
  }
};

}  // namespace

template <class Char>
std::optional<matrix::owned_array> read_large_numeric(std::basic_string_view<Char> text) {
  LargeMembers m;
  if (!LargeNumericReader<Char>(text.data() + text.size()).read(text.data(), m)) return std::nullopt;
  IxtalType type;
  try {
    type = ixtal_type_for_name(m.type);
  } catch (...) {
    return std::nullopt;
  }
  return detail::dispatch_on_IxtalType(type, make_array{m});
}

template std::optional<matrix::owned_array> read_large_numeric(std::basic_string_view<char>);
template std::optional<matrix::owned_array> read_large_numeric(std::basic_string_view<char16_t>);

}  // namespace ixtal_json
