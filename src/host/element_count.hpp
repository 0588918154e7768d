#pragma once

// The number of elements of a dimension list, for decoder and encoder alike.

#include <limits>
#include <span>

#include "ixtal/array.hpp"

namespace ixtal_json::detail {

// Stands for a product of sizes beyond 64 bits: no data list is that long,
// and no host array can be that large.
inline constexpr ixSize kUncountable = std::numeric_limits<ixSize>::max();

// The product of the dimensions: 0 when one of them is 0, however large the
// others; kUncountable when the product overflows; 1 for the empty list (a
// host array always has two or more, so only a document can give none).
inline ixSize element_count(std::span<const ixSize> dims) noexcept {
  ixSize n = 1;
  bool overflow = false;
  for (const ixSize d : dims) {
    if (d == 0) return 0;
    overflow = overflow || __builtin_mul_overflow(n, d, &n);
  }
  return overflow ? kUncountable : n;
}

}  // namespace ixtal_json::detail
