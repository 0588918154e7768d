// Text between the host's UTF-16 char arrays and Python's str and bytes,
// without a detour through a codec: nearly all text is ASCII or one of
// Python's narrow kinds, which convert unit by unit.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "convert.hpp"
#include "ixtal/memory.hpp"

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

// The loops every text passes through, eight or sixteen units at a time
// where the compiler would not do it at -O2 by itself.

// What one reading of a text says about it: its highest unit, which picks
// Python's narrowest kind, and whether any unit is a surrogate, which only
// then needs pairing up.
struct Survey {
  char16_t highest = 0;
  bool surrogates = false;
};

#ifdef __SSE2__
__m128i load8(const char16_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }

// All ones in the lanes that hold a surrogate.
__m128i surrogate_lanes(__m128i v) {
  return _mm_cmpeq_epi16(_mm_and_si128(v, _mm_set1_epi16(short(0xF800))), _mm_set1_epi16(short(0xD800)));
}

bool any_surrogate(const char16_t* p) { return _mm_movemask_epi8(surrogate_lanes(load8(p))) != 0; }
#endif

Survey survey(const char16_t* in, std::size_t n) {
  Survey s;
  std::size_t i = 0;
#ifdef __SSE2__
  if (n >= 8) {
    // SSE2 compares 16-bit lanes as signed only: with the top bit flipped,
    // the signed order is the unsigned one.
    const __m128i flip = _mm_set1_epi16(short(0x8000));
    __m128i top = flip, sur = _mm_setzero_si128();
    auto add = [&](__m128i v) {
      top = _mm_max_epi16(top, _mm_xor_si128(v, flip));
      sur = _mm_or_si128(sur, surrogate_lanes(v));
    };
    for (; i + 8 <= n; i += 8) add(load8(in + i));
    if (i < n) add(load8(in + n - 8));  // the tail, overlapping what was read
    top = _mm_max_epi16(top, _mm_shuffle_epi32(top, _MM_SHUFFLE(1, 0, 3, 2)));
    top = _mm_max_epi16(top, _mm_shuffle_epi32(top, _MM_SHUFFLE(2, 3, 0, 1)));
    top = _mm_max_epi16(top, _mm_shufflelo_epi16(top, _MM_SHUFFLE(2, 3, 0, 1)));
    s.highest = char16_t(_mm_extract_epi16(top, 0) ^ 0x8000);
    s.surrogates = _mm_movemask_epi8(sur) != 0;
    return s;
  }
#endif
  for (; i < n; ++i) {
    if (in[i] > s.highest) s.highest = in[i];
    s.surrogates |= is_surrogate(in[i]);
  }
  return s;
}

constexpr std::size_t kUnpaired = std::size_t(-1);

// The surrogate pairs of a text that holds surrogates, or kUnpaired if one
// stands alone.
std::size_t pairs_of(const char16_t* in, std::size_t n) {
  std::size_t pairs = 0;
  for (std::size_t i = 0; i < n;) {
    std::size_t end = n;
#ifdef __SSE2__
    if (i + 8 <= n) {
      if (!any_surrogate(in + i)) {
        i += 8;
        continue;
      }
      end = i + 8;
    }
#endif
    while (i < end) {
      const char16_t u = in[i];
      if (!is_surrogate(u)) {
        ++i;
      } else if (u < 0xDC00 && i + 1 < n && in[i + 1] >= 0xDC00 && in[i + 1] < 0xE000) {
        ++pairs;
        i += 2;  // may end past the block: the next one starts there
      } else {
        return kUnpaired;
      }
    }
  }
  return pairs;
}

// Well-paired units to code points.
void combine(const char16_t* in, std::size_t n, Py_UCS4* out) {
  for (std::size_t i = 0; i < n;) {
    std::size_t end = n;
#ifdef __SSE2__
    if (i + 8 <= n) {
      const __m128i v = load8(in + i);
      if (!_mm_movemask_epi8(surrogate_lanes(v))) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi16(v, _mm_setzero_si128()));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4), _mm_unpackhi_epi16(v, _mm_setzero_si128()));
        i += 8;
        out += 8;
        continue;
      }
      end = i + 8;
    }
#endif
    while (i < end) {
      Py_UCS4 c = in[i++];
      if (is_surrogate(char16_t(c))) c = 0x10000 + ((c - 0xD800) << 10) + (in[i++] - 0xDC00);
      *out++ = c;
    }
  }
}

// Units below 0x100 to bytes.
void narrow(const char16_t* in, std::size_t n, unsigned char* out) {
  std::size_t i = 0;
#ifdef __SSE2__
  for (; i + 16 <= n; i += 16)
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_packus_epi16(load8(in + i), load8(in + i + 8)));
#endif
  for (; i < n; ++i) out[i] = static_cast<unsigned char>(in[i]);
}

// Narrows for as long as the text is ASCII, which nearly every written text
// is, so that a long one is read once rather than surveyed first: returns
// how many units are narrowed (n when all are), stopping at the start of
// the first piece that is not ASCII.
std::size_t narrow_ascii(const char16_t* in, std::size_t n, unsigned char* out) {
  constexpr std::size_t kPiece = 4096;
  for (std::size_t at = 0; at < n; at += kPiece) {
    const std::size_t m = std::min(kPiece, n - at);
    std::size_t i = 0;
    char16_t seen = 0;
#ifdef __SSE2__
    __m128i acc = _mm_setzero_si128();
    for (; i + 16 <= m; i += 16) {
      const __m128i lo = load8(in + at + i), hi = load8(in + at + i + 8);
      acc = _mm_or_si128(acc, _mm_or_si128(lo, hi));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + at + i), _mm_packus_epi16(lo, hi));
    }
    // Any unit of 0x80 or more sets a bit that 0xFF80 keeps.
    seen = _mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(acc, _mm_set1_epi16(short(0xFF80))),
                                             _mm_setzero_si128())) != 0xFFFF;
#endif
    for (; i < m; ++i) {
      seen |= in[at + i] >> 7;
      out[at + i] = static_cast<unsigned char>(in[at + i]);
    }
    if (seen) return at;
  }
  return n;
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

// Code points to units: two for each above the BMP. Returns the units
// written.
std::size_t split(const Py_UCS4* in, std::size_t n, char16_t* out) {
  char16_t* o = out;
  for (std::size_t i = 0; i < n;) {
    std::size_t end = n;
#ifdef __SSE2__
    if (i + 8 <= n) {
      // SSE2 packs 32-bit lanes to 16 with signed saturation only: shifted
      // down by 0x8000 every BMP code point fits, and shifting back
      // restores it.
      const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
      const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i + 4));
      const __m128i bmp = _mm_set1_epi32(0xFFFF), shift = _mm_set1_epi32(0x8000);
      if (!_mm_movemask_epi8(_mm_or_si128(_mm_cmpgt_epi32(a, bmp), _mm_cmpgt_epi32(b, bmp)))) {
        const __m128i packed = _mm_packs_epi32(_mm_sub_epi32(a, shift), _mm_sub_epi32(b, shift));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(o), _mm_add_epi16(packed, _mm_set1_epi16(short(0x8000))));
        o += 8;
        i += 8;
        continue;
      }
      end = i + 8;
    }
#endif
    for (; i < end; ++i) {
      const Py_UCS4 c = in[i];
      if (c > 0xFFFF) {
        *o++ = char16_t(0xD800 + ((c - 0x10000) >> 10));
        *o++ = char16_t(0xDC00 + ((c - 0x10000) & 0x3FF));
      } else {
        *o++ = char16_t(c);
      }
    }
  }
  return std::size_t(o - out);
}

// The str of a text surveyed as s; null with Python's error set when
// Python cannot make it.
PyObject* str_of(const char16_t* units, std::size_t n, Survey s) {
  std::size_t pairs = 0;
  if (s.surrogates) {
    {
      maybe_unlocked unlocked(n);
      pairs = pairs_of(units, n);
    }
    if (pairs == kUnpaired)  // kept as they are, which only the codec does
      return PyUnicode_DecodeUTF16(reinterpret_cast<const char*>(units), Py_ssize_t(2 * n), "surrogatepass", nullptr);
  }
  const Py_UCS4 bound = pairs ? 0x10FFFF : s.highest < 0x80 ? 0x7F : s.highest < 0x100 ? 0xFF : 0xFFFF;
  PyObject* str = PyUnicode_New(Py_ssize_t(n - pairs), bound);
  if (!str) return nullptr;
  void* out = PyUnicode_DATA(str);
  maybe_unlocked unlocked(n);
  if (pairs) combine(units, n, static_cast<Py_UCS4*>(out));
  else if (bound == 0xFFFF) std::memcpy(out, units, 2 * n);
  else narrow(units, n, static_cast<Py_UCS1*>(out));
  return str;
}

// The UTF-8 bytes of units that are not all ASCII.
std::size_t utf8_size(const char16_t* units, std::size_t n) {
  std::size_t size = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const char16_t u = units[i];
    if (u < 0x80) size += 1;
    else if (u < 0x800) size += 2;
    else if (u >= 0xD800 && u < 0xDC00 && i + 1 < n && units[i + 1] >= 0xDC00 && units[i + 1] < 0xE000) {
      size += 4;
      ++i;
    } else size += 3;
  }
  return size;
}

void write_utf8(const char16_t* units, std::size_t n, unsigned char* out) {
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
}

// The str of units, a new reference; null with Python's error set when it
// cannot be made.
PyObject* new_str(const char16_t* units, std::size_t n) {
  if (n < kLongText) return str_of(units, n, survey(units, n));
  // A long text is nearly always written JSON, and ASCII: made ASCII at
  // first, it is read once; otherwise what was ASCII need not be surveyed.
  PyObject* ascii = PyUnicode_New(Py_ssize_t(n), 0x7F);
  if (!ascii) return nullptr;
  std::size_t done = 0;
  Survey rest;
  {
    py::gil_scoped_release unlocked;
    done = narrow_ascii(units, n, PyUnicode_1BYTE_DATA(ascii));
    if (done < n) rest = survey(units + done, n - done);
  }
  if (done == n) return ascii;
  Py_DECREF(ascii);
  return str_of(units, n, rest);
}

}  // namespace

py::str chars_to_str(const char16_t* units, std::size_t n) {
  return py::reinterpret_steal<py::str>(steal(new_str(units, n)).release());
}

py::bytes chars_to_utf8(const char16_t* units, std::size_t n) {
  // Made ASCII at first, as a str is; if the text is not, the bytes grow to
  // its UTF-8 (in place for a large block) and the ASCII prefix stays.
  PyObject* b = PyBytes_FromStringAndSize(nullptr, Py_ssize_t(n));
  if (!b) throw py::error_already_set();
  std::size_t done = 0, rest = 0;
  {
    maybe_unlocked unlocked(n);
    done = narrow_ascii(units, n, reinterpret_cast<unsigned char*>(PyBytes_AS_STRING(b)));
    if (done < n) rest = utf8_size(units + done, n - done);
  }
  if (done < n) {
    if (_PyBytes_Resize(&b, Py_ssize_t(done + rest)) < 0) throw py::error_already_set();  // b is freed
    maybe_unlocked unlocked(n);
    write_utf8(units + done, n - done, reinterpret_cast<unsigned char*>(PyBytes_AS_STRING(b)) + done);
  }
  return py::reinterpret_steal<py::bytes>(b);
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
  maybe_unlocked unlocked(src.length);
  // Room for two units a character is what a text beyond the BMP may need:
  // a large block keeps it unwritten, so only a short text is counted.
  std::size_t room = src.length;
  if (src.kind == PyUnicode_4BYTE_KIND) {
    if (2 * src.length * sizeof(char16_t) >= ixtal::kLargeBlock) {
      room = 2 * src.length;
    } else {
      const auto* c = static_cast<const Py_UCS4*>(src.data);
      for (std::size_t i = 0; i < src.length; ++i) room += c[i] > 0xFFFF;
    }
  }
  return matrix::owned_array(ixCreateStringInPlace(room, [](char16_t* out, void* context) {
    const auto& s = *static_cast<const Source*>(context);
    switch (s.kind) {
      case PyUnicode_1BYTE_KIND:
        widen(static_cast<const Py_UCS1*>(s.data), s.length, out);
        return s.length;
      case PyUnicode_2BYTE_KIND:
        std::memcpy(out, s.data, 2 * s.length);
        return s.length;
      default:
        return split(static_cast<const Py_UCS4*>(s.data), s.length, out);
    }
  }, &src));
}

}  // namespace dovra_python
