#include "ixtal/string_array.hpp"

#include <stdexcept>
#include <string>

#include "array_record.hpp"

using ixtal::detail::check_index;

namespace Tovenar::String {

bool isString(const ixArray* a) noexcept {
  return a && a->class_id == ixOBJECT_CLASS && a->extra && a->extra->class_name == "string" &&
         a->extra->texts.size() == ixGetNumberOfElements(a);
}

std::optional<std::u16string_view> getString(const ixArray* a, ixSize index) {
  if (!isString(a)) throw std::invalid_argument("getString: not a string array");
  check_index(a, index, "getString");
  if (a->extra->missing[index]) return std::nullopt;
  return std::u16string_view(a->extra->texts[index]);
}

void setString(ixArray* a, ixSize index, std::optional<std::u16string_view> text) {
  if (!isString(a)) throw std::invalid_argument("setString: not a string array");
  check_index(a, index, "setString");
  a->extra->texts[index] = text ? std::u16string(*text) : std::u16string();
  a->extra->missing[index] = !text;
}

}  // namespace Tovenar::String
