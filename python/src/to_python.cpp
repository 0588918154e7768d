// Host arrays to Python objects.

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <string>
#include <vector>

#include "convert.hpp"
#include "ixtal/shape.hpp"
#include "ixtal/string_array.hpp"
#include "numeric_classes.hpp"

namespace py = pybind11;
using namespace pybind11::literals;

namespace dovra_python {
namespace {

std::vector<py::ssize_t> shape_of(const ixArray* a) {
  const auto dims = ixtal::dims_of(a);
  return std::vector<py::ssize_t>(dims.begin(), dims.end());
}

py::object numpy() { return py::module_::import("numpy"); }

// An object array of the host shape in Fortran order, every element None.
py::array object_array(const ixArray* a) {
  return numpy().attr("empty")(py::tuple(py::cast(shape_of(a))), "dtype"_a = "O", "order"_a = "F");
}

// Stores the element at storage index i of an object array made above.
void put(py::array& out, ixSize i, py::object value) {
  auto** slot = static_cast<PyObject**>(out.mutable_data()) + i;
  Py_XDECREF(*slot);
  *slot = value.release().ptr();
}

// The ndarray borrows the host array's data and owns the array through the
// capsule, so a 20 MB matrix reaches NumPy without a copy.
py::object numeric(matrix::owned_array a, const NumericClass& c) {
  auto shape = shape_of(a.get());
  auto dt = dtype_of(c);
  if (ixGetNumberOfElements(a.get()) == 0)
    return numpy().attr("empty")(py::tuple(py::cast(shape)), "dtype"_a = dt, "order"_a = "F");
  const std::vector<py::ssize_t> strides = ixtal::strides_of(ixtal::dims_of(a.get()), py::ssize_t(c.itemsize));
  void* data = ixGetData(a.get());
  py::capsule owner(a.get(), [](void* p) { ixDestroyArray(static_cast<ixArray*>(p)); });
  a.release();
  return py::array(dt, shape, strides, data, owner);
}

py::object chars(matrix::owned_array a) {
  auto text = chars_to_str(a.get());
  const auto* dims = ixGetDimensions(a.get());
  bool row = ixGetNumberOfDimensions(a.get()) == 2 && (dims[0] == 1 || (dims[0] == 0 && dims[1] == 0));
  if (row) return text;
  // Any other char array has no Python text type of its own: it becomes an
  // array of one-character texts of the host shape.
  py::list letters;
  for (auto ch : text) letters.append(ch);
  return numpy().attr("array")(letters, "dtype"_a = "U1").attr("reshape")(py::tuple(py::cast(shape_of(a.get()))),
                                                                           "order"_a = "F");
}

py::object strings(matrix::owned_array a) {
  const ixSize n = ixGetNumberOfElements(a.get());
  bool any_missing = false;
  py::list texts;
  for (ixSize i = 0; i < n; ++i) {
    auto t = Tovenar::String::getString(a.get(), i);
    if (!t) {
      any_missing = true;
      texts.append(py::none());
      continue;
    }
    texts.append(py::reinterpret_steal<py::object>(PyUnicode_DecodeUTF16(
        reinterpret_cast<const char*>(t->data()), Py_ssize_t(2 * t->size()), "surrogatepass", nullptr)));
  }
  if (PyErr_Occurred()) throw py::error_already_set();
  auto shape = py::tuple(py::cast(shape_of(a.get())));
  if (!any_missing) return numpy().attr("array")(texts, "dtype"_a = "U").attr("reshape")(shape, "order"_a = "F");
  auto out = object_array(a.get());
  for (ixSize i = 0; i < n; ++i) put(out, i, texts[i]);
  return out;
}

py::object cell(matrix::owned_array a) {
  auto out = object_array(a.get());
  const ixSize n = ixGetNumberOfElements(a.get());
  for (ixSize i = 0; i < n; ++i) {
    ixArray* e = ixGetCell(a.get(), i);
    if (!e) continue;  // an unset element stays None
    put(out, i, to_python(matrix::owned_array(ixDuplicateArray(e))));
  }
  return out;
}

py::dict record(const ixArray* s, ixSize index) {
  py::dict d;
  for (int f = 0; f < ixGetNumberOfFields(s); ++f) {
    ixArray* v = ixGetFieldByNumber(s, index, f);
    d[py::str(ixGetFieldName(s, f))] = v ? to_python(matrix::owned_array(ixDuplicateArray(v))) : py::none();
  }
  return d;
}

py::object structure(matrix::owned_array a) {
  const ixSize n = ixGetNumberOfElements(a.get());
  const auto* dims = ixGetDimensions(a.get());
  if (ixGetNumberOfDimensions(a.get()) == 2 && dims[0] == 1 && dims[1] == 1) return record(a.get(), 0);
  auto out = object_array(a.get());
  for (ixSize i = 0; i < n; ++i) put(out, i, record(a.get(), i));
  return out;
}

}  // namespace

py::str chars_to_str(const ixArray* a) {
  const auto* data = static_cast<const char*>(ixGetData(a));
  const auto n = Py_ssize_t(ixGetNumberOfElements(a));
  if (n == 0) return py::str("");
  auto s = py::reinterpret_steal<py::object>(PyUnicode_DecodeUTF16(data, 2 * n, "surrogatepass", nullptr));
  if (!s) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(s.release());
}

py::object to_python(matrix::owned_array a) {
  const ixClassID cls = ixGetClassID(a.get());
  if (ixIsSparse(a.get())) throw py::type_error("sparse host arrays have no Python form");
  if (const auto* c = numeric_class_of(cls, ixIsComplex(a.get()))) return numeric(std::move(a), *c);
  if (cls == ixCHAR_CLASS) return chars(std::move(a));
  if (cls == ixCELL_CLASS) return cell(std::move(a));
  if (cls == ixSTRUCT_CLASS) return structure(std::move(a));
  if (Tovenar::String::isString(a.get())) return strings(std::move(a));
  throw py::type_error(std::string("host arrays of class ") + ixGetClassName(a.get()) + " have no Python form");
}

}  // namespace dovra_python
