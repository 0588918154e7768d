#pragma once

// Large notation: a JSON object naming its class ("tntype"), size
// ("tnsize") and data ("tndata"). The object reader also takes the two
// other kinds of object: the special float object and the plain structure.

#include "decode/dimensions.hpp"
#include "foundation/json/value.hpp"
#include "ixtal/matrix.hpp"

namespace ixtal_json::detail {

matrix::owned_array decode_object(const foundation::json::Object& obj);

// What a class's reader gets: the object (for its optional keys), its
// "tndata" value and the sizes read from "tnsize".
struct large_format_context {
  const foundation::json::Object& object;
  const foundation::json::Value& data;
  const dims_vector& dims;
};

}  // namespace ixtal_json::detail
