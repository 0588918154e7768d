#pragma once

// Dimension lists as the decoder reads them, and the arrays made from them.

#include <boost/container/small_vector.hpp>
#include <limits>

#include "host/class_traits.hpp"
#include "ixtal/array.hpp"
#include "ixtal/matrix.hpp"

namespace ixtal_json::detail {

// Most arrays have two or three dimensions; the inline room keeps a decode
// of many small arrays free of allocations for their shapes.
using dims_vector = boost::container::small_vector<ixSize, 4>;

// Stands for a product of sizes beyond 64 bits: no data list is that long,
// and no host array can be that large.
inline constexpr ixSize kUncountable = std::numeric_limits<ixSize>::max();

// The number of elements of an array of these dimensions: 0 when one of them
// is 0, however large the others; kUncountable when the product overflows.
inline ixSize element_count(const dims_vector& dims) noexcept {
  ixSize n = 1;
  bool overflow = false;
  for (const ixSize d : dims) {
    if (d == 0) return 0;
    overflow = overflow || __builtin_mul_overflow(n, d, &n);
  }
  return overflow ? kUncountable : n;
}

// A numeric, logical or char array whose data the caller writes in full.
template <class T>
matrix::owned_array uninitialised_array(const dims_vector& dims, bool complex = false) {
  return matrix::owned_array(ixCreateUninitNumericArray(dims.size(), dims.data(), element_traits<T>::class_id,
                                                        complex ? ixCOMPLEX : ixREAL));
}

template <class T>
T* data_of(const matrix::owned_array& a) noexcept {
  return static_cast<T*>(ixGetData(a.get()));
}

}  // namespace ixtal_json::detail
