#include "foundation/json/ixtal_type.hpp"

#include <array>
#include <stdexcept>
#include <string>

namespace {
constexpr std::array<const char*, ixtal_json::detail::kIxtalTypeCount> kNames = {
    "int8",   "int16",  "int32",   "int64", "uint8", "uint16", "uint32", "uint64", "single",
    "double", "logical", "char", "cell", "struct", "object", "enum",   "string"};
}

ixtal_json::detail::IxtalType ixtal_type_for_name(std::string_view name) {
  for (std::size_t i = 0; i < kNames.size(); ++i)
    if (name == kNames[i]) return static_cast<ixtal_json::detail::IxtalType>(i);
  throw std::invalid_argument("unknown type name: " + std::string(name));
}

const char* ixtal_type_name(ixtal_json::detail::IxtalType type) noexcept {
  const auto i = static_cast<std::int32_t>(type);
  return i >= 0 && i < ixtal_json::detail::kIxtalTypeCount ? kNames[std::size_t(i)] : "";
}
