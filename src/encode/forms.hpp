#pragma once

// The JSON form of each array, decided in one place for both writers: the
// tree writers (converter.hpp), which keep the errors and the pretty text,
// and the text writer (direct_writer.hpp), which writes compact text with no
// tree. Keys and names come from host/json_keys.hpp; so does the order of a
// large object's keys.

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "encode/modes.hpp"
#include "host/json_keys.hpp"
#include "ixtal/array.hpp"

namespace ixtal_json::detail {

enum class Form : std::uint8_t {
  none,          // no JSON form: the tree writers name the class
  empty_array,   // []: a small 0-by-0 double, and an unset element in small notation
  scalar,        // a bare number or boolean: a small 1-by-1 double or logical
  nested,        // small nested arrays of a non-empty double or logical
  string,        // a bare string: a small 1-by-N (N >= 1) or 0-by-0 char
  large,         // {"tncomplex":true?,"tndata":[...],"tnsize":[...],"tntype":class}
  cell,          // {"tndata":[one value per element],...,"tntype":"cell"}, both notations
  fields,        // {"tndata":{field:[one value per element]},...,"tntype":"struct"}
  object,        // a small 1-by-1 structure: {field:value}
  empty_object,  // a small 0-by-0 structure without fields: {}
};

inline bool is_2d(std::size_t ndim, const ixSize* dims, ixSize m, ixSize n) noexcept {
  return ndim == 2 && dims[0] == m && dims[1] == n;
}

// The form of the array with header h. Sparse storage, and complex arrays
// of other than the numeric classes, have none; the data of every form
// must still match the dimensions. Inline: a table of records asks it of
// every value.
[[gnu::always_inline]] inline Form form_of(const ixArrayHeader& h, ToJsonMode mode) noexcept {
  const bool small = mode == ToJsonMode::small;
  const auto two = [&](ixSize m, ixSize n) { return is_2d(h.ndim, h.dims, m, n); };
  if (h.sparse) return Form::none;
  // Complex arrays have no small form.
  if (h.complex) return ixtal::info_of(h.class_id).numeric ? Form::large : Form::none;
  switch (h.class_id) {
    case ixCELL_CLASS: return Form::cell;
    case ixSTRUCT_CLASS:
      if (small && two(1, 1)) return Form::object;
      if (small && two(0, 0) && h.nfields == 0) return Form::empty_object;
      return Form::fields;
    case ixCHAR_CLASS:
      return small && ((h.ndim == 2 && h.dims[0] == 1 && h.dims[1] >= 1) || two(0, 0)) ? Form::string : Form::large;
    case ixDOUBLE_CLASS:
      if (small && two(0, 0)) return Form::empty_array;
      [[fallthrough]];
    case ixLOGICAL_CLASS:
      // An empty logical is never []: that reads back as double.
      if (!small || h.count == 0) return Form::large;
      return two(1, 1) ? Form::scalar : Form::nested;
    default:
      // The other numeric classes have only the large form.
      return ixtal::info_of(h.class_id).numeric ? Form::large : Form::none;
  }
}

// What an unset cell element or field value is written as: the empty double.
inline constexpr ixClassID kUnsetClass = ixDOUBLE_CLASS;
inline constexpr ixSize kUnsetDims[2] = {0, 0};
inline ixArrayHeader unset_header() noexcept { return {kUnsetClass, false, false, 2, kUnsetDims, 0, nullptr}; }

// The "tntype" of a large object: the host's class name (for complex data,
// the class of each part).
inline const char* type_name(ixClassID cls) noexcept { return ixtal::info_of(cls).name; }

// A "tnsize" entry: counts past 2^63 stay unsigned on their way to double.
inline double size_entry(ixSize d) noexcept { return static_cast<double>(d); }

// How a NaN or infinity is written: large data take the form the caller
// chose, small notation always the object ({"tndata":"NaN"}), the only form
// its readers accept.
inline bool special_as_string(Form f, NanType nan) noexcept { return f == Form::large && nan == NanType::string; }

// The field numbers of a structure in the byte order of their names, the
// order of its object's members; empty when two names are the same, which
// no object can hold (the tree writers refuse such a structure).
inline std::vector<int> field_order(const std::string* names, int count) {
  std::vector<int> order(static_cast<std::size_t>(count));
  for (int f = 0; f < count; ++f) order[std::size_t(f)] = f;
  std::sort(order.begin(), order.end(), [&](int x, int y) { return names[x] < names[y]; });
  for (std::size_t k = 1; k < order.size(); ++k)
    if (names[order[k]] == names[order[k - 1]]) return {};
  return order;
}

// Levels of JSON a form opens around each of its elements: {"tndata":[...]}
// two, {"tndata":{field:[...]}} three (two without fields), {field:...} one.
constexpr std::size_t kLargeDataLevels = 2;

}  // namespace ixtal_json::detail
