#pragma once

// The classes a JSON document can name in "tntype", in their fixed order.
// The host JSON library maps names to these values; the builtins dispatch
// on them.

#include <cstdint>
#include <string_view>

#include "ixtal/classes.hpp"
#include "ixtal/export.hpp"

namespace ixtal_json::detail {

// Scoped: Value::Kind also has a kDouble, a kString and a kObject.
enum class IxtalType : std::int32_t {
  kInt8 = 0, kInt16 = 1, kInt32 = 2, kInt64 = 3,
  kUint8 = 4, kUint16 = 5, kUint32 = 6, kUint64 = 7,
  kSingle = 8, kDouble = 9, kLogical = 10, kChar = 11,
  kCell = 12, kStruct = 13, kObject = 14, kEnum = 15, kString = 16,
};
inline constexpr int kIxtalTypeCount = 17;

// The element types in "tntype" order: the first of these IxtalType values
// (kInt8 .. kChar) each name the class of one of them, and that class's host
// name is its "tntype" name. The values after them are containers.
using ixtal_element_types = ixtal::type_list<std::int8_t, std::int16_t, std::int32_t, std::int64_t, std::uint8_t,
                                             std::uint16_t, std::uint32_t, std::uint64_t, float, double, bool, char16_t>;
inline constexpr int kIxtalElementTypeCount = 12;
static_assert(IxtalType(kIxtalElementTypeCount) == IxtalType::kCell, "element types come first, then containers");

}  // namespace ixtal_json::detail

// Exact, case-sensitive; throws std::invalid_argument for any other text.
IXTAL_API ixtal_json::detail::IxtalType ixtal_type_for_name(std::string_view name);
// The "tntype" name of a type; "" for a value outside the enumeration.
IXTAL_API const char* ixtal_type_name(ixtal_json::detail::IxtalType type) noexcept;
