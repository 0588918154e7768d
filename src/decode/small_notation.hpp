#pragma once

// Small notation: a JSON array of numbers or booleans, possibly nested,
// becomes a double or logical array whose first dimension is the outermost
// JSON level.

#include "foundation/json/value.hpp"
#include "ixtal/matrix.hpp"

namespace ixtal_json::detail {

matrix::owned_array decode_small_array(const foundation::json::Array& outer);

}  // namespace ixtal_json::detail
