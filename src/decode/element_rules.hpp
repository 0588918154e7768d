#pragma once

// One rule per element class: a JSON value from "tndata" or from a
// small-notation array to one host element. A rule answers false instead of
// throwing, so the fill loops stay free of exceptions and each caller
// reports a refusal in its own terms (large notation by class, small
// notation as a mix of kinds).

#include <cmath>
#include <limits>
#include <type_traits>

#include "errors/conversion_exceptions.hpp"
#include "decode/nonfinite_object.hpp"
#include "foundation/json/value.hpp"
#include "host/class_traits.hpp"

namespace ixtal_json::detail {

// Integers: an integral JSON number strictly inside the class's bounds.
// trunc(x) != x also refuses NaN; infinities pass it and fail the bounds.
template <class T>
  requires is_integer_element<T>
inline bool convert_number(double x, T& out) noexcept {
  if (std::trunc(x) != x) return false;
  if (!(x > integer_lower<T> && x < integer_upper<T>)) return false;
  out = static_cast<T>(x);
  return true;
}

template <class T>
  requires is_integer_element<T>
inline bool convert_element(const foundation::json::Value& v, T& out) noexcept {
  return v.is_double() && convert_number(v.as_double(), out);
}

// Floating classes: a JSON number or a special float object. A number for
// a narrower class must lie in the closed range of its finite values (no
// rounding up to infinity) and then narrows to the nearest value, tiny
// magnitudes to zero. double takes every number as it stands.
template <class T>
  requires std::is_floating_point_v<T>
inline bool convert_number(double x, T& out) noexcept {
  if constexpr (!std::is_same_v<T, double>) {
    constexpr double largest = static_cast<double>(std::numeric_limits<T>::max());
    if (x < -largest || x > largest) return false;
  }
  out = static_cast<T>(x);
  return true;
}

template <class T>
  requires std::is_floating_point_v<T>
inline bool convert_element(const foundation::json::Value& v, T& out) noexcept {
  if (v.is_double()) return convert_number(v.as_double(), out);
  double x;
  if (!v.is_object() || !read_special_float(v.as_object(), x)) return false;
  out = static_cast<T>(x);
  return true;
}

inline bool convert_element(const foundation::json::Value& v, bool& out) noexcept {
  if (!v.is_bool()) return false;
  out = v.as_bool();
  return true;
}

// What large notation reports when the rule of T refuses an element, at
// the element steps lead to.
template <class T, class... Steps>
[[noreturn]] void throw_element_error(const Steps&... steps) {
  if constexpr (std::is_same_v<T, bool>) throw fault_at(InvalidLogicalElem(), steps...);
  else if constexpr (std::is_floating_point_v<T>) throw fault_at(InvalidFloatingElem(element_traits<T>::name), steps...);
  else throw fault_at(InvalidIntegralElem(element_traits<T>::name), steps...);
}

}  // namespace ixtal_json::detail
