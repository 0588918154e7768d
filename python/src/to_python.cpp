// Host arrays to Python objects.

#include <cstring>
#include <string>
#include <unordered_map>

#include "convert.hpp"
#include "ixtal/json_host.hpp"
#include "ixtal/string_array.hpp"
#include "numeric_classes.hpp"

namespace py = pybind11;

namespace dovra_python {
namespace {

// At or above this many bytes of data, a decoded array's buffer is handed to
// NumPy; below, a copy costs less than the capsule and the extra object.
constexpr std::size_t kHandOverBytes = 1 << 16;

py::object steal(PyObject* p) {
  if (!p) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(p);
}

// The dtypes of the numeric classes, made once.
PyArray_Descr* descr(const NumericClass& c) {
  static PyArray_Descr* table[kNumericClasses.size()] = {};
  auto& d = table[&c - kNumericClasses.data()];
  if (!d) d = dtype_of(c);  // kept for the life of the process
  return d;
}

// The NumPy form of an array's shape. NumPy holds at most NPY_MAXDIMS
// dimensions and, as it does itself, no more bytes (zero-sized dimensions
// aside) than a signed size counts.
struct Shape {
  int nd = 0;
  npy_intp dims[NPY_MAXDIMS];
};

Shape shape_of(const ixArray* a, std::size_t itemsize) {
  const std::size_t nd = ixGetNumberOfDimensions(a);
  if (nd > NPY_MAXDIMS)
    throw module_error("dovra_json:TooManyDimensions", {long(nd), long(NPY_MAXDIMS)},
                       "The array has " + std::to_string(nd) + " dimensions; a NumPy array has at most " +
                           std::to_string(NPY_MAXDIMS) + ".");
  Shape s;
  s.nd = int(nd);
  const ixSize* dims = ixGetDimensions(a);
  unsigned __int128 bytes = itemsize;
  for (std::size_t d = 0; d < nd; ++d) {
    if (dims[d] > ixSize(NPY_MAX_INTP)) throw ixtal::json_host::nomem();
    if (dims[d] != 0) bytes *= dims[d];
    if (bytes > NPY_MAX_INTP) throw ixtal::json_host::nomem();
    s.dims[d] = npy_intp(dims[d]);
  }
  return s;
}

// A new, Fortran-ordered array; object arrays start with every slot null.
py::object new_array(PyArray_Descr* dt, const Shape& s) {
  Py_INCREF(dt);  // NewFromDescr takes it over
  return steal(PyArray_NewFromDescr(&PyArray_Type, dt, s.nd, s.dims, nullptr, nullptr, NPY_ARRAY_F_CONTIGUOUS,
                                    nullptr));
}

// Stores a new reference in slot i of an object array made above.
void put(const py::object& array, ixSize i, py::object value) {
  auto** slot = static_cast<PyObject**>(PyArray_DATA(reinterpret_cast<PyArrayObject*>(array.ptr()))) + i;
  Py_XDECREF(*slot);
  *slot = value.release().ptr();
}

PyArray_Descr* object_descr() {
  static PyArray_Descr* d = PyArray_DescrFromType(NPY_OBJECT);  // kept for the life of the process
  return d;
}

class Converter {
 public:
  py::object value(const ixArray* a);

 private:
  py::object numeric(const ixArrayHeader& h, const ixArray* a, const NumericClass& c);
  py::object chars(const ixArrayHeader& h, const ixArray* a);
  py::object strings(const ixArray* a);
  py::object cell(const ixArrayHeader& h, const ixArray* a);
  py::object structure(const ixArrayHeader& h, const ixArray* a);
  py::object record(ixArray* const* fields, const py::tuple& names);
  const py::tuple& names_of(const ixArray* s);

  // Field names as str, once per list of names: structures made alike share
  // one list, so a table of records makes its keys once.
  std::unordered_map<const std::string*, py::tuple> names_;
  const std::string* last_key_ = nullptr;
  const ixArray* last_struct_ = nullptr;  // whose names last_names_ holds
  const py::tuple* last_names_ = nullptr;
};

py::object Converter::value(const ixArray* a) {
  const ixArrayHeader h = ixGetHeader(a);
  if (!h.sparse)
    if (const auto* c = numeric_class_of(h.class_id, h.complex)) return numeric(h, a, *c);
  switch (h.class_id) {
    case ixCHAR_CLASS: return chars(h, a);
    case ixCELL_CLASS: return cell(h, a);
    case ixSTRUCT_CLASS: return structure(h, a);
    default: break;
  }
  if (Tovenar::String::isString(a)) return strings(a);
  const std::string cls = (h.complex ? "complex " : "") + std::string(ixGetClassName(a));
  throw module_error("dovra_json:NoPythonForm", {cls}, "Host arrays of class " + cls + " have no Python form.");
}

bool is_scalar(const ixArrayHeader& h) { return h.ndim == 2 && h.dims[0] == 1 && h.dims[1] == 1; }

// A 1x1 array is a scalar of its class: Python's own float, int, bool and
// complex for double, int64, logical and complex double, a NumPy scalar of
// the dtype for the others.
py::object Converter::numeric(const ixArrayHeader& h, const ixArray* a, const NumericClass& c) {
  if (is_scalar(h)) {
    switch (c.type_num) {
      case NPY_DOUBLE: return steal(PyFloat_FromDouble(*static_cast<const double*>(h.data)));
      case NPY_BOOL: return py::bool_(*static_cast<const bool*>(h.data));
      case NPY_CDOUBLE: {
        const auto* d = static_cast<const double*>(h.data);
        return steal(PyComplex_FromDoubles(d[0], d[1]));
      }
      default: break;
    }
    if (PyArray_EquivTypenums(c.type_num, NPY_INT64))
      return steal(PyLong_FromLongLong(*static_cast<const std::int64_t*>(h.data)));
    return steal(PyArray_Scalar(const_cast<void*>(h.data), descr(c), nullptr));
  }
  auto out = new_array(descr(c), shape_of(a, c.itemsize));
  if (h.count) std::memcpy(PyArray_DATA(reinterpret_cast<PyArrayObject*>(out.ptr())), h.data, h.count * c.itemsize);
  return out;
}

py::object Converter::chars(const ixArrayHeader& h, const ixArray* a) {
  const auto* units = static_cast<const char16_t*>(h.data);
  if (h.ndim == 2 && (h.dims[0] == 1 || (h.dims[0] == 0 && h.dims[1] == 0))) return chars_to_str(units, h.count);
  // Any other char array has no Python text type of its own: it becomes an
  // array of one-character texts of the host shape, one per code unit.
  py::object dt = steal(reinterpret_cast<PyObject*>(PyArray_DescrNewFromType(NPY_UNICODE)));
  reinterpret_cast<PyArray_Descr*>(dt.ptr())->elsize = 4;
  auto out = new_array(reinterpret_cast<PyArray_Descr*>(dt.ptr()), shape_of(a, 4));
  auto* data = static_cast<std::uint32_t*>(PyArray_DATA(reinterpret_cast<PyArrayObject*>(out.ptr())));
  for (ixSize i = 0; i < h.count; ++i) data[i] = units[i];
  return out;
}

// A string array becomes an object array of str, None where an element is
// missing: a fixed-width NumPy text array would cost the longest text times
// the element count.
py::object Converter::strings(const ixArray* a) {
  auto out = new_array(object_descr(), shape_of(a, sizeof(PyObject*)));
  const ixSize n = ixGetNumberOfElements(a);
  for (ixSize i = 0; i < n; ++i) {
    auto t = Tovenar::String::getString(a, i);
    put(out, i, t ? py::object(chars_to_str(t->data(), t->size())) : py::none());
  }
  return out;
}

py::object Converter::cell(const ixArrayHeader& h, const ixArray* a) {
  auto out = new_array(object_descr(), shape_of(a, sizeof(PyObject*)));
  ixArray* const* elements = ixGetContents(a);
  for (ixSize i = 0; i < h.count; ++i) put(out, i, elements[i] ? value(elements[i]) : py::none());
  return out;
}

// Two structures have the same names, in order.
bool same_names(const ixArray* a, const ixArray* b) {
  const int n = ixGetNumberOfFields(a);
  if (ixGetNumberOfFields(b) != n) return false;
  for (int f = 0; f < n; ++f)
    if (ixGetFieldName(a, f) != ixGetFieldName(b, f)) return false;
  return true;
}

const py::tuple& Converter::names_of(const ixArray* s) {
  const std::string* key = &ixGetFieldName(s, 0);
  if (key == last_key_) return *last_names_;
  // Records made one by one have lists of their own; consecutive ones
  // usually have the same names all the same.
  if (last_struct_ && same_names(s, last_struct_)) {
    last_key_ = key;
    return *last_names_;
  }
  auto [it, made] = names_.try_emplace(key);
  if (made) {
    const int n = ixGetNumberOfFields(s);
    py::tuple names(n);
    for (int f = 0; f < n; ++f) {
      const std::string& name = ixGetFieldName(s, f);
      PyObject* str = PyUnicode_DecodeUTF8(name.data(), Py_ssize_t(name.size()), "surrogatepass");
      if (!str) {
        names_.erase(it);
        throw py::error_already_set();
      }
      PyUnicode_InternInPlace(&str);
      PyTuple_SET_ITEM(names.ptr(), f, str);
    }
    it->second = std::move(names);
  }
  last_key_ = key;
  last_struct_ = s;
  last_names_ = &it->second;
  return it->second;
}

py::object Converter::record(ixArray* const* fields, const py::tuple& names) {
  auto d = steal(PyDict_New());
  const Py_ssize_t n = PyTuple_GET_SIZE(names.ptr());
  for (Py_ssize_t f = 0; f < n; ++f) {
    py::object v = fields[f] ? value(fields[f]) : py::none();
    if (PyDict_SetItem(d.ptr(), PyTuple_GET_ITEM(names.ptr(), f), v.ptr()) < 0) throw py::error_already_set();
  }
  return d;
}

// Elements of a structure array without fields hold nothing: one shared,
// read-only empty mapping stands for all of them, in a read-only array whose
// strides are zero, so its memory does not grow with its size.
py::object fieldless(const ixArray* a) {
  static PyObject* one = [] {
    py::object empty = steal(PyDict_New());
    py::object proxy = steal(PyDictProxy_New(empty.ptr()));
    py::object cell = new_array(object_descr(), Shape{1, {1}});
    put(cell, 0, std::move(proxy));
    return cell.release().ptr();  // kept for the life of the process
  }();
  Shape s = shape_of(a, sizeof(PyObject*));
  npy_intp strides[NPY_MAXDIMS] = {};
  Py_INCREF(object_descr());
  auto out = steal(PyArray_NewFromDescr(&PyArray_Type, object_descr(), s.nd, s.dims, strides,
                                        PyArray_DATA(reinterpret_cast<PyArrayObject*>(one)), 0, nullptr));
  Py_INCREF(one);
  if (PyArray_SetBaseObject(reinterpret_cast<PyArrayObject*>(out.ptr()), one) < 0) throw py::error_already_set();
  return out;
}

py::object Converter::structure(const ixArrayHeader& h, const ixArray* a) {
  const int nf = ixGetNumberOfFields(a);
  ixArray* const* slots = ixGetContents(a);
  if (is_scalar(h)) return nf ? record(slots, names_of(a)) : steal(PyDict_New());
  if (nf == 0) return fieldless(a);
  auto out = new_array(object_descr(), shape_of(a, sizeof(PyObject*)));
  const py::tuple& names = names_of(a);
  for (ixSize i = 0; i < h.count; ++i) put(out, i, record(slots + i * ixSize(nf), names));
  return out;
}

// Destroys what was converted with the GIL released: a decoded document may
// hold arrays by the hundred thousand.
void dispose(matrix::owned_array a) {
  py::gil_scoped_release released;
  a.reset();
}

}  // namespace

py::object to_python(matrix::owned_array a) {
  const ixArrayHeader h = ixGetHeader(a.get());
  const NumericClass* c = h.sparse ? nullptr : numeric_class_of(h.class_id, h.complex);
  if (!c || h.count * c->itemsize < kHandOverBytes) {
    py::object out = Converter().value(a.get());
    dispose(std::move(a));
    return out;
  }
  // The ndarray borrows the host array's data and owns the array through
  // the capsule, so a 20 MB matrix reaches NumPy without a copy.
  Shape s = shape_of(a.get(), c->itemsize);
  py::capsule owner(a.get(), [](void* p) { ixDestroyArray(static_cast<ixArray*>(p)); });
  a.release();
  PyArray_Descr* dt = descr(*c);
  Py_INCREF(dt);
  auto out = steal(PyArray_NewFromDescr(&PyArray_Type, dt, s.nd, s.dims, nullptr, const_cast<void*>(h.data),
                                        NPY_ARRAY_FARRAY, nullptr));
  if (PyArray_SetBaseObject(reinterpret_cast<PyArrayObject*>(out.ptr()), owner.release().ptr()) < 0)
    throw py::error_already_set();
  return out;
}

py::list outputs_to_python(matrix::owned_array response) {
  const ixSize n = ixGetNumberOfElements(response.get());
  ixArray* const* outputs = ixGetContents(response.get());
  py::list out(n);
  Converter convert;
  for (ixSize i = 0; i < n; ++i) PyList_SET_ITEM(out.ptr(), Py_ssize_t(i), convert.value(outputs[i]).release().ptr());
  dispose(std::move(response));
  return out;
}

}  // namespace dovra_python
