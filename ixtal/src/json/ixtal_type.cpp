#include "foundation/json/ixtal_type.hpp"

#include <array>
#include <stdexcept>
#include <string>

namespace {

using ixtal_json::detail::IxtalType;

// The element types take their host class's name; the containers that are
// host classes too take theirs. Enumerations and string arrays have no class
// ID of their own.
constexpr auto kNames = [] {
  std::array<const char*, ixtal_json::detail::kIxtalTypeCount> names{};
  std::size_t i = 0;
  ixtal::for_each_of(ixtal_json::detail::ixtal_element_types{},
                     [&](auto element) { names[i++] = ixtal::class_of_element<decltype(element)>::name; });
  names[std::size_t(IxtalType::kCell)] = ixtal::info_of(ixCELL_CLASS).name;
  names[std::size_t(IxtalType::kStruct)] = ixtal::info_of(ixSTRUCT_CLASS).name;
  names[std::size_t(IxtalType::kObject)] = ixtal::info_of(ixOBJECT_CLASS).name;
  names[std::size_t(IxtalType::kEnum)] = "enum";
  names[std::size_t(IxtalType::kString)] = "string";
  return names;
}();

}  // namespace

IxtalType ixtal_type_for_name(std::string_view name) {
  for (std::size_t i = 0; i < kNames.size(); ++i)
    if (name == kNames[i]) return static_cast<IxtalType>(i);
  throw std::invalid_argument("unknown type name: " + std::string(name));
}

const char* ixtal_type_name(IxtalType type) noexcept {
  const auto i = static_cast<std::int32_t>(type);
  return i >= 0 && i < ixtal_json::detail::kIxtalTypeCount ? kNames[std::size_t(i)] : "";
}
