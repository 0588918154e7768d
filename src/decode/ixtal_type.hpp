#pragma once

// Turning a run-time IxtalType into a compile-time tag, so that each class
// gets its own instantiation of a reader instead of a switch per element.

#include <boost/throw_exception.hpp>
#include <stdexcept>
#include <tuple>
#include <type_traits>

#include "foundation/json/ixtal_type.hpp"
#include "host/class_traits.hpp"

namespace ixtal_json::detail {

template <IxtalType X>
using ixtal_type_tag = std::integral_constant<IxtalType, X>;

namespace type_search {
template <int I, class Visitor>
decltype(auto) dispatch_from(IxtalType type, Visitor& vis) {
  if (type == IxtalType(I)) return vis(ixtal_type_tag<IxtalType(I)>{});
  if constexpr (I + 1 < kIxtalTypeCount) return dispatch_from<I + 1>(type, vis);
  else boost::throw_exception(std::runtime_error("invalid IxtalType"));
}
template <std::size_t I, class... T>
std::tuple_element_t<I, std::tuple<T...>> at(type_list<T...>);
}  // namespace type_search

// Calls vis(ixtal_type_tag<type>{}). A value outside the enumeration can
// only come from a corrupted caller, never from a document.
template <class Visitor>
decltype(auto) dispatch_on_IxtalType(IxtalType type, Visitor&& vis) {
  return type_search::dispatch_from<0>(type, vis);
}

// The C++ element type of a numeric, logical or char class.
template <IxtalType X>
using element_type_of = decltype(type_search::at<std::size_t(X)>(ixtal_element_types{}));

static_assert(std::is_same_v<element_type_of<IxtalType::kUint16>, std::uint16_t>);
static_assert(std::is_same_v<element_type_of<IxtalType::kLogical>, bool>);

// The numeric classes lead the "tntype" order.
template <class... T>
constexpr int size_of(type_list<T...>) { return int(sizeof...(T)); }
static_assert(std::is_same_v<element_type_of<IxtalType(size_of(numeric_types{}) - 1)>, double>);
inline constexpr bool is_numeric_type(IxtalType x) noexcept {
  return int(x) >= 0 && int(x) < size_of(numeric_types{});
}

}  // namespace ixtal_json::detail
