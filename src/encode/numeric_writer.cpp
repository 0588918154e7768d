#include "encode/numeric_writer.hpp"

#include <boost/numeric/conversion/cast.hpp>
#include <cmath>
#include <complex>
#include <limits>
#include <type_traits>
#include <vector>

#include "encode/forms.hpp"
#include "encode/large_object.hpp"
#include "errors/conversion_exceptions.hpp"
#include "host/class_traits.hpp"
#include "host/json_keys.hpp"
#include "ixtal/matrix.hpp"

namespace ixtal_json::detail {
namespace {

using foundation::json::Array;
using foundation::json::Object;
using foundation::json::Value;

template <class F>
bool is_finite(F x) noexcept {
  return std::fabs(x) <= std::numeric_limits<F>::max();
}

// NaN or an infinity in the form f: the name, or the object holding it
// (`levels` counts the special object itself and every container of the
// writer around it).
template <class F>
Value special_value(F x, Form f, NanType nan, const nesting& depth, std::size_t levels) {
  if (special_as_string(f, nan)) return Value(std::string(names::special(x)));
  depth.require(levels);
  Object o;
  o.emplace(keys::tndata, Value(std::string(names::special(x))));
  return Value(std::move(o));
}

// Appends one element, or one part of a complex element.
template <class T>
void append_part(Array& data, T x, NanType nan, const nesting& depth) {
  if constexpr (std::is_floating_point_v<T>) {
    if (is_finite(x)) [[likely]] {
      data.emplace_back(x);  // float stays the float alternative
    } else {
      data.push_back(special_value(x, Form::large, nan, depth, kLargeDataLevels + 1));
    }
  } else if constexpr (std::is_same_v<T, bool>) {
    data.emplace_back(x);
  } else {
    // Integers past 2^53 round to the nearest double; uint64 stays unsigned.
    data.emplace_back(static_cast<double>(x));
  }
}

template <class T> struct part_of { using type = T; };
template <class T> struct part_of<std::complex<T>> { using type = T; };

// Flattened so that the per-element store is inline in the loop.
template <class T>
[[gnu::flatten]] Value write_large(const ixArray* a, NanType nan, const nesting& depth) {
  using Part = typename part_of<T>::type;
  constexpr bool complex = matrix::is_complex<T>::value;
  const matrix::typed_array<T> view(a);
  const auto dims = dims_of(a);
  Array size = tnsize_of(dims);
  depth.require(kLargeDataLevels);
  Array data;
  data.reserve(complex ? 2 * view.size() : view.size());
  for (const T& x : view) {
    if constexpr (complex) {
      append_part<Part>(data, x.real(), nan, depth);
      append_part<Part>(data, x.imag(), nan, depth);
    } else {
      append_part<Part>(data, x, nan, depth);
    }
  }
  check_count(complex ? data.size() / 2 : data.size(), dims);
  return large_object(type_name(ixtal::class_of_element<Part>::id), std::move(size), Value(std::move(data)), complex);
}

Value small_number(double x, Form f, NanType nan, const nesting& depth, std::size_t levels) {
  if (is_finite(x)) [[likely]] return Value(x);
  return special_value(x, f, nan, depth, levels);
}

std::size_t checked_count(ixSize d) {
  if (boost::numeric_cast<ixSize>(boost::numeric_cast<double>(d)) != d)
    throw boost::numeric::positive_overflow();
  return std::size_t(d);
}

// Allocates the nested arrays of a small-notation value: the outermost
// level is the first dimension. Returns the element storage of each
// innermost array, indexed by the storage-order position of its outer
// subscripts.
std::vector<Value*> allocate_tree(Value& root, std::span<const ixSize> dims) {
  struct node {
    Value* value;
    std::size_t offset;
  };
  std::vector<node> level{{&root, 0}}, next;
  const std::vector<std::size_t> strides = ixtal::strides_of<std::size_t>(dims);
  for (std::size_t l = 0; l + 1 < dims.size(); ++l) {
    const std::size_t n = checked_count(dims[l]);
    next.clear();
    next.reserve(level.size() * n);
    for (const node& parent : level) {
      *parent.value = Value(Array(n));
      Value* children = parent.value->as_array().data();
      for (std::size_t i = 0; i < n; ++i) next.push_back({children + i, parent.offset + i * strides[l]});
    }
    level.swap(next);
  }
  const std::size_t last = checked_count(dims.back());
  std::vector<Value*> leaves(level.size());
  for (const node& leaf : level) {
    *leaf.value = Value(Array(last));
    leaves[leaf.offset] = leaf.value->as_array().data();
  }
  return leaves;
}

// Non-empty arrays in small notation. An N-by-1 column is one flat array;
// every other shape nests one level per dimension, so that a row 1-by-N is
// [[...]] and reads back as a row. element(x, levels) makes one entry.
template <class T, class Element>
Value write_nested(const matrix::typed_array<T>& view, std::span<const ixSize> dims, const nesting& depth,
                   Element element) {
  if (dims.size() == 2 && dims[1] == 1) {
    depth.require(1);
    Array out;
    out.reserve(view.size());
    for (const T& x : view) out.push_back(element(x, 2));
    return Value(std::move(out));
  }
  const std::size_t levels = dims.size();
  depth.require(levels);
  Value root;
  const std::vector<Value*> leaves = allocate_tree(root, dims);
  // Storage position s is leaf s % inner, entry s / inner: one pass over
  // the data in storage order.
  const std::size_t inner = leaves.size(), last = std::size_t(dims.back());
  const T* x = view.data();
  for (std::size_t entry = 0; entry < last; ++entry)
    for (std::size_t leaf = 0; leaf < inner; ++leaf) leaves[leaf][entry] = element(*x++, levels + 1);
  return root;
}

}  // namespace

Value write_numeric_large(const ixArray* a, NanType nan, const nesting& depth) {
  Value out;
  const bool complex = ixIsComplex(a);
  const bool numeric = with_numeric_class(ixGetClassID(a), [&](auto tag) {
    using T = typename decltype(tag)::type;
    out = complex ? write_large<std::complex<T>>(a, nan, depth) : write_large<T>(a, nan, depth);
  });
  if (!numeric) throw IxUnsupportedType(ixGetClassName(a));
  return out;
}

Value write_double(const ixArray* a, Form form, NanType nan, const nesting& depth) {
  if (form == Form::large) return write_numeric_large(a, nan, depth);
  const matrix::typed_array<double> view(a);
  const auto dims = dims_of(a);
  if (form == Form::empty_array) {
    depth.require(1);
    return Value(Array());
  }
  if (form == Form::scalar) return small_number(view[0], form, nan, depth, 1);
  return write_nested(view, dims, depth,
                      [&](double x, std::size_t levels) { return small_number(x, form, nan, depth, levels); });
}

Value write_logical(const ixArray* a, Form form, const nesting& depth) {
  if (form == Form::large) return write_large<bool>(a, NanType::string, depth);
  const matrix::typed_array<bool> view(a);
  if (form == Form::scalar) return Value(view[0]);
  return write_nested(view, dims_of(a), depth, [](bool b, std::size_t) { return Value(b); });
}

}  // namespace ixtal_json::detail
