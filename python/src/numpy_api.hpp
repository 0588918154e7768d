#pragma once

// NumPy's C interface, shared by the module's files: module.cpp imports it
// once (import_numpy), the others use that import.

#include <Python.h>

#define PY_ARRAY_UNIQUE_SYMBOL dovra_json_ARRAY_API
#define NPY_NO_DEPRECATED_API NPY_1_7_API_VERSION
#ifndef DOVRA_PYTHON_IMPORTS_NUMPY
#define NO_IMPORT_ARRAY
#endif
#include <numpy/arrayobject.h>
#include <numpy/arrayscalars.h>
