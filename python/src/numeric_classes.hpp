#pragma once

// The one table between the host's numeric and logical classes and NumPy
// dtypes: decode and encode both read it.

#include <pybind11/numpy.h>

#include <array>
#include <cstddef>
#include <string>

#include "ixtal/array.hpp"

namespace dovra_python {

struct NumericClass {
  ixClassID cls;
  bool complex;
  char kind;              // NumPy dtype kind: 'f', 'c', 'i', 'u', 'b'
  std::size_t itemsize;   // bytes of one NumPy element (both parts if complex)
};

inline constexpr std::array<NumericClass, 13> kNumericClasses{{
    {ixDOUBLE_CLASS, false, 'f', 8}, {ixSINGLE_CLASS, false, 'f', 4},
    {ixDOUBLE_CLASS, true, 'c', 16}, {ixSINGLE_CLASS, true, 'c', 8},
    {ixINT8_CLASS, false, 'i', 1},   {ixUINT8_CLASS, false, 'u', 1},
    {ixINT16_CLASS, false, 'i', 2},  {ixUINT16_CLASS, false, 'u', 2},
    {ixINT32_CLASS, false, 'i', 4},  {ixUINT32_CLASS, false, 'u', 4},
    {ixINT64_CLASS, false, 'i', 8},  {ixUINT64_CLASS, false, 'u', 8},
    {ixLOGICAL_CLASS, false, 'b', 1},
}};

inline const NumericClass* numeric_class_of(ixClassID cls, bool complex) noexcept {
  for (const auto& c : kNumericClasses)
    if (c.cls == cls && c.complex == complex) return &c;
  return nullptr;
}

inline const NumericClass* numeric_class_of(const pybind11::dtype& dt) noexcept {
  for (const auto& c : kNumericClasses)
    if (c.kind == dt.kind() && c.itemsize == std::size_t(dt.itemsize())) return &c;
  return nullptr;
}

// The native-order NumPy dtype of a class.
inline pybind11::dtype dtype_of(const NumericClass& c) {
  // NumPy's code for bool is '?': 'b' would be int8.
  if (c.kind == 'b') return pybind11::dtype("?");
  return pybind11::dtype(std::string("=") + c.kind + std::to_string(c.itemsize));
}

}  // namespace dovra_python
