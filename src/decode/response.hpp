#pragma once

// The response-decode builtin's two paths: the general one over the value
// tree, and a reader that takes the common response (strings, numbers,
// booleans and records) straight from the text into the cell.

#include <optional>
#include <string_view>

#include "foundation/json/value.hpp"
#include "ixtal/matrix.hpp"

namespace ixtal_json {

// The scope code the host expects on every array a decode hands back.
inline constexpr int kReturnedScope = 4;

// {"lhs":[...]} becomes an n-by-1 cell of the decoded elements, each with
// the returned scope; any other document becomes false. out receives the
// result as soon as it exists: a failing element leaves the cell, partly
// filled, to whoever holds out.
void decode_response(foundation::json::Value& root, ixArray*& out);

// The same cell for a text that is exactly {"lhs":[...]} whose elements
// decode/element_reader.hpp takes (white space anywhere between); nullopt
// for any other text, valid or not. Raises nothing: out of memory, it too
// leaves the text to the general path.
template <class Char>
std::optional<matrix::owned_array> read_response(std::basic_string_view<Char> text);

}  // namespace ixtal_json
