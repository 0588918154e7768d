#pragma once

// Turning a run-time IxtalType into a compile-time tag, so that each class
// gets its own instantiation of a reader instead of a switch per element.

#include <boost/throw_exception.hpp>
#include <stdexcept>
#include <type_traits>

#include "foundation/json/ixtal_type.hpp"
#include "host/class_traits.hpp"

namespace ixtal_json::detail {

template <IxtalType X>
using ixtal_type_tag = std::integral_constant<IxtalType, X>;

// Calls vis(ixtal_type_tag<type>{}). A value outside the enumeration can
// only come from a corrupted caller, never from a document.
template <class Visitor>
decltype(auto) dispatch_on_IxtalType(IxtalType type, Visitor&& vis) {
  switch (type) {
    case IxtalType::kInt8: return vis(ixtal_type_tag<IxtalType::kInt8>{});
    case IxtalType::kInt16: return vis(ixtal_type_tag<IxtalType::kInt16>{});
    case IxtalType::kInt32: return vis(ixtal_type_tag<IxtalType::kInt32>{});
    case IxtalType::kInt64: return vis(ixtal_type_tag<IxtalType::kInt64>{});
    case IxtalType::kUint8: return vis(ixtal_type_tag<IxtalType::kUint8>{});
    case IxtalType::kUint16: return vis(ixtal_type_tag<IxtalType::kUint16>{});
    case IxtalType::kUint32: return vis(ixtal_type_tag<IxtalType::kUint32>{});
    case IxtalType::kUint64: return vis(ixtal_type_tag<IxtalType::kUint64>{});
    case IxtalType::kSingle: return vis(ixtal_type_tag<IxtalType::kSingle>{});
    case IxtalType::kDouble: return vis(ixtal_type_tag<IxtalType::kDouble>{});
    case IxtalType::kLogical: return vis(ixtal_type_tag<IxtalType::kLogical>{});
    case IxtalType::kChar: return vis(ixtal_type_tag<IxtalType::kChar>{});
    case IxtalType::kCell: return vis(ixtal_type_tag<IxtalType::kCell>{});
    case IxtalType::kStruct: return vis(ixtal_type_tag<IxtalType::kStruct>{});
    case IxtalType::kObject: return vis(ixtal_type_tag<IxtalType::kObject>{});
    case IxtalType::kEnum: return vis(ixtal_type_tag<IxtalType::kEnum>{});
    case IxtalType::kString: return vis(ixtal_type_tag<IxtalType::kString>{});
  }
  boost::throw_exception(std::runtime_error("invalid IxtalType"));
}

namespace type_search {
template <IxtalType X>
constexpr void find(type_list<>) {}  // no element type: a container class
template <IxtalType X, class First, class... Rest>
constexpr auto find(type_list<First, Rest...>) {
  if constexpr (element_traits<First>::ixtal_type == X) return type_tag<First>{};
  else return find<X>(type_list<Rest...>{});
}
using element_types = type_list<std::int8_t, std::int16_t, std::int32_t, std::int64_t, std::uint8_t, std::uint16_t,
                                std::uint32_t, std::uint64_t, float, double, bool, char16_t>;
}  // namespace type_search

// The C++ element type of a numeric, logical or char class.
template <IxtalType X>
using element_type_of = typename decltype(type_search::find<X>(type_search::element_types{}))::type;

static_assert(std::is_same_v<element_type_of<IxtalType::kUint16>, std::uint16_t>);
static_assert(std::is_same_v<element_type_of<IxtalType::kLogical>, bool>);

inline constexpr bool is_numeric_type(IxtalType x) noexcept { return x <= IxtalType::kDouble; }

}  // namespace ixtal_json::detail
