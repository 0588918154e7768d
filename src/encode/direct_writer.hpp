#pragma once

// Compact text written straight from the host arrays, without the value
// tree: the tree costs a node per element, a heap string per text, a walk
// to size the result and another to write it, which for arrays of many
// small arrays is most of the encode. It serves the arrays whose tree the
// converter builds without an error and writes the text the serializer
// writes for that tree, byte for byte.

#include "encode/modes.hpp"
#include "ixtal/array.hpp"

namespace ixtal_json::detail {

// The encoded char row of `a`, or null when the array is one the writer
// leaves to the tree: a class or storage without a JSON form, small-notation
// numbers of more than two dimensions, containers nested very deeply, and
// anything malformed. Those keep the tree's errors and texts.
ixArray* write_direct(const ixArray* a, ToJsonMode mode, NanType nan);

}  // namespace ixtal_json::detail
