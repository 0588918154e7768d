#pragma once

// Writers for numeric and logical arrays.

#include "encode/forms.hpp"
#include "encode/modes.hpp"
#include "encode/nesting.hpp"
#include "foundation/json/value.hpp"
#include "ixtal/array.hpp"

namespace ixtal_json::detail {

// The large-notation object of an array of any of the ten numeric classes,
// real or complex. Other classes throw IxUnsupportedType; the checked view
// throws std::invalid_argument for sparse storage.
foundation::json::Value write_numeric_large(const ixArray* a, NanType nan, const nesting& depth);

// A real double in its form (forms.hpp): [], the bare number, nested arrays
// or the large object.
foundation::json::Value write_double(const ixArray* a, Form form, NanType nan, const nesting& depth);

// A logical in its form: the bare boolean, nested arrays or the large object.
foundation::json::Value write_logical(const ixArray* a, Form form, const nesting& depth);

}  // namespace ixtal_json::detail
