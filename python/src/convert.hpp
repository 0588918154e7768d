#pragma once

// Host arrays <-> Python objects. The mapping is documented in
// docs/python.md; both directions hold the GIL except where they say so.

#include <pybind11/pybind11.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "ixtal/array.hpp"
#include "ixtal/errors.hpp"
#include "ixtal/matrix.hpp"

namespace dovra_python {

// Takes over the array: a large numeric array's data are handed to NumPy
// without a copy; everything else is copied into Python objects and the
// array destroyed.
pybind11::object to_python(matrix::owned_array a);

// The outputs a response cell holds, as a list.
pybind11::list outputs_to_python(matrix::owned_array response);

// A new host array for a Python value. TypeError names an unsupported type,
// OverflowError an int JSON cannot hold exactly, ValueError a container
// that contains itself; nesting deeper than the library writes raises its
// EncodeNestingTooDeep (as ixtal::HostError).
matrix::owned_array from_python(pybind11::handle value);

// UTF-16 code units as a str (lone surrogates kept).
pybind11::str chars_to_str(const char16_t* units, std::size_t n);
// UTF-16 code units as UTF-8 bytes (lone surrogates as Python's
// "surrogatepass" writes them); the GIL is released for large texts.
pybind11::bytes chars_to_utf8(const char16_t* units, std::size_t n);
// A char row of a str's characters (0-by-0 when empty), without one final
// line ending if asked; the GIL is released while long texts are written.
matrix::owned_array str_to_chars(pybind11::handle text, bool drop_final_line_ending);

// An error of this module with a catalogued identifier (docs/python.md),
// raised as dovra_json.Error like the library's own.
inline ixtal::HostError module_error(std::string identifier, std::vector<resource_core::MsgArg> args,
                                     std::string message) {
  return ixtal::HostError(std::move(identifier), std::move(args), std::move(message));
}

}  // namespace dovra_python
