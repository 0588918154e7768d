#pragma once

// The special float object, {"tndata":"NaN"}, {"tndata":"Inf"} or
// {"tndata":"-Inf"}: JSON has no number for these values.

#include "foundation/json/value.hpp"
#include "decode/rules.hpp"
#include "host/json_keys.hpp"

namespace ixtal_json::detail {

// The value of obj read as a special float object; false when obj is not
// one. Callers report the failure in their own terms, so no text is made.
inline bool read_special_float(const foundation::json::Object& obj, double& out) noexcept {
  const auto it = obj.find(keys::tndata);
  if (it == obj.end() || !it->second.is_string()) return false;
  return special_float_value(it->second.as_string(), out);
}

}  // namespace ixtal_json::detail
