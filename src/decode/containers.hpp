#pragma once

// The container classes of large notation, and the plain structure object.
// Each value they hold is decoded by the top-level visitor.
//
// "cell":   "tndata" an array of one value per element, in storage order.
// "struct": "tndata" an object with one key per field, each key's value an
//           array of one value per element, in storage order.
// "string": "tndata" an array of one JSON string (or null, for a missing
//           string) per element, in storage order.

#include "decode/large_notation.hpp"
#include "foundation/json/value.hpp"
#include "ixtal/matrix.hpp"

namespace ixtal_json::detail {

matrix::owned_array read_cell(const large_format_context& ctx);
matrix::owned_array read_struct(const large_format_context& ctx);
matrix::owned_array read_string_array(const large_format_context& ctx);

// An object that is neither large notation nor a special float: a 1-by-1
// structure with one field per key, in the object's (byte) order.
matrix::owned_array read_plain_struct(const foundation::json::Object& obj);

}  // namespace ixtal_json::detail
