#pragma once

// A numeric, logical or cell array in large notation read from the text
// straight into its host array, with no value tree between: the large
// request body of one class ({"tntype":..., "tnsize":[...], "tndata":[...]})
// then costs its text, its array and one double per element while it is
// read; a cell of records costs its host arrays.
// Whatever the reader does not take is left to the general path, which
// gives the same array or raises the error.

#include <optional>
#include <string_view>

#include "ixtal/matrix.hpp"

namespace ixtal_json {

// The array that parsing text and decoding the tree gives, when text is an
// object of exactly the members "tntype" (a numeric class, logical or
// cell), "tnsize" and "tndata" (a flat list of JSON numbers, or of booleans
// for logical; for a cell, of the elements decode/element_reader.hpp
// takes), in any order, and every element passes its class's rule; nullopt
// for any other text. Raises nothing: out of memory, it too leaves the
// text to the general path.
template <class Char>
std::optional<matrix::owned_array> read_large_numeric(std::basic_string_view<Char> text);

}  // namespace ixtal_json
