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
    case kInt8: return vis(ixtal_type_tag<kInt8>{});
    case kInt16: return vis(ixtal_type_tag<kInt16>{});
    case kInt32: return vis(ixtal_type_tag<kInt32>{});
    case kInt64: return vis(ixtal_type_tag<kInt64>{});
    case kUint8: return vis(ixtal_type_tag<kUint8>{});
    case kUint16: return vis(ixtal_type_tag<kUint16>{});
    case kUint32: return vis(ixtal_type_tag<kUint32>{});
    case kUint64: return vis(ixtal_type_tag<kUint64>{});
    case kSingle: return vis(ixtal_type_tag<kSingle>{});
    case kDouble: return vis(ixtal_type_tag<kDouble>{});
    case kLogical: return vis(ixtal_type_tag<kLogical>{});
    case kChar: return vis(ixtal_type_tag<kChar>{});
    case kCell: return vis(ixtal_type_tag<kCell>{});
    case kStruct: return vis(ixtal_type_tag<kStruct>{});
    case kObject: return vis(ixtal_type_tag<kObject>{});
    case kEnum: return vis(ixtal_type_tag<kEnum>{});
    case kString: return vis(ixtal_type_tag<kString>{});
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

static_assert(std::is_same_v<element_type_of<kUint16>, std::uint16_t>);
static_assert(std::is_same_v<element_type_of<kLogical>, bool>);

inline constexpr bool is_numeric_type(IxtalType x) noexcept { return x <= kDouble; }

}  // namespace ixtal_json::detail
