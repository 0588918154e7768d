#pragma once

// Decoding in one pass: the grammar's handler that builds host arrays
// straight from the text, with no value tree between. It reads every kind
// of document (small notation of any depth, large notation of every class
// with its keys in any order, special float objects, plain structures,
// cells, responses) and takes a text only when it gives exactly what the
// general path gives. It declines the rest, so that the general path gives
// the array or raises the error:
// - any text that fails to parse, and any conversion error, whose report
//   (identifier, arguments, which fault comes first) is the general path's;
// - small notation whose nested arrays are not all of one size per level
//   (valid only under a single outer element, where the general path reads
//   the first elements alone);
// - a plain structure whose fields come before a "tntype" or "tndata" that
//   makes it something else, when such a field does not convert;
// - whatever runs out of memory: the general path's answer may need none.

#include <optional>
#include <string_view>

#include "ixtal/matrix.hpp"

namespace ixtal_json {

// What dovra.json.decode gives for text, or nullopt where the reader
// declines. Raises nothing.
std::optional<matrix::owned_array> read_document(std::u16string_view text);

// What the response builtin gives for text (an n-by-1 cell of the decoded
// elements of {"lhs":[...]}, each with the returned scope, or false for a
// document of another shape), or nullopt where the reader declines.
std::optional<matrix::owned_array> read_response(std::u16string_view text);

}  // namespace ixtal_json
