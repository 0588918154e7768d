#pragma once

// The rules of the data representation that both ways of decoding apply:
// the general path over the value tree, which raises the error a rule's
// refusal means, and the reader from the text, which leaves such a text to
// the general path. Each rule is written here once; the callers say only
// what a refusal means to them.

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include "decode/dimensions.hpp"
#include "host/json_keys.hpp"
#include "ixtal/shape.hpp"

namespace ixtal_json::detail {

// "tnsize" has at least this many entries.
inline constexpr std::size_t kMinDimensions = 2;

// One "tnsize" entry: an integral number in [0, 2^64). Zero is a size like
// any other.
inline bool size_entry(double x, ixSize& out) noexcept {
  if (std::trunc(x) != x || x <= -1.0 || x >= 18446744073709551616.0) return false;
  out = static_cast<ixSize>(x);
  return true;
}

// What an object is, by which of the two deciding keys it has: other keys
// ("tnsize" alone, "tnclass" alone) make no difference.
enum class ObjectRole { kLarge, kSpecialFloat, kPlainStruct };
inline ObjectRole object_role(bool has_tntype, bool has_tndata) noexcept {
  return has_tntype ? ObjectRole::kLarge : has_tndata ? ObjectRole::kSpecialFloat : ObjectRole::kPlainStruct;
}

// The value a special float object's "tndata" names; false for any other
// text.
inline bool special_float_value(std::string_view name, double& out) noexcept {
  if (name == names::nan) out = std::numeric_limits<double>::quiet_NaN();
  else if (name == names::minus_inf) out = -std::numeric_limits<double>::infinity();
  else if (name == names::inf) out = std::numeric_limits<double>::infinity();
  else return false;
  return true;
}

// The outermost JSON level is the first dimension: the index of level d
// moves in storage by the product of the sizes of the levels outside it.
// The products may wrap for shapes no data can back; they are then never
// used to store.
inline dims_vector storage_strides(const dims_vector& dims) {
  dims_vector strides(dims.size());
  ixtal::strides_of(std::span<const ixSize>(dims.data(), dims.size()), ixSize(1), strides.begin());
  return strides;
}

// The fields of a structure come in byte order of their names (names given
// once each: of repeated names the first counts, and the reader of an
// object keeps only that one). field_order(names)[k] is field k's name.
inline std::vector<std::size_t> field_order(const std::vector<std::string>& names) {
  std::vector<std::size_t> order(names.size());
  std::iota(order.begin(), order.end(), std::size_t(0));
  std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return names[a] < names[b]; });
  return order;
}

// The scalars of a document: a boolean or a number is a 1-by-1 array of
// its class. (A string is a char row: char_data.hpp and the reader's
// char_row, both of which make "" 0-by-0.)
inline matrix::owned_array scalar(bool b) { return matrix::owned_array(ixCreateLogicalScalar(b)); }
inline matrix::owned_array scalar(double x) { return matrix::owned_array(ixCreateDoubleScalar(x)); }

// A cell from a list: one element per list entry in storage order, the
// count that of the dimensions. element(i) gives the i-th, decoded by the
// top-level rule; the caller has checked the count.
inline bool fills(std::size_t count, const dims_vector& dims) noexcept { return count == element_count(dims); }
template <class Element>
matrix::owned_array cell_of(const dims_vector& dims, std::size_t count, Element&& element) {
  matrix::owned_array cell(ixCreateCellArray(dims.size(), dims.data()));
  for (std::size_t i = 0; i < count; ++i) {
    matrix::owned_array value = element(i);
    ixSetCell(cell.get(), i, value.get());
    value.release();  // the cell holds it from here
  }
  return cell;
}

// The sizes of the levels of a small-notation array as the array's
// dimensions: a flat list is a column.
inline dims_vector small_result_dims(dims_vector levels) {
  if (levels.size() == 1) levels.push_back(1);
  return levels;
}

}  // namespace ixtal_json::detail
