#include "decode/small_notation.hpp"

#include <algorithm>
#include <cstddef>

#include "decode/dimensions.hpp"
#include "decode/driver.hpp"
#include "decode/element_rules.hpp"
#include "decode/ixtal_type.hpp"
#include "decode/rules.hpp"
#include "errors/conversion_exceptions.hpp"

namespace ixtal_json {

namespace detail {
namespace {

using foundation::json::Array;
using foundation::json::Value;

// What the first element of each level says: the class, and one size per
// JSON level, outermost first.
struct small_shape {
  IxtalType type = IxtalType::kDouble;
  dims_vector dims;
};

// The analysis looks only at the first element of each level: a refused
// one lies at [0][0]..., one index per level read.
[[noreturn]] void throw_first_element_refused(std::size_t levels) {
  InvalidArrayElemType e;
  for (std::size_t d = 0; d < levels; ++d) e.enter(std::size_t(0));
  throw e;
}

small_shape analyse(const Array& outer) {
  small_shape shape;
  const Array* level = &outer;
  for (;;) {
    shape.dims.push_back(level->size());
    if (level->empty()) return shape;
    const Value& first = level->front();
    switch (first.index()) {
      case Value::kBool: shape.type = IxtalType::kLogical; return shape;
      case Value::kDouble: return shape;
      case Value::kObject: {
        double ignored;
        if (read_special_float(first.as_object(), ignored)) return shape;
        throw_first_element_refused(shape.dims.size());
      }
      case Value::kArray: level = &first.as_array(); break;
      default: throw_first_element_refused(shape.dims.size());
    }
  }
}

// How a mixed-in element is named when it spoils the array's one type.
const char* kind_word(const Value& v) noexcept {
  switch (v.index()) {
    case Value::kBool: return "logical";
    case Value::kDouble: return "double";
    case Value::kString: return "string";
    case Value::kObject: return "object";
    case Value::kFloat: return "single";
    default: return "undefined";  // undefined, null, and an array where a number belongs
  }
}

// Where the index of each JSON level moves in storage: strides[d] is the
// product of the sizes of the levels outside d.
struct walk_layout {
  const dims_vector& dims;
  dims_vector strides;
  std::size_t last;

  explicit walk_layout(const dims_vector& d) : dims(d), strides(storage_strides(d)), last(d.size() - 1) {}
};

// True when every nested array has exactly the size the analysis found, so
// the tree holds one leaf per element and an array of the analysed size can
// be filled from it.
bool shape_is_exact(const Array& a, const walk_layout& l, std::size_t level) noexcept {
  if (level == l.last) return true;
  const ixSize inner = l.dims[level + 1];
  for (const Value& e : a) {
    if (!e.is_array() || e.as_array().size() != inner) return false;
    if (!shape_is_exact(e.as_array(), l, level + 1)) return false;
  }
  return true;
}

// The success path: one walk in the tree's own order, each leaf converted
// straight into its storage position. False at the first refused leaf.
template <class T>
bool fill_exact(const Array& a, const walk_layout& l, std::size_t level, ixSize offset, T* out) noexcept {
  const ixSize stride = l.strides[level];
  if (level == l.last) {
    T* p = out + offset;
    for (const Value& e : a) {
      if (!convert_element(e, *p)) return false;
      p += stride;
    }
    return true;
  }
  for (const Value& e : a) {
    if (!fill_exact(e.as_array(), l, level + 1, offset, out)) return false;
    offset += stride;
  }
  return true;
}

// Nested arrays of one depth and one size per level, examined in index
// order, depth first. A fault is the element that is (or is not) an array,
// or the array of the wrong size.
void check_consistency(const Array& a, const walk_layout& l, std::size_t level) {
  if (level == l.last) {
    for (std::size_t j = 0; j < a.size(); ++j)
      if (a[j].is_array()) throw fault_at(ArrayInconsistentDepths(), j);
    return;
  }
  const ixSize inner = l.dims[level + 1];
  for (std::size_t j = 0; j < a.size(); ++j) {
    const Value& e = a[j];
    if (!e.is_array()) throw fault_at(ArrayInconsistentDepths(), j);
    if (e.as_array().size() != inner) throw fault_at(ArrayInconsistentSizes(), j);
    at_path([&] { check_consistency(e.as_array(), l, level + 1); }, j);
  }
}

// Finds the fault that a fill in storage order would meet first, without
// paying that fill's cost: storage order moves the outermost index fastest,
// so following it re-walks the whole path for every element. Instead the
// tree is walked once in its own order, and each fault is ranked by the
// first storage position whose path runs into it (positions compare from
// the last index, the slowest, down). Never reads past a short array; with
// out set, stores the leaves it converts.
template <class T>
class fault_finder {
 public:
  fault_finder(const walk_layout& l, T* out) : l_(l), out_(out), path_(l.dims.size()), rank_(l.dims.size()) {}

  void walk(const Array& a, std::size_t level, ixSize offset) {
    const ixSize wanted = l_.dims[level];
    if (a.size() < wanted) note(fault::size, level, a.size(), nullptr);
    const std::size_t n = std::min<ixSize>(a.size(), wanted);  // a longer array is read only as far as wanted
    for (std::size_t j = 0; j < n; ++j, offset += l_.strides[level]) {
      path_[level] = j;
      const Value& e = a[j];
      if (level < l_.last) {
        if (e.is_array()) walk(e.as_array(), level + 1, offset);
        else note(fault::depth, level + 1, 0, nullptr);
        continue;
      }
      T x;
      if (!convert_element(e, x)) note(fault::type, level + 1, 0, &e);
      else if (out_) out_[offset] = x;
    }
  }

  bool found() const noexcept { return best_ != fault::none; }

  [[noreturn]] void raise() const {
    switch (best_) {
      case fault::depth: throw at_fault(ArrayInconsistentDepths());
      case fault::size: throw at_fault(ArrayInconsistentSizes());
      default: throw at_fault(ArrayInconsistentTypes(element_traits<T>::name, kind_word(*element_)));
    }
  }

 private:
  enum class fault { none, depth, size, type };

  // The fault's first position: the current path up to `fixed` levels, then
  // `next` at the following level, zeros beyond. The value at fault is the
  // one the current path's first `fixed` indices lead to: a short array, or
  // an element where an array (or a leaf) belongs.
  void note(fault kind, std::size_t fixed, ixSize next, const Value* element) {
    candidate_.assign(path_.begin(), path_.begin() + fixed);
    if (fixed < path_.size()) candidate_.push_back(next);
    candidate_.resize(path_.size(), 0);
    if (best_ != fault::none && !earlier(candidate_, rank_)) return;
    best_ = kind;
    rank_.swap(candidate_);
    element_ = element;
    at_.assign(path_.begin(), path_.begin() + fixed);
  }

  template <class E>
  E at_fault(E e) const {
    for (std::size_t d = at_.size(); d-- > 0;) e.enter(std::size_t(at_[d]));
    return e;
  }

  static bool earlier(const dims_vector& a, const dims_vector& b) noexcept {
    for (std::size_t d = a.size(); d-- > 0;)
      if (a[d] != b[d]) return a[d] < b[d];
    return false;
  }

  const walk_layout& l_;
  T* out_;
  dims_vector path_, rank_, candidate_, at_;
  fault best_ = fault::none;
  const Value* element_ = nullptr;
};

template <class T>
matrix::owned_array fill_small(const Array& outer, const dims_vector& dims) {
  const walk_layout layout(dims);
  const dims_vector result_dims = small_result_dims(dims);

  // Flat, or nested with every size as analysed: the tree holds exactly one
  // leaf per element, so the array is backed by data before it is made.
  if (dims.size() == 1 || shape_is_exact(outer, layout, 0)) {
    auto a = uninitialised_array<T>(result_dims);
    // An empty array has no data to point into: nothing to fill.
    if (ixGetNumberOfElements(a.get()) == 0 || fill_exact(outer, layout, 0, 0, data_of<T>(a))) return a;
  }

  // Something is off. Report it in the order of the plain algorithm: the
  // shape check of a multi-element array, then the fill in storage order.
  if (outer.size() > 1) check_consistency(outer, layout, 0);
  fault_finder<T> finder(layout, nullptr);
  finder.walk(outer, 0, 0);
  if (finder.found()) finder.raise();

  // Only longer nested arrays under a single outer element, which the fill
  // never reaches: every element has its leaf after all.
  auto a = uninitialised_array<T>(result_dims);
  fault_finder<T>(layout, data_of<T>(a)).walk(outer, 0, 0);
  return a;
}

}  // namespace
}  // namespace detail

// Every class but double and logical answers with an empty double; the
// analysis produces no other.
template <class Policy>
struct ixtal_json_small_array_visitor {
  const foundation::json::Array& outer;
  const detail::dims_vector& dims;

  template <detail::IxtalType X>
  typename Policy::result_type operator()(detail::ixtal_type_tag<X>) const {
    if constexpr (X == detail::IxtalType::kDouble || X == detail::IxtalType::kLogical)
      return detail::fill_small<detail::element_type_of<X>>(outer, dims);
    else
      return matrix::owned_array(ixCreateDoubleMatrix(0, 0, ixREAL));
  }
};

namespace detail {

matrix::owned_array decode_small_array(const Array& outer) {
  const small_shape shape = analyse(outer);
  return dispatch_on_IxtalType(shape.type, ixtal_json_small_array_visitor<to_ixArray_visitor>{outer, shape.dims});
}

}  // namespace detail
}  // namespace ixtal_json
