#pragma once

// The pieces every large-notation object shares: "tnsize", the count check
// and the assembled object.

#include <span>

#include "foundation/json/value.hpp"
#include "ixtal/array.hpp"
#include "ixtal/shape.hpp"

namespace ixtal_json::detail {

using ixtal::dims_of;

// "tnsize": one number per dimension. Throws std::runtime_error for fewer
// than two dimensions.
foundation::json::Array tnsize_of(std::span<const ixSize> dims);

// Throws std::runtime_error when the elements written are not the product
// of the dimensions.
void check_count(std::size_t written, std::span<const ixSize> dims);

// {"tncomplex":true?, "tndata":data, "tnsize":size, "tntype":type}
foundation::json::Value large_object(const char* type, foundation::json::Array size, foundation::json::Value data,
                                     bool complex = false);

}  // namespace ixtal_json::detail
