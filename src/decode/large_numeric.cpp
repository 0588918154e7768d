#include "decode/large_numeric.hpp"

#include <cmath>
#include <new>
#include <string>
#include <vector>

#include "decode/dimensions.hpp"
#include "decode/element_reader.hpp"
#include "decode/element_rules.hpp"
#include "decode/ixtal_type.hpp"
#include "foundation/json/ixtal_type.hpp"
#include "host/json_keys.hpp"

namespace ixtal_json {
namespace {

namespace fj = foundation::json;
using detail::dims_vector;
using detail::IxtalType;

// What the members said, before the class is known: "tndata" may come
// first, so its values wait as doubles (or booleans) until "tntype" is read.
// Data that start with a string or a record can only be a cell's, and are
// read as its elements.
struct LargeMembers {
  std::string type;
  dims_vector dims;
  std::vector<double> numbers;
  std::vector<bool> booleans;
  std::vector<matrix::owned_array> elements;
  bool has_type = false, has_size = false, has_data = false;

  // Data of mixed kinds can only be a cell's: the numbers and booleans
  // gathered so far become its first elements (at most one list holds any).
  void to_elements() {
    for (double x : numbers) elements.emplace_back(ixCreateDoubleScalar(x));
    for (bool b : booleans) elements.emplace_back(ixCreateLogicalScalar(b));
    numbers = {};
    booleans = {};
  }
};

template <class Char>
class LargeNumericReader : public detail::ElementReader<LargeNumericReader<Char>, Char> {
  using Base = detail::ElementReader<LargeNumericReader<Char>, Char>;
  using Base::at;

 public:
  explicit LargeNumericReader(const Char* end) noexcept : Base(end) {}

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
  // A string of ASCII text without escapes: the names and the class.
  bool plain_string(const Char*& p, std::string& out) {
    std::basic_string_view<Char> text;
    if (!this->plain_name(p, text)) return false;
    out.assign(text.begin(), text.end());
    return true;
  }

  // Each entry an integral number in [0, 2^64); at least two entries.
  bool size(const Char*& p, dims_vector& dims) {
    bool ok = true;
    const bool listed = this->list(p, [&](const Char*& q) {
      double x;
      if (this->number_value(q, x) != fj::kParseOk) return false;
      if (std::trunc(x) != x || x <= -1.0 || x >= 18446744073709551616.0) ok = false;
      else dims.push_back(static_cast<ixSize>(x));
      return true;
    });
    return listed && ok && dims.size() >= 2;
  }

  // Numbers, or booleans; anything else, or both, as a cell's elements.
  bool data(const Char*& p, LargeMembers& m) {
    // Room for one number per eight units of text, what a dense list of
    // short numbers needs, so that a large one does not regrow its way up;
    // room never written is never touched.
    const std::size_t room = std::size_t(this->end() - p) / 8;
    return this->list(p, [&](const Char*& q) {
      const bool boolean = at(q, 't') || at(q, 'f');
      if (!m.elements.empty() || at(q, '"') || at(q, '{') || (boolean ? !m.numbers.empty() : !m.booleans.empty())) {
        m.to_elements();
        m.elements.push_back(this->element(q));
        return m.elements.back() != nullptr;
      }
      if (boolean) {
        const bool v = *q == Char('t');
        if (!(v ? this->word(q, "true", 4) : this->word(q, "false", 5))) return false;
        m.booleans.push_back(v);
        return true;
      }
      if (q == this->end() || !Base::starts_number(*q)) return false;
      double x;
      if (this->number_value(q, x) != fj::kParseOk) return false;
      if (m.numbers.empty()) m.numbers.reserve(room);
      m.numbers.push_back(x);
      return true;
    });
  }
};

// The array of class X from the members, when every element passes the
// class's rule.
struct make_array {
  LargeMembers& m;

  template <IxtalType X>
  std::optional<matrix::owned_array> operator()(detail::ixtal_type_tag<X>) const {
    if constexpr (detail::is_numeric_type(X) || X == IxtalType::kLogical) {
      using T = detail::element_type_of<X>;
      constexpr bool logical = X == IxtalType::kLogical;
      const std::size_t count = logical ? m.booleans.size() : m.numbers.size();
      if ((logical ? !m.numbers.empty() : !m.booleans.empty()) || !m.elements.empty() ||
          detail::element_count(m.dims) != count)
        return std::nullopt;
      auto a = detail::uninitialised_array<T>(m.dims);
      T* out = detail::data_of<T>(a);
      for (std::size_t i = 0; i < count; ++i) {
        if constexpr (logical) out[i] = m.booleans[i];
        else if (!detail::convert_number(m.numbers[i], out[i])) return std::nullopt;
      }
      return a;
    } else if constexpr (X == IxtalType::kCell) {
      if (detail::element_count(m.dims) != m.numbers.size() + m.booleans.size() + m.elements.size())
        return std::nullopt;
      m.to_elements();
      matrix::owned_array cell(ixCreateCellArray(m.dims.size(), m.dims.data()));
      for (std::size_t i = 0; i < m.elements.size(); ++i) ixSetCell(cell.get(), i, m.elements[i].release());
      return cell;
    } else {
      return std::nullopt;
    }
  }
};

}  // namespace

template <class Char>
std::optional<matrix::owned_array> read_large_numeric(std::basic_string_view<Char> text) {
  // Elements are made as they are read, before the size is known to fit
  // them: out of memory, the tree's answer (which may be an error that
  // needs none) is the one to give.
  try {
    LargeMembers m;
    if (!LargeNumericReader<Char>(text.data() + text.size()).read(text.data(), m)) return std::nullopt;
    IxtalType type;
    try {
      type = ixtal_type_for_name(m.type);
    } catch (...) {
      return std::nullopt;
    }
    return detail::dispatch_on_IxtalType(type, make_array{m});
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

template std::optional<matrix::owned_array> read_large_numeric(std::basic_string_view<char>);
template std::optional<matrix::owned_array> read_large_numeric(std::basic_string_view<char16_t>);

}  // namespace ixtal_json
