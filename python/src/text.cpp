// Text between the host's UTF-16 char arrays and Python's str and bytes,
// without a detour through a codec: nearly all text is ASCII or one of
// Python's narrow kinds, which convert unit by unit.

#include <cstdint>
#include <cstring>
#include <optional>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "convert.hpp"

namespace py = pybind11;

namespace dovra_python {
namespace {

// Above this many units the GIL is released while they are scanned and
// written.
constexpr std::size_t kLongText = std::size_t(1) << 16;

bool is_surrogate(char16_t u) { return (u & 0xF800) == 0xD800; }

py::object steal(PyObject* p) {
  if (!p) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(p);
}

// Released only for long texts: for short ones it costs more than it frees.
struct maybe_unlocked {
  std::optional<py::gil_scoped_release> unlocked;
  explicit maybe_unlocked(std::size_t n) {
    if (n >= kLongText) unlocked.emplace();
  }
};

// The three loops every text passes through, sixteen units at a time where
// the compiler would not do it at -O2 by itself.

// The OR of every unit: below 0x80 or 0x100 only if every unit is.
char16_t or_of(const char16_t* in, std::size_t n) {
  std::size_t i = 0;
  char16_t r = 0;
#ifdef __SSE2__
  __m128i acc = _mm_setzero_si128();
  for (; i + 8 <= n; i += 8) acc = _mm_or_si128(acc, _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i)));
  alignas(16) std::uint16_t lanes[8];
  _mm_store_si128(reinterpret_cast<__m128i*>(lanes), acc);
  for (auto l : lanes) r |= l;
#endif
  for (; i < n; ++i) r |= in[i];
  return r;
}

// Units below 0x100 to bytes.
void narrow(const char16_t* in, std::size_t n, unsigned char* out) {
  std::size_t i = 0;
#ifdef __SSE2__
  for (; i + 16 <= n; i += 16) {
    const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
    const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i + 8));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_packus_epi16(lo, hi));
  }
#endif
  for (; i < n; ++i) out[i] = static_cast<unsigned char>(in[i]);
}

// Bytes (Latin-1 characters) to units.
void widen(const unsigned char* in, std::size_t n, char16_t* out) {
  std::size_t i = 0;
#ifdef __SSE2__
  const __m128i zero = _mm_setzero_si128();
  for (; i + 16 <= n; i += 16) {
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_unpacklo_epi8(b, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i + 8), _mm_unpackhi_epi8(b, zero));
  }
#endif
  for (; i < n; ++i) out[i] = in[i];
}

}  // namespace

py::str chars_to_str(const char16_t* units, std::size_t n) {
  char16_t highest = 0;
  std::size_t pairs = 0;
  bool lone = false;
  {
    maybe_unlocked unlocked(n);
    highest = or_of(units, n);
    if (highest >= 0xD800)
      for (std::size_t i = 0; i < n; ++i) {
        if (!is_surrogate(units[i])) continue;
        if (units[i] < 0xDC00 && i + 1 < n && units[i + 1] >= 0xDC00 && units[i + 1] < 0xE000) {
          ++pairs;
          ++i;
        } else {
          lone = true;
        }
      }
  }
  if (lone)  // kept as they are, which only the codec does
    return py::reinterpret_steal<py::str>(steal(PyUnicode_DecodeUTF16(
        reinterpret_cast<const char*>(units), Py_ssize_t(2 * n), "surrogatepass", nullptr)).release());
  // highest is the OR of every unit: below 0x80 or 0x100 only if every unit
  // is, and at or above 0x100 only if one is.
  const Py_UCS4 bound = pairs ? 0x10FFFF : highest < 0x80 ? 0x7F : highest < 0x100 ? 0xFF : 0xFFFF;
  auto s = py::reinterpret_steal<py::str>(steal(PyUnicode_New(Py_ssize_t(n - pairs), bound)).release());
  void* out = PyUnicode_DATA(s.ptr());
  maybe_unlocked unlocked(n);
  if (pairs) {
    auto* o = static_cast<Py_UCS4*>(out);
    for (std::size_t i = 0; i < n; ++i) {
      Py_UCS4 c = units[i];
      if (is_surrogate(units[i])) c = 0x10000 + ((c - 0xD800) << 10) + (units[++i] - 0xDC00);
      *o++ = c;
    }
  } else if (bound == 0xFFFF) {
    std::memcpy(out, units, 2 * n);
  } else {
    narrow(units, n, static_cast<Py_UCS1*>(out));
  }
  return s;
}

py::bytes chars_to_utf8(const char16_t* units, std::size_t n) {
  std::size_t size = 0;
  {
    maybe_unlocked unlocked(n);
    const bool ascii = or_of(units, n) < 0x80;  // nearly every text written
    for (std::size_t i = 0; i < n && !ascii; ++i) {
      const char16_t u = units[i];
      if (u < 0x80) size += 1;
      else if (u < 0x800) size += 2;
      else if (u >= 0xD800 && u < 0xDC00 && i + 1 < n && units[i + 1] >= 0xDC00 && units[i + 1] < 0xE000) {
        size += 4;
        ++i;
      } else size += 3;
    }
    if (ascii) size = n;
  }
  auto b = py::reinterpret_steal<py::bytes>(steal(PyBytes_FromStringAndSize(nullptr, Py_ssize_t(size))).release());
  auto* out = reinterpret_cast<unsigned char*>(PyBytes_AS_STRING(b.ptr()));
  maybe_unlocked unlocked(n);
  if (size == n) {
    narrow(units, n, out);
    return b;
  }
  for (std::size_t i = 0; i < n; ++i) {
    char32_t c = units[i];
    if (c < 0x80) {
      *out++ = static_cast<unsigned char>(c);
    } else if (c < 0x800) {
      *out++ = static_cast<unsigned char>(0xC0 | (c >> 6));
      *out++ = static_cast<unsigned char>(0x80 | (c & 0x3F));
    } else if (c >= 0xD800 && c < 0xDC00 && i + 1 < n && units[i + 1] >= 0xDC00 && units[i + 1] < 0xE000) {
      c = 0x10000 + ((c - 0xD800) << 10) + (units[++i] - 0xDC00);
      *out++ = static_cast<unsigned char>(0xF0 | (c >> 18));
      *out++ = static_cast<unsigned char>(0x80 | ((c >> 12) & 0x3F));
      *out++ = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
      *out++ = static_cast<unsigned char>(0x80 | (c & 0x3F));
    } else {
      *out++ = static_cast<unsigned char>(0xE0 | (c >> 12));
      *out++ = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
      *out++ = static_cast<unsigned char>(0x80 | (c & 0x3F));
    }
  }
  return b;
}

matrix::owned_array str_to_chars(py::handle text, bool drop_final_line_ending) {
  struct Source {
    int kind;
    const void* data;
    std::size_t length;
  } src{PyUnicode_KIND(text.ptr()), PyUnicode_DATA(text.ptr()), std::size_t(PyUnicode_GET_LENGTH(text.ptr()))};
  auto at = [&](std::size_t i) { return PyUnicode_READ(src.kind, src.data, i); };
  // Text read from a file ends with a line ending, which the library would
  // take for text after the value; like dovra-json, one is dropped.
  if (drop_final_line_ending && src.length && at(src.length - 1) == '\n') src.length -= src.length > 1 && at(src.length - 2) == '\r' ? 2 : 1;
  std::size_t room = src.length;
  if (src.kind == PyUnicode_4BYTE_KIND) {
    const auto* c = static_cast<const Py_UCS4*>(src.data);
    for (std::size_t i = 0; i < src.length; ++i) room += c[i] > 0xFFFF;
  }
  maybe_unlocked unlocked(room);
  return matrix::owned_array(ixCreateStringInPlace(room, [](char16_t* out, void* context) {
    const auto& s = *static_cast<const Source*>(context);
    switch (s.kind) {
      case PyUnicode_1BYTE_KIND:
        widen(static_cast<const Py_UCS1*>(s.data), s.length, out);
        return s.length;
      case PyUnicode_2BYTE_KIND:
        std::memcpy(out, s.data, 2 * s.length);
        return s.length;
      default: {
        char16_t* o = out;
        for (std::size_t i = 0; i < s.length; ++i) {
          const Py_UCS4 c = static_cast<const Py_UCS4*>(s.data)[i];
          if (c > 0xFFFF) {
            *o++ = char16_t(0xD800 + ((c - 0x10000) >> 10));
            *o++ = char16_t(0xDC00 + ((c - 0x10000) & 0x3FF));
          } else {
            *o++ = char16_t(c);
          }
        }
        return std::size_t(o - out);
      }
    }
  }, &src));
}

}  // namespace dovra_python
