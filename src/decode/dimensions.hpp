#pragma once

// Dimension lists as the decoder reads them, and the arrays made from them.

#include <boost/container/small_vector.hpp>

#include "host/class_traits.hpp"
#include "host/element_count.hpp"
#include "ixtal/array.hpp"
#include "ixtal/matrix.hpp"

namespace ixtal_json::detail {

// Most arrays have two or three dimensions; the inline room keeps a decode
// of many small arrays free of allocations for their shapes.
using dims_vector = boost::container::small_vector<ixSize, 4>;

inline ixSize element_count(const dims_vector& dims) noexcept {
  return element_count(std::span<const ixSize>(dims.data(), dims.size()));
}

// A numeric, logical or char array whose data the caller writes in full.
template <class T>
matrix::owned_array uninitialised_array(const dims_vector& dims, bool complex = false) {
  return matrix::owned_array(ixCreateUninitNumericArray(dims.size(), dims.data(), ixtal::class_of_element<T>::id,
                                                        complex ? ixCOMPLEX : ixREAL));
}

template <class T>
T* data_of(const matrix::owned_array& a) noexcept {
  return static_cast<T*>(ixGetData(a.get()));
}

}  // namespace ixtal_json::detail
