#pragma once

// The host's numeric and logical classes as NumPy dtypes, made from the
// runtime's class table: a class gains a dtype by having a row there. Real
// and complex rows of every floating class, real rows of the integer
// classes and logical; NumPy has no complex integers.

#include "numpy_api.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "ixtal/classes.hpp"

namespace dovra_python {

struct NumericClass {
  ixClassID cls = ixUNKNOWN_CLASS;
  bool complex = false;
  int type_num = -1;           // NumPy's number for the dtype
  std::size_t itemsize = 0;    // bytes of one NumPy element (both parts if complex)
};

namespace detail {

// NumPy's dtype number of an element type.
template <class T>
constexpr int npy_type(bool complex) {
  if constexpr (std::is_same_v<T, bool>) return NPY_BOOL;
  else if constexpr (std::is_same_v<T, double>) return complex ? NPY_CDOUBLE : NPY_DOUBLE;
  else if constexpr (std::is_same_v<T, float>) return complex ? NPY_CFLOAT : NPY_FLOAT;
  else if constexpr (std::is_integral_v<T>) {
    constexpr int bits = int(sizeof(T)) * 8;
    if constexpr (std::is_signed_v<T>) return bits == 8 ? NPY_INT8 : bits == 16 ? NPY_INT16 : bits == 32 ? NPY_INT32 : NPY_INT64;
    else return bits == 8 ? NPY_UINT8 : bits == 16 ? NPY_UINT16 : bits == 32 ? NPY_UINT32 : NPY_UINT64;
  }
  else return -1;
}

template <class Row>
constexpr bool has_dtype = Row::has_elements && !std::is_same_v<typename Row::element_type, char16_t>;

inline constexpr std::size_t kNumericCount = [] {
  std::size_t n = 0;
  ixtal::for_each_class([&](auto row) {
    using Row = decltype(row);
    if constexpr (has_dtype<Row>) n += std::is_floating_point_v<typename Row::element_type> ? 2 : 1;
  });
  return n;
}();

}  // namespace detail

inline constexpr auto kNumericClasses = [] {
  std::array<NumericClass, detail::kNumericCount> table{};
  std::size_t i = 0;
  ixtal::for_each_class([&](auto row) {
    using Row = decltype(row);
    using T = typename Row::element_type;
    if constexpr (detail::has_dtype<Row>) {
      table[i++] = {Row::id, false, detail::npy_type<T>(false), sizeof(T)};
      if constexpr (std::is_floating_point_v<T>) table[i++] = {Row::id, true, detail::npy_type<T>(true), 2 * sizeof(T)};
    }
  });
  return table;
}();

namespace detail {

inline constexpr int kClassSlots = [] {
  int top = 0;
  for (const auto& c : kNumericClasses) top = std::max(top, int(c.cls));
  return top + 1;
}();

// Where each class's row is, real and complex (-1: none): every value a
// document decodes to asks, so it is one look, not a search.
inline constexpr auto kRowOf = [] {
  std::array<std::array<signed char, kClassSlots>, 2> rows{};
  for (auto& r : rows) r.fill(-1);
  for (std::size_t i = 0; i < kNumericClasses.size(); ++i)
    rows[kNumericClasses[i].complex][kNumericClasses[i].cls] = static_cast<signed char>(i);
  return rows;
}();

}  // namespace detail

inline const NumericClass* numeric_class_of(ixClassID cls, bool complex) noexcept {
  if (unsigned(cls) >= unsigned(detail::kClassSlots)) return nullptr;
  const int row = detail::kRowOf[complex][cls];
  return row < 0 ? nullptr : &kNumericClasses[std::size_t(row)];
}

// The class of a dtype of native or either byte order; null when none has it.
inline const NumericClass* numeric_class_of(const PyArray_Descr* dt) noexcept {
  for (const auto& c : kNumericClasses)
    if (PyArray_EquivTypenums(c.type_num, dt->type_num)) return &c;
  return nullptr;
}

// The native-order dtype of a class, a new reference (which the NumPy
// calls that make arrays take over).
inline PyArray_Descr* dtype_of(const NumericClass& c) noexcept { return PyArray_DescrFromType(c.type_num); }

}  // namespace dovra_python
