#pragma once

// Host arrays <-> Python objects. The mapping is documented in
// docs/python.md; both directions hold the GIL except where they say so.

#include <pybind11/pybind11.h>

#include "ixtal/array.hpp"
#include "ixtal/matrix.hpp"

namespace dovra_python {

// Takes over the array: numeric and logical data are handed to NumPy
// without a copy.
pybind11::object to_python(matrix::owned_array a);

// A new host array for a Python value; TypeError names an unsupported type.
matrix::owned_array from_python(pybind11::handle value);

// A char array's characters in storage order as a Python str (lone
// surrogates kept).
pybind11::str chars_to_str(const ixArray* a);

}  // namespace dovra_python
