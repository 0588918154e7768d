#pragma once

// Char arrays from the UTF-8 strings of the value tree.

#include <string>

#include "decode/dimensions.hpp"
#include "ixtal/matrix.hpp"

namespace ixtal_json::detail {

// A 1-by-N char row of the UTF-16 form of utf8; 0-by-0 when it is empty.
matrix::owned_array char_row(const std::string& utf8);

// A char array of these dimensions holding the UTF-16 code units of utf8 in
// storage order. MismatchedTNSize when the number of units is not the
// number of elements.
matrix::owned_array char_array(const std::string& utf8, const dims_vector& dims);

}  // namespace ixtal_json::detail
