#pragma once

// A matrix of numbers read from the text straight into its host array, with
// no value tree between: the most common large request body (rows of
// numbers) then costs its text and its array, and nothing of the size of
// either besides. Whatever the reader does not take is left to the general
// path, which gives the same array or raises the error.

#include <optional>
#include <string_view>

#include "ixtal/matrix.hpp"

namespace ixtal_json {

// The double array that parsing text and decoding the tree gives, when
// text is nothing but nested arrays of JSON numbers, at least two levels
// deep, with every array of a level of one and the same non-zero size.
// nullopt for any other text, valid or not; nothing is raised but a failed
// allocation of the reader's own small buffers.
template <class Char>
std::optional<matrix::owned_array> read_number_matrix(std::basic_string_view<Char> text);

}  // namespace ixtal_json
