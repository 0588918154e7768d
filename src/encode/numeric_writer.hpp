#pragma once

// Writers for numeric and logical arrays.

#include "encode/modes.hpp"
#include "encode/nesting.hpp"
#include "foundation/json/value.hpp"
#include "ixtal/array.hpp"

namespace ixtal_json::detail {

// The large-notation object of an array of any of the ten numeric classes,
// real or complex. Other classes throw IxUnsupportedType; the checked view
// throws std::invalid_argument for sparse storage.
foundation::json::Value write_numeric_large(const ixArray* a, NanType nan, const nesting& depth);

// A real double in small notation: `[]` for 0-by-0, the bare number for
// 1-by-1, nested arrays for other non-empty shapes, and the large object
// for empty shapes that `[]` would lose.
foundation::json::Value write_double_small(const ixArray* a, NanType nan, const nesting& depth);

foundation::json::Value write_logical_large(const ixArray* a, const nesting& depth);
// As for double, except that every empty logical is the large object: `[]`
// reads back as double.
foundation::json::Value write_logical_small(const ixArray* a, const nesting& depth);

}  // namespace ixtal_json::detail
