#pragma once

// Reading a text argument: a char array, or a non-missing string scalar.

#include <string_view>

#include "ixtal/array.hpp"

namespace dovra_host {

enum class TextShape {
  any,        // any char array, its characters in element order
  row_or_empty // a 1-by-N or 0-by-0 char array
};

// The argument's UTF-16 text, valid while the argument lives. An unusable
// argument (null, another class, a char array of the wrong shape, a string
// array that is not 1-by-1) throws the IXTAL:string:MustBeStringScalarOrCharacterVector
// exception; a missing string IXTAL:string:MissingNotSupported. Both are
// thrown as exceptions, not raised, so that the caller can raise its own.
std::u16string_view read_text_argument(const ixArray* a, TextShape shape);

}  // namespace dovra_host
