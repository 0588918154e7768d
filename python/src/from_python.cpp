// Python objects to host arrays.

#include <string>
#include <vector>

#include "convert.hpp"
#include "json/limits.hpp"
#include "numeric_classes.hpp"

namespace py = pybind11;

namespace dovra_python {
namespace {

// JSON numbers are read and written as doubles, which hold every integer
// up to this magnitude and no more.
constexpr long long kExactIntegerLimit = 1LL << 53;

py::object steal(PyObject* p) {
  if (!p) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(p);
}

py::object borrow(PyObject* p) { return py::reinterpret_borrow<py::object>(p); }

std::string type_name(PyObject* value) { return Py_TYPE(value)->tp_name; }

[[noreturn]] void raise(PyObject* type, const std::string& message) {
  PyErr_SetString(type, message.c_str());
  throw py::error_already_set();
}

PyArrayObject* as_array(PyObject* p) { return reinterpret_cast<PyArrayObject*>(p); }

// Host arrays have at least two dimensions: a 0-d array is 1x1 and a 1-d
// array of n elements a 1xn row.
std::vector<ixSize> host_dims(PyArrayObject* a) {
  std::vector<ixSize> dims(PyArray_DIMS(a), PyArray_DIMS(a) + PyArray_NDIM(a));
  while (dims.size() < 2) dims.insert(dims.begin(), 1);
  return dims;
}

// Calls f(k, element) for each element of a in storage (Fortran) order,
// whatever its strides; element is a new reference.
template <class F>
void for_each_element(PyArrayObject* a, F f) {
  const int nd = PyArray_NDIM(a);
  const npy_intp* dims = PyArray_DIMS(a);
  const npy_intp* strides = PyArray_STRIDES(a);
  const npy_intp n = PyArray_SIZE(a);
  std::vector<npy_intp> at(std::size_t(nd), 0);
  for (npy_intp k = 0; k < n; ++k) {
    char* p = PyArray_BYTES(a);
    for (int d = 0; d < nd; ++d) p += at[d] * strides[d];
    f(k, steal(PyArray_GETITEM(a, p)));
    for (int d = 0; d < nd && ++at[d] == dims[d]; ++d) at[d] = 0;
  }
}

bool is_mapping(PyObject* v) { return PyDict_Check(v) || Py_IS_TYPE(v, &PyDictProxy_Type); }

// A mapping's items as a list of pairs: a snapshot, so that converting the
// values cannot see the mapping change.
py::list items_of(PyObject* mapping) {
  return py::reinterpret_steal<py::list>(steal(PyDict_Check(mapping) ? PyDict_Items(mapping)
                                                                      : PyMapping_Items(mapping)).release());
}

class Encoder {
 public:
  matrix::owned_array value(PyObject* v);

 private:
  // A container being converted, and where in it the conversion is.
  struct Open {
    PyObject* container;
    Py_ssize_t index = -1;
    PyObject* key = nullptr;  // borrowed from the items being converted
  };
  class Enter {
   public:
    Enter(Encoder& e, PyObject* container);
    ~Enter() { e_.open_.pop_back(); }
    Open& here() { return e_.open_.back(); }

   private:
    Encoder& e_;
  };
  [[noreturn]] void cycle(std::size_t first) const;

  matrix::owned_array integer(PyObject* v);
  matrix::owned_array record(PyObject* mapping);
  matrix::owned_array cell(PyObject* sequence);
  matrix::owned_array ndarray(PyObject* array);
  matrix::owned_array objects(PyObject* array);

  std::vector<Open> open_;
};

Encoder::Enter::Enter(Encoder& e, PyObject* container) : e_(e) {
  // The library writes no deeper than it reads; each container here is at
  // least one level of JSON, so deeper ones fail there anyway. Failing
  // here keeps this recursion within the same bound.
  if (e.open_.size() >= dovra_json::kMaxNestingDepth)
    throw ixtal::HostError(resource_core::BaseMsgID("DOVRA:IXTAL:JSON", "EncodeNestingTooDeep"));
  for (std::size_t i = 0; i < e.open_.size(); ++i)
    if (e.open_[i].container == container) e.cycle(i);
  e.open_.push_back({container});
}

// Names the container met again and where: "value[0]['a'] is value[0]".
void Encoder::cycle(std::size_t first) const {
  auto path = [&](std::size_t levels) {
    std::string out = "value";
    for (std::size_t i = 0; i < levels; ++i) {
      const Open& o = open_[i];
      if (o.key) out += "[" + std::string(py::repr(o.key)) + "]";
      else if (PyArray_Check(o.container)) {
        // The storage index as NumPy's index of the element.
        auto* a = as_array(o.container);
        npy_intp k = o.index;
        out += "[";
        for (int d = 0; d < PyArray_NDIM(a); ++d) {
          out += (d ? ", " : "") + std::to_string(k % PyArray_DIM(a, d));
          k /= PyArray_DIM(a, d);
        }
        out += "]";
      } else out += "[" + std::to_string(o.index) + "]";
    }
    return out;
  };
  raise(PyExc_ValueError, "dovra_json cannot encode a " + type_name(open_[first].container) +
                              " that contains itself: " + path(open_.size()) + " is " + path(first));
}

matrix::owned_array Encoder::value(PyObject* v) {
  if (PyFloat_Check(v)) return matrix::owned_array(ixCreateDoubleScalar(PyFloat_AS_DOUBLE(v)));
  if (PyUnicode_Check(v)) return str_to_chars(v, false);
  if (PyBool_Check(v)) return matrix::owned_array(ixCreateLogicalScalar(v == Py_True));
  if (PyLong_Check(v)) return integer(v);
  if (is_mapping(v)) return record(v);
  if (PyList_Check(v) || PyTuple_Check(v)) return cell(v);
  if (PyArray_Check(v)) return ndarray(v);
  if (PyComplex_Check(v)) {
    matrix::owned_array out(ixCreateDoubleMatrix(1, 1, ixCOMPLEX));
    auto* d = static_cast<double*>(ixGetData(out.get()));
    d[0] = PyComplex_RealAsDouble(v);
    d[1] = PyComplex_ImagAsDouble(v);
    return out;
  }
  // NumPy scalars keep their dtype.
  if (PyArray_IsScalar(v, Generic)) {
    py::object dt = steal(reinterpret_cast<PyObject*>(PyArray_DescrFromScalar(v)));
    if (const auto* c = numeric_class_of(reinterpret_cast<PyArray_Descr*>(dt.ptr()))) {
      matrix::owned_array out(ixCreateNumericMatrix(1, 1, c->cls, c->complex ? ixCOMPLEX : ixREAL));
      if (c->cls == ixLOGICAL_CLASS) out.reset(ixCreateLogicalScalar(false));
      PyArray_ScalarAsCtype(v, ixGetData(out.get()));
      return out;
    }
  }
  raise(PyExc_TypeError, "dovra_json cannot encode an object of type " + type_name(v));
}

// An int is written as a number, which JSON readers hold as a double: one
// that a double would round is refused rather than written rounded.
matrix::owned_array Encoder::integer(PyObject* v) {
  int overflow = 0;
  const long long n = PyLong_AsLongLongAndOverflow(v, &overflow);
  if (n == -1 && PyErr_Occurred()) throw py::error_already_set();
  if (overflow || n > kExactIntegerLimit || n < -kExactIntegerLimit)
    raise(PyExc_OverflowError, "int " + (overflow ? "of " + std::to_string(_PyLong_NumBits(v)) + " bits"
                                                   : std::to_string(n)) +
                                   " is outside ±2**53 (±9007199254740992), the integers JSON numbers hold exactly");
  matrix::owned_array out(ixCreateNumericMatrix(1, 1, ixINT64_CLASS, ixREAL));
  *static_cast<std::int64_t*>(ixGetData(out.get())) = n;
  return out;
}

matrix::owned_array Encoder::record(PyObject* mapping) {
  Enter enter(*this, mapping);
  py::list items = items_of(mapping);
  std::vector<std::string> names;
  for (auto item : items) {
    PyObject* k = PyTuple_GET_ITEM(item.ptr(), 0);
    if (!PyUnicode_Check(k)) raise(PyExc_TypeError, "dict keys must be str to become field names, not " + type_name(k));
    Py_ssize_t size = 0;
    const char* utf8 = PyUnicode_AsUTF8AndSize(k, &size);
    if (!utf8) throw py::error_already_set();
    names.emplace_back(utf8, std::size_t(size));
  }
  const ixSize one[2] = {1, 1};
  matrix::owned_array out(ixCreateStructArray(2, one, int(names.size()), names.data()));
  int f = 0;
  for (auto item : items) {
    enter.here().key = PyTuple_GET_ITEM(item.ptr(), 0);
    ixSetFieldByNumber(out.get(), 0, f++, value(PyTuple_GET_ITEM(item.ptr(), 1)).release());
  }
  return out;
}

matrix::owned_array Encoder::cell(PyObject* sequence) {
  Enter enter(*this, sequence);
  const Py_ssize_t n = PySequence_Fast_GET_SIZE(sequence);
  matrix::owned_array out(ixCreateCellMatrix(1, ixSize(n)));
  for (Py_ssize_t i = 0; i < n; ++i) {
    // A list may change while its elements convert only if Python code
    // runs meanwhile; holding the element and checking the size is cheap.
    if (PySequence_Fast_GET_SIZE(sequence) != n) raise(PyExc_RuntimeError, "list changed size during encoding");
    py::object e = borrow(PySequence_Fast_GET_ITEM(sequence, i));
    enter.here().index = i;
    ixSetCell(out.get(), ixSize(i), value(e.ptr()).release());
  }
  return out;
}

// One copy, straight into the host array, whatever the input's strides and
// byte order: NumPy writes through a Fortran-ordered view of the host data.
matrix::owned_array Encoder::ndarray(PyObject* array) {
  auto* a = as_array(array);
  const auto* c = numeric_class_of(PyArray_DESCR(a));
  const char kind = PyArray_DESCR(a)->kind;
  if (!c) {
    if (kind == 'O' || kind == 'U') return objects(array);
    raise(PyExc_TypeError, "dovra_json cannot encode a numpy.ndarray of dtype " + std::string(py::str(
                                                                                       borrow(reinterpret_cast<PyObject*>(PyArray_DESCR(a))))));
  }
  auto dims = host_dims(a);
  matrix::owned_array out(c->cls == ixLOGICAL_CLASS ? ixCreateLogicalArray(dims.size(), dims.data())
                                                    : ixCreateUninitNumericArray(dims.size(), dims.data(), c->cls,
                                                                                 c->complex ? ixCOMPLEX : ixREAL));
  if (ixGetNumberOfElements(out.get()) == 0) return out;
  std::vector<npy_intp> shape(dims.begin(), dims.end());
  py::object view = steal(PyArray_NewFromDescr(&PyArray_Type, dtype_of(*c), int(shape.size()), shape.data(), nullptr,
                                               ixGetData(out.get()), NPY_ARRAY_FARRAY, nullptr));
  if (PyArray_CopyInto(as_array(view.ptr()), a) < 0) throw py::error_already_set();
  return out;
}

// An object array of mappings that all have the same keys in the same order
// is a structure array, except a 1x1 one, which would come back as a dict;
// any other is a cell. The library cannot write string arrays, so an array
// of str (dtype 'U') is written as a cell of texts.
matrix::owned_array Encoder::objects(PyObject* array) {
  Enter enter(*this, array);
  auto* a = as_array(array);
  auto dims = host_dims(a);
  const npy_intp n = PyArray_SIZE(a);
  bool records = PyArray_DESCR(a)->kind == 'O' && (n > 1 || (n == 1 && PyArray_NDIM(a) > 2));
  py::object first, keys;
  if (records)
    for_each_element(a, [&](npy_intp, py::object e) {
      if (!records || e.ptr() == first.ptr()) return;  // a broadcast array holds one mapping many times
      if (!is_mapping(e.ptr())) {
        records = false;
        return;
      }
      py::object k = steal(PyMapping_Keys(e.ptr()));
      if (!first) {
        first = e;
        keys = k;
        return;
      }
      const int same = PyObject_RichCompareBool(k.ptr(), keys.ptr(), Py_EQ);
      if (same < 0) throw py::error_already_set();
      records = same == 1;
    });
  if (records) {
    std::vector<std::string> names;
    for (auto k : keys) {
      if (!PyUnicode_Check(k.ptr()))
        raise(PyExc_TypeError, "dict keys must be str to become field names, not " + type_name(k.ptr()));
      names.push_back(k.cast<std::string>());
    }
    matrix::owned_array out(ixCreateStructArray(dims.size(), dims.data(), int(names.size()), names.data()));
    if (!names.empty())
      for_each_element(a, [&](npy_intp k, py::object e) {
        enter.here().index = k;
        Enter element(*this, e.ptr());
        int f = 0;
        for (auto item : items_of(e.ptr())) {
          element.here().key = PyTuple_GET_ITEM(item.ptr(), 0);
          ixSetFieldByNumber(out.get(), ixSize(k), f++, value(PyTuple_GET_ITEM(item.ptr(), 1)).release());
        }
      });
    return out;
  }
  matrix::owned_array out(ixCreateCellArray(dims.size(), dims.data()));
  for_each_element(a, [&](npy_intp k, py::object e) {
    enter.here().index = k;
    ixSetCell(out.get(), ixSize(k), value(e.ptr()).release());
  });
  return out;
}

}  // namespace

matrix::owned_array from_python(py::handle value) { return Encoder().value(value.ptr()); }

}  // namespace dovra_python
