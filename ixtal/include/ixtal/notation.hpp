#pragma once

// How the host writes where a value lies inside a cell or structure array,
// and text that must not break a line: dovra-json's display and the paths of
// encode errors write them alike.

#include <string>
#include <string_view>

#include "ixtal/array.hpp"
#include "ixtal/export.hpp"

namespace ixtal {

// The units as UTF-8 with control characters escaped (\n, \r, \t, \0,
// \xHH, \u0085), so they cannot break a layout.
IXTAL_API std::string readable(std::u16string_view units);

// Subscripts of element i (from 0) of a, from 1: "k" when a is a vector
// (or a scalar), "r,c,..." otherwise.
IXTAL_API std::string subscripts(const ixArray* a, ixSize i);

// A field name as written: itself when it is made of letters, digits and
// underscores, otherwise quoted, 'name', and readable.
IXTAL_API std::string field_label(const std::string& name);

}  // namespace ixtal
