#include "decode/response.hpp"

#include "decode/driver.hpp"
#include "errors/decode_errors.hpp"
#include "host/json_keys.hpp"

namespace ixtal_json {

void decode_response(foundation::json::Value& root, ixArray*& out, std::optional<std::u16string_view> text) {
  // Any document that is not {"lhs":[...]} is answered with false, whatever
  // goes wrong while finding out.
  const foundation::json::Array* lhs = nullptr;
  try {
    if (root.is_object()) {
      // Inserting an absent "lhs" as null makes "absent" one more wrong kind.
      foundation::json::Value& member = root.as_object()[keys::lhs];
      if (member.is_array()) lhs = &member.as_array();
    }
  } catch (...) {
    lhs = nullptr;
  }
  if (!lhs) {
    out = ixCreateLogicalScalar(false);
    return;
  }

  ixArray* cell = ixCreateCellMatrix(lhs->size(), 1);
  out = cell;
  for (std::size_t i = 0; i < lhs->size(); ++i) {
    auto value = dovra_errors::translate_decode_errors(
        [&] { return detail::decode_element_at((*lhs)[i], keys::lhs, i); }, text);
    ixSetArrayScope(value.get(), kReturnedScope);
    ixSetCell(cell, i, value.release());
  }
}

}  // namespace ixtal_json
