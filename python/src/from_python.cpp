// Python objects to host arrays.

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <string>
#include <vector>

#include "convert.hpp"
#include "ixtal/shape.hpp"
#include "numeric_classes.hpp"

namespace py = pybind11;
using namespace pybind11::literals;

namespace dovra_python {
namespace {

// Host arrays have at least two dimensions: a 0-d array is 1x1 and a 1-d
// array of n elements a 1xn row.
std::vector<ixSize> host_dims(const py::array& a) {
  std::vector<ixSize> dims(a.shape(), a.shape() + a.ndim());
  while (dims.size() < 2) dims.insert(dims.begin(), 1);
  return dims;
}

py::str type_name(py::handle value) { return py::str(py::type::handle_of(value).attr("__qualname__")); }

[[noreturn]] void unsupported(py::handle value) {
  throw py::type_error("dovra_json cannot encode an object of type " + std::string(type_name(value)));
}

std::u16string utf16(py::handle text) {
  auto bytes = py::reinterpret_steal<py::object>(PyUnicode_AsEncodedString(text.ptr(), "utf-16-le", "surrogatepass"));
  if (!bytes) throw py::error_already_set();
  char* data = nullptr;
  Py_ssize_t size = 0;
  PyBytes_AsStringAndSize(bytes.ptr(), &data, &size);
  return std::u16string(reinterpret_cast<const char16_t*>(data), std::size_t(size) / 2);
}

matrix::owned_array char_row(py::handle text) { return matrix::owned_array(ixCreateStringFromUtf16(utf16(text))); }

// One copy, straight into the host array, whatever the input's strides and
// byte order: NumPy writes through a Fortran-ordered view of the host data.
matrix::owned_array numeric(const py::array& a, const NumericClass& c) {
  auto dims = host_dims(a);
  matrix::owned_array out(ixCreateUninitNumericArray(dims.size(), dims.data(), c.cls, c.complex ? ixCOMPLEX : ixREAL));
  if (c.cls == ixLOGICAL_CLASS) out.reset(ixCreateLogicalArray(dims.size(), dims.data()));
  if (ixGetNumberOfElements(out.get()) == 0) return out;
  std::vector<py::ssize_t> shape(dims.begin(), dims.end());
  const std::vector<py::ssize_t> strides = ixtal::strides_of(dims, py::ssize_t(c.itemsize));
  py::array view(dtype_of(c), shape, strides, ixGetData(out.get()), py::none());
  py::module_::import("numpy").attr("copyto")(view, a.attr("reshape")(py::tuple(py::cast(shape))));
  return out;
}

matrix::owned_array record(const py::dict& d) {
  std::vector<std::string> names;
  for (auto item : d) {
    if (!py::isinstance<py::str>(item.first))
      throw py::type_error("dict keys must be str to become field names, not " + std::string(type_name(item.first)));
    names.push_back(item.first.cast<std::string>());
  }
  matrix::owned_array out(ixCreateStructMatrix(1, 1, 0, nullptr));
  for (const auto& n : names) ixAddField(out.get(), n);
  int f = 0;
  for (auto item : d) ixSetFieldByNumber(out.get(), 0, f++, from_python(item.second).release());
  return out;
}

// An object array of dicts that all have the same keys in the same order is
// a structure array, except a 1x1 one, which would come back as a dict; any
// other is a cell.  The library cannot write string
// arrays, so an array of str (dtype 'U') is written as a cell of texts.
matrix::owned_array objects(const py::array& a) {
  auto dims = host_dims(a);
  auto flat = py::list(a.attr("ravel")("order"_a = "F"));
  bool dicts = py::len(flat) > 1 || (py::len(flat) == 1 && a.ndim() > 2);
  py::object keys;
  for (auto e : flat) {
    if (py::isinstance<py::dict>(e)) {
      auto k = py::list(e.cast<py::dict>().attr("keys")());
      if (!keys) keys = k;
      else if (!k.equal(keys)) dicts = false;
    } else dicts = false;
  }
  if (dicts) {
    std::vector<std::string> names;
    for (auto k : keys) names.push_back(k.cast<std::string>());
    matrix::owned_array out(ixCreateStructArray(dims.size(), dims.data(), int(names.size()), names.data()));
    ixSize i = 0;
    for (auto e : flat) {
      int f = 0;
      for (auto item : e.cast<py::dict>()) ixSetFieldByNumber(out.get(), i, f++, from_python(item.second).release());
      ++i;
    }
    return out;
  }
  matrix::owned_array out(ixCreateCellArray(dims.size(), dims.data()));
  ixSize i = 0;
  for (auto e : flat) ixSetCell(out.get(), i++, from_python(e).release());
  return out;
}

matrix::owned_array ndarray(const py::array& a) {
  auto dt = a.dtype();
  if (const auto* c = numeric_class_of(dt)) return numeric(a, *c);
  if (dt.kind() == 'O' || dt.kind() == 'U') return objects(a);
  throw py::type_error("dovra_json cannot encode a numpy.ndarray of dtype " + std::string(py::str(dt)));
}

}  // namespace

matrix::owned_array from_python(py::handle value) {
  if (PyBool_Check(value.ptr())) return matrix::owned_array(ixCreateLogicalScalar(value.ptr() == Py_True));
  if (PyLong_Check(value.ptr())) {
    int overflow = 0;
    long long v = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
    if (overflow) {
      PyErr_SetString(PyExc_OverflowError, ("int " + std::string(py::str(value)) + " does not fit in int64").c_str());
      throw py::error_already_set();
    }
    if (v == -1 && PyErr_Occurred()) throw py::error_already_set();
    matrix::owned_array out(ixCreateNumericMatrix(1, 1, ixINT64_CLASS, ixREAL));
    *static_cast<std::int64_t*>(ixGetData(out.get())) = v;
    return out;
  }
  if (PyFloat_Check(value.ptr())) return matrix::owned_array(ixCreateDoubleScalar(PyFloat_AS_DOUBLE(value.ptr())));
  if (PyComplex_Check(value.ptr())) {
    matrix::owned_array out(ixCreateDoubleMatrix(1, 1, ixCOMPLEX));
    auto* d = static_cast<double*>(ixGetData(out.get()));
    d[0] = PyComplex_RealAsDouble(value.ptr());
    d[1] = PyComplex_ImagAsDouble(value.ptr());
    return out;
  }
  if (PyUnicode_Check(value.ptr())) return char_row(value);
  if (py::isinstance<py::dict>(value)) return record(value.cast<py::dict>());
  if (py::isinstance<py::array>(value)) return ndarray(value.cast<py::array>());
  // NumPy scalars keep their dtype.
  if (py::isinstance(value, py::module_::import("numpy").attr("generic"))) return ndarray(py::array::ensure(value));
  if (PyList_Check(value.ptr()) || PyTuple_Check(value.ptr())) {
    auto seq = py::reinterpret_borrow<py::sequence>(value);
    matrix::owned_array out(ixCreateCellMatrix(1, ixSize(py::len(seq))));
    ixSize i = 0;
    for (auto e : seq) ixSetCell(out.get(), i++, from_python(e).release());
    return out;
  }
  unsupported(value);
}

}  // namespace dovra_python
