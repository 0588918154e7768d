#pragma once

// The writers for cell and structure arrays. They encode each contained
// array with the converter that called them, so nested arrays follow the
// same notation and NaN form.

#include <functional>

#include "encode/nesting.hpp"
#include "foundation/json/value.hpp"
#include "ixtal/array.hpp"

namespace ixtal_json::detail {

// The calling converter, held by reference.
using element_encoder = std::function<foundation::json::Value(const ixArray*)>;

// {"tndata":[one value per element],"tnsize":...,"tntype":"cell"}, in both
// notations; unset elements are written as the empty double.
foundation::json::Value write_cell(const ixArray* a, const element_encoder& encode, nesting& depth);

// {"tndata":{field:[one value per element]},"tnsize":...,"tntype":"struct"}.
foundation::json::Value write_struct_large(const ixArray* a, const element_encoder& encode, nesting& depth);

// A 1-by-1 structure as a plain object, a 0-by-0 one without fields as {},
// anything else in the large layout; values in small notation.
foundation::json::Value write_struct_small(const ixArray* a, const element_encoder& encode, nesting& depth);

}  // namespace ixtal_json::detail
