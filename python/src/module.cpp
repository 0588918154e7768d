// The extension module _native: the three calls, with the GIL released
// while the library parses, converts and writes, and host errors raised as
// dovra_json.Error.

#include <pybind11/pybind11.h>

#include <boost/variant/get.hpp>
#include <string>

#include "convert.hpp"
#include "host_adapter.hpp"
#include "ixtal/errors.hpp"

namespace py = pybind11;
using namespace dovra_python;

namespace {

// Set by the package's __init__ so that the error class is defined, and
// documented, in Python.
py::object& error_class() {
  static py::object* cls = new py::object();  // never destroyed: outlives the interpreter's teardown order
  return *cls;
}

py::object argument(const resource_core::MsgArg& a) {
  if (auto* l = boost::get<long>(&a)) return py::int_(*l);
  if (auto* s = boost::get<std::string>(&a)) return py::str(*s);
  const auto& u = boost::get<std::u16string>(a);
  return py::reinterpret_steal<py::object>(PyUnicode_DecodeUTF16(reinterpret_cast<const char*>(u.data()),
                                                                 Py_ssize_t(2 * u.size()), "surrogatepass", nullptr));
}

[[noreturn]] void raise(const ixtal::HostError& e) {
  py::list args;
  for (const auto& a : e.arguments()) args.append(argument(a));
  PyErr_SetObject(error_class().ptr(), error_class()(e.what(), e.identifier(), py::tuple(args)).ptr());
  throw py::error_already_set();
}

// A view of the UTF-8 bytes of a str or bytes argument, valid while the
// object lives.
std::string_view utf8_of(const py::object& text) {
  if (PyBytes_Check(text.ptr())) return {PyBytes_AS_STRING(text.ptr()), std::size_t(PyBytes_GET_SIZE(text.ptr()))};
  if (PyUnicode_Check(text.ptr())) {
    Py_ssize_t n = 0;
    const char* p = PyUnicode_AsUTF8AndSize(text.ptr(), &n);
    if (!p) throw py::error_already_set();
    return {p, std::size_t(n)};
  }
  throw py::type_error("JSON text must be str or bytes, not " +
                       std::string(py::str(py::type::handle_of(text).attr("__qualname__"))));
}

// Text read from a file ends with a line ending, which the library would
// take for text after the value; like dovra-json, one is dropped.
std::string_view without_final_line_ending(std::string_view bytes) {
  if (bytes.ends_with("\r\n")) bytes.remove_suffix(2);
  else if (bytes.ends_with('\n')) bytes.remove_suffix(1);
  return bytes;
}

template <class Call>
matrix::owned_array decode_with(const py::object& text, Call call) {
  auto utf8 = without_final_line_ending(utf8_of(text));
  try {
    py::gil_scoped_release unlocked;
    auto t = host::text(utf8);
    return call(t.get());
  } catch (const ixtal::HostError& e) {
    raise(e);
  }
}

py::object decode(const py::object& text) { return to_python(decode_with(text, host::decode)); }

py::object decode_response(const py::object& text) {
  auto r = decode_with(text, host::decode_response);
  if (ixGetClassID(r.get()) != ixCELL_CLASS) return py::bool_(false);
  py::list outputs;
  for (ixSize i = 0; i < ixGetNumberOfElements(r.get()); ++i)
    outputs.append(to_python(matrix::owned_array(ixDuplicateArray(ixGetCell(r.get(), i)))));
  return outputs;
}

// The written text is nearly always ASCII: then the str is filled with the
// GIL released, one byte per character.
py::str text_of(const ixArray* chars) {
  const auto* data = static_cast<const char16_t*>(ixGetData(chars));
  const std::size_t n = ixGetNumberOfElements(chars);
  char16_t highest = 0;
  {
    py::gil_scoped_release unlocked;
    for (std::size_t i = 0; i < n; ++i) highest |= data[i];
  }
  if (highest >= 0x80) return chars_to_str(chars);
  auto s = py::reinterpret_steal<py::str>(PyUnicode_New(Py_ssize_t(n), 127));
  if (!s) throw py::error_already_set();
  auto* out = PyUnicode_1BYTE_DATA(s.ptr());
  {
    py::gil_scoped_release unlocked;
    for (std::size_t i = 0; i < n; ++i) out[i] = Py_UCS1(data[i]);
  }
  return s;
}

py::str encode(const py::object& value, const std::string& format, const std::string& nan_inf, bool pretty) {
  auto a = from_python(value);
  matrix::owned_array r;
  try {
    py::gil_scoped_release unlocked;
    r = host::encode(a.get(), format, nan_inf, pretty);
  } catch (const ixtal::HostError& e) {
    raise(e);
  }
  return text_of(r.get());
}

}  // namespace

PYBIND11_MODULE(_native, m) {
  m.doc() = "The host side of dovra_json; use the dovra_json package.";
  m.def("_set_error_class", [](py::object cls) { error_class() = std::move(cls); });
  m.def("decode", &decode, py::arg("text"), "Decode JSON text (str or bytes) into arrays.");
  m.def("decode_response", &decode_response, py::arg("text"), "Decode a response document's outputs.");
  m.def("encode", &encode, py::arg("value"), py::arg("format"), py::arg("nan_inf"), py::arg("pretty"),
        "Encode a value as JSON text.");
  m.def("live_arrays", &host::live_arrays, "Host arrays created and not yet destroyed (for tests).");
}
