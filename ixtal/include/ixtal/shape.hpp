#pragma once

// An array's shape as C++ code walks it: the dimension list as a span, and
// where a step along each dimension moves in storage.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "ixtal/array.hpp"

namespace ixtal {

// The dimension list of a: at least two sizes, the first dimension first.
inline std::span<const ixSize> dims_of(const ixArray* a) noexcept {
  return {ixGetDimensions(a), ixGetNumberOfDimensions(a)};
}

// Storage runs first dimension fastest: a step along dimension d moves
// unit times the product of the sizes before d. Writes one stride per size
// to out and returns where it stopped. A product too large for Int wraps;
// only a shape that no data can back reaches it, and nothing is stored
// through such a stride.
template <class Int, class Out>
constexpr Out strides_of(std::span<const ixSize> dims, Int unit, Out out) {
  std::uint64_t step = std::uint64_t(unit);
  for (const ixSize d : dims) {
    *out++ = Int(step);
    step *= d;
  }
  return out;
}

template <class Int = ixSize>
std::vector<Int> strides_of(std::span<const ixSize> dims, Int unit = 1) {
  std::vector<Int> strides(dims.size());
  strides_of(dims, unit, strides.begin());
  return strides;
}

}  // namespace ixtal
