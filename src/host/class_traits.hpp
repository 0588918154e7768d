#pragma once

// What the builtins add to the runtime's class table (ixtal/classes.hpp):
// each element type's "tntype" value, and for the integer classes the bounds
// a double must stay strictly inside. Decoder, encoder and tests iterate over
// these lists instead of spelling out each class.

#include <complex>
#include <cstdint>
#include <limits>
#include <tuple>
#include <type_traits>

#include "foundation/json/ixtal_type.hpp"
#include "ixtal/array.hpp"
#include "ixtal/classes.hpp"

namespace ixtal_json::detail {

using ixtal::type_list;

template <class T> struct type_tag {
  using type = T;
};

// Calls f(type_tag<T>{}) for each T of the list, in order.
template <class... T, class F>
constexpr void for_each_type(type_list<T...>, F&& f) {
  (f(type_tag<T>{}), ...);
}

namespace type_search {
template <class T, class... U>
constexpr int index_of(type_list<U...>) {
  int i = 0, found = -1;
  ((std::is_same_v<T, U> ? found = i : 0, ++i), ...);
  return found;
}
template <class... T>
type_list<T...> as_list(std::tuple<T...>);
// The types of the list for which Keep<T>::value holds, in order.
template <template <class> class Keep, class... T>
using filter = decltype(as_list(std::tuple_cat(std::conditional_t<Keep<T>::value, std::tuple<T>, std::tuple<>>{}...)));
template <template <class> class Keep, class... T>
filter<Keep, T...> filter_list(type_list<T...>);
}  // namespace type_search

// The properties of the class whose elements are T (a complex T: its part's).
template <class T>
struct element_traits {
  using type = T;
  // Spelled ixtal::class_of_element<T>::id elsewhere; kept until code in
  // flight stops using it.
  static constexpr ixClassID class_id = ixtal::class_of_element<T>::id;
  static constexpr IxtalType ixtal_type = IxtalType(type_search::index_of<T>(ixtal_element_types{}));
  // The host class name, which is also the "tntype" name.
  static constexpr const char* name = ixtal::class_of_element<T>::name;
};
template <class T> struct element_traits<std::complex<T>> : element_traits<T> {};

namespace type_search {
template <class T>
constexpr bool numeric_element() {
  if constexpr (index_of<T>(ixtal_element_types{}) < 0) return false;
  else return ixtal::class_of_element<T>::numeric;
}
template <class T> struct numeric : std::bool_constant<numeric_element<T>()> {};
template <class T> struct integer : std::bool_constant<numeric_element<T>() && std::is_integral_v<T>> {};
}  // namespace type_search

// Whether T is the element type of a numeric class, of an integer class.
template <class T> inline constexpr bool is_numeric_element = type_search::numeric<T>::value;
template <class T> inline constexpr bool is_integer_element = type_search::integer<T>::value;

// The ten numeric classes and the eight integer ones, in "tntype" order.
using numeric_types = decltype(type_search::filter_list<type_search::numeric>(ixtal_element_types{}));
using integer_types = decltype(type_search::filter_list<type_search::integer>(ixtal_element_types{}));

// A double x converts to the integer class T only when
// integer_lower<T> < x < integer_upper<T>. For int64 the lower bound is
// -2^63 itself: -2^63 - 1 has no double, so the most negative int64 is out.
template <class T>
inline constexpr double integer_lower = static_cast<double>(std::numeric_limits<T>::min()) - 1.0;
template <class T>
inline constexpr double integer_upper = static_cast<double>(std::numeric_limits<T>::max()) + 1.0;

static_assert(integer_lower<std::int8_t> == -129.0 && integer_upper<std::int8_t> == 128.0);
static_assert(integer_lower<std::int64_t> == -9223372036854775808.0);
static_assert(integer_upper<std::int64_t> == 9223372036854775808.0);
static_assert(integer_lower<std::uint64_t> == -1.0 && integer_upper<std::uint64_t> == 18446744073709551616.0);

// Calls f(type_tag<T>{}) for the numeric T whose host class is cls; false
// when cls is not numeric.
template <class F>
bool with_numeric_class(ixClassID cls, F&& f) {
  return ixtal::visit_class(
      cls,
      [&](auto row) {
        using Row = decltype(row);
        if constexpr (Row::numeric) {
          f(type_tag<typename Row::element_type>{});
          return true;
        } else {
          return false;
        }
      },
      [] { return false; });
}

}  // namespace ixtal_json::detail
