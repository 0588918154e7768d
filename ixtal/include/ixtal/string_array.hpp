#pragma once

// Host string arrays (class "string"): each element is a UTF-16 text or
// missing.

#include <optional>
#include <string>
#include <string_view>

#include "ixtal/array.hpp"
#include "ixtal/export.hpp"

namespace Tovenar::String {

IXTAL_API bool isString(const ixArray* a) noexcept;
// The text of element index; nullopt for a missing element.
IXTAL_API std::optional<std::u16string_view> getString(const ixArray* a, ixSize index);
// Sets element index; nullopt makes it missing.
IXTAL_API void setString(ixArray* a, ixSize index, std::optional<std::u16string_view> text);

}  // namespace Tovenar::String
