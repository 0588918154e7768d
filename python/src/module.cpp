// The extension module _native: the calls, with the GIL released while the
// library parses, converts and writes, and host errors raised as
// dovra_json.Error.

#define DOVRA_PYTHON_IMPORTS_NUMPY
#include "numpy_api.hpp"

#include <pybind11/pybind11.h>

#include <boost/variant/get.hpp>
#include <new>
#include <string>

#include "convert.hpp"
#include "host_adapter.hpp"
#include "ixtal/json_host.hpp"

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
  return chars_to_str(u.data(), u.size());
}

[[noreturn]] void raise(const ixtal::HostError& e) {
  py::list args;
  for (const auto& a : e.arguments()) args.append(argument(a));
  // A conversion error says where: the path always, the place in the text
  // when it is about a value of the text.
  py::object path = py::none(), where = py::none();
  if (const ixtal::ErrorLocation* at = e.location()) {
    path = py::str(at->path);
    if (at->in_text) where = py::make_tuple(at->offset, at->line, at->column);
  }
  PyErr_SetObject(error_class().ptr(), error_class()(e.what(), e.identifier(), py::tuple(args), path, where).ptr());
  throw py::error_already_set();
}

// Runs f, turning the runtime's errors, and running out of memory in it,
// into dovra_json.Error.
template <class F>
auto reporting(F f) {
  try {
    return f();
  } catch (const ixtal::HostError& e) {
    raise(e);
  } catch (const std::bad_alloc&) {
    raise(ixtal::json_host::nomem());
  }
}

// The same with the GIL released while f runs; errors are raised once it
// is held again.
template <class F>
auto unlocked(F f) {
  try {
    py::gil_scoped_release released;
    return f();
  } catch (const ixtal::HostError& e) {
    raise(e);
  } catch (const std::bad_alloc&) {
    raise(ixtal::json_host::nomem());
  }
}

// The host's char row of a JSON text: a str's characters, or the UTF-8 of
// any object with a contiguous buffer (bytes, bytearray, memoryview), held
// while it is read so that it cannot change meanwhile.
matrix::owned_array chars_of(const py::object& text) {
  if (PyUnicode_Check(text.ptr())) return str_to_chars(text, true);
  if (!PyObject_CheckBuffer(text.ptr()))
    throw py::type_error("JSON text must be str, bytes, bytearray or memoryview, not " +
                         std::string(Py_TYPE(text.ptr())->tp_name));
  Py_buffer view;
  if (PyObject_GetBuffer(text.ptr(), &view, PyBUF_SIMPLE) < 0) throw py::error_already_set();
  std::unique_ptr<Py_buffer, void (*)(Py_buffer*)> held(&view, PyBuffer_Release);
  std::string_view utf8(static_cast<const char*>(view.buf), std::size_t(view.len));
  // Text read from a file ends with a line ending, which the library would
  // take for text after the value; like dovra-json, one is dropped.
  if (utf8.ends_with("\r\n")) utf8.remove_suffix(2);
  else if (utf8.ends_with('\n')) utf8.remove_suffix(1);
  return unlocked([&] { return host::text(utf8); });
}

template <class Call>
matrix::owned_array decode_with(const py::object& text, Call call) {
  auto chars = reporting([&] { return chars_of(text); });
  return unlocked([&] { return call(chars.get()); });
}

py::object decode(const py::object& text) {
  auto r = decode_with(text, host::decode);
  return reporting([&] { return to_python(std::move(r)); });
}

py::object decode_response(const py::object& text) {
  auto r = decode_with(text, host::decode_response);
  if (ixGetClassID(r.get()) != ixCELL_CLASS) return py::bool_(false);
  return reporting([&] { return outputs_to_python(std::move(r)); });
}

py::object encode(const py::object& value, const std::string& format, const std::string& nan_inf, bool pretty,
                  bool as_bytes) {
  auto a = reporting([&] { return from_python(value); });
  auto text = unlocked([&] {
    auto t = host::encode(a.get(), format, nan_inf, pretty);
    a.reset();
    return t;
  });
  const auto* units = static_cast<const char16_t*>(ixGetData(text.get()));
  const std::size_t n = ixGetNumberOfElements(text.get());
  py::object out = as_bytes ? py::object(chars_to_utf8(units, n)) : py::object(chars_to_str(units, n));
  unlocked([&] { text.reset(); });
  return out;
}

}  // namespace

PYBIND11_MODULE(_native, m) {
  if (_import_array() < 0) throw py::error_already_set();
  m.doc() = "The host side of dovra_json; use the dovra_json package.";
  m.def("_set_error_class", [](py::object cls) { error_class() = std::move(cls); });
  m.def("decode", &decode, py::arg("text"), "Decode JSON text into Python values.");
  m.def("decode_response", &decode_response, py::arg("text"), "Decode a response document's outputs.");
  m.def("encode", &encode, py::arg("value"), py::arg("format"), py::arg("nan_inf"), py::arg("pretty"),
        py::arg("as_bytes"), "Encode a value as JSON text.");
  m.def("live_arrays", &host::live_arrays, "Host arrays created and not yet destroyed (for tests).");
}
