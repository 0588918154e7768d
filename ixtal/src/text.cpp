#include "ixtal/text.hpp"

#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace fl::i18n {
namespace {

void require_utf8(const char* codeset) {
  if (!codeset || std::strcmp(codeset, "UTF-8") != 0)
    throw std::invalid_argument(std::string("unsupported code set: ") + (codeset ? codeset : "(null)"));
}

// Eight ASCII code units at a time: the common case of JSON text.
inline bool ascii8_u16(const char16_t* p) {
  std::uint64_t a, b;
  std::memcpy(&a, p, 8);
  std::memcpy(&b, p + 4, 8);
  return ((a | b) & 0xFF80FF80FF80FF80ull) == 0;
}
inline bool ascii8_u8(const char* p) {
  std::uint64_t a;
  std::memcpy(&a, p, 8);
  return (a & 0x8080808080808080ull) == 0;
}

// Length of the well-formed UTF-8 sequence at p (1 to 4), or 0 when the
// bytes there start an ill-formed one; cp receives the code point. The
// checks follow the table of well-formed byte sequences, so overlong forms
// and encoded surrogates are ill-formed.
inline int decode_utf8(const unsigned char* p, const unsigned char* end, char32_t& cp) {
  const unsigned c = p[0];
  const std::ptrdiff_t left = end - p;
  if (c < 0x80) {
    cp = c;
    return 1;
  }
  auto cont = [](unsigned b) { return (b & 0xC0) == 0x80; };
  if (c >= 0xC2 && c <= 0xDF) {
    if (left < 2 || !cont(p[1])) return 0;
    cp = ((c & 0x1F) << 6) | (p[1] & 0x3F);
    return 2;
  }
  if (c >= 0xE0 && c <= 0xEF) {
    if (left < 3) return 0;
    const unsigned lo = c == 0xE0 ? 0xA0 : 0x80, hi = c == 0xED ? 0x9F : 0xBF;
    if (p[1] < lo || p[1] > hi || !cont(p[2])) return 0;
    cp = ((c & 0x0F) << 12) | ((p[1] & 0x3F) << 6) | (p[2] & 0x3F);
    return 3;
  }
  if (c >= 0xF0 && c <= 0xF4) {
    if (left < 4) return 0;
    const unsigned lo = c == 0xF0 ? 0x90 : 0x80, hi = c == 0xF4 ? 0x8F : 0xBF;
    if (p[1] < lo || p[1] > hi || !cont(p[2]) || !cont(p[3])) return 0;
    cp = ((c & 0x07) << 18) | ((p[1] & 0x3F) << 12) | ((p[2] & 0x3F) << 6) | (p[3] & 0x3F);
    return 4;
  }
  return 0;
}

// Bytes to skip for an ill-formed sequence: its maximal subpart (at least
// one byte), so that each becomes one U+FFFD.
inline int ill_formed_length(const unsigned char* p, const unsigned char* end) {
  const unsigned c = p[0];
  int need = c >= 0xC2 && c <= 0xDF ? 2 : c >= 0xE0 && c <= 0xEF ? 3 : c >= 0xF0 && c <= 0xF4 ? 4 : 1;
  int n = 1;
  for (; n < need && p + n < end; ++n) {
    unsigned lo = 0x80, hi = 0xBF;
    if (n == 1) {
      if (c == 0xE0) lo = 0xA0;
      else if (c == 0xED) hi = 0x9F;
      else if (c == 0xF0) lo = 0x90;
      else if (c == 0xF4) hi = 0x8F;
    }
    if (p[n] < lo || p[n] > hi) break;
  }
  return n;
}

template <class Emit>
inline void for_each_unit(const char* text, std::size_t n, Emit&& emit) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
  const unsigned char* end = p + n;
  while (p < end) {
    char32_t cp;
    int len = decode_utf8(p, end, cp);
    if (len == 0) {
      emit(char16_t(0xFFFD));
      p += ill_formed_length(p, end);
      continue;
    }
    p += len;
    if (cp >= 0x10000) {
      cp -= 0x10000;
      emit(char16_t(0xD800 + (cp >> 10)));
      emit(char16_t(0xDC00 + (cp & 0x3FF)));
    } else {
      emit(char16_t(cp));
    }
  }
}

}  // namespace

codecvt_ustring_to_string::codecvt_ustring_to_string(const char* codeset, bool) { require_utf8(codeset); }

void codecvt_ustring_to_string::convert(const char16_t* text, std::size_t n, std::string& out) const {
  const std::size_t start = out.size();
  out.resize(start + 3 * n);  // the most any UTF-16 unit needs
  char* o = out.data() + start;
  std::size_t i = 0;
  while (i < n) {
    if (i + 8 <= n && ascii8_u16(text + i)) {
      for (int k = 0; k < 8; ++k) o[k] = char(text[i + k]);
      o += 8;
      i += 8;
      continue;
    }
    const char32_t u = text[i++];
    char32_t cp = u;
    if (u >= 0xD800 && u <= 0xDBFF && i < n && text[i] >= 0xDC00 && text[i] <= 0xDFFF) {
      cp = 0x10000 + ((u - 0xD800) << 10) + (text[i++] - 0xDC00);
    } else if (u >= 0xD800 && u <= 0xDFFF) {
      cp = 0xFFFD;
    }
    if (cp < 0x80) {
      *o++ = char(cp);
    } else if (cp < 0x800) {
      *o++ = char(0xC0 | (cp >> 6));
      *o++ = char(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
      *o++ = char(0xE0 | (cp >> 12));
      *o++ = char(0x80 | ((cp >> 6) & 0x3F));
      *o++ = char(0x80 | (cp & 0x3F));
    } else {
      *o++ = char(0xF0 | (cp >> 18));
      *o++ = char(0x80 | ((cp >> 12) & 0x3F));
      *o++ = char(0x80 | ((cp >> 6) & 0x3F));
      *o++ = char(0x80 | (cp & 0x3F));
    }
  }
  out.resize(std::size_t(o - out.data()));
}

codecvt_string_to_ustring::codecvt_string_to_ustring(const char* codeset, bool) { require_utf8(codeset); }

std::size_t codecvt_string_to_ustring::measure(const char* text, std::size_t n) const noexcept {
  std::size_t units = 0, i = 0;
  while (i + 8 <= n && ascii8_u8(text + i)) i += 8;
  units = i;
  for_each_unit(text + i, n - i, [&](char16_t) { ++units; });
  return units;
}

void codecvt_string_to_ustring::convert_into(const char* text, std::size_t n, char16_t* out) const noexcept {
  std::size_t i = 0;
  while (i < n) {
    if (i + 8 <= n && ascii8_u8(text + i)) {
      for (int k = 0; k < 8; ++k) out[k] = char16_t(static_cast<unsigned char>(text[i + k]));
      out += 8;
      i += 8;
      continue;
    }
    // Decode up to the next ASCII run.
    std::size_t j = i + 1;
    while (j < n && (static_cast<unsigned char>(text[j]) & 0xC0) == 0x80) ++j;
    for_each_unit(text + i, j - i, [&](char16_t u) { *out++ = u; });
    i = j;
  }
}

void codecvt_string_to_ustring::convert(const char* text, std::size_t n, std::u16string& out) const {
  const std::size_t start = out.size();
  out.resize(start + measure(text, n));
  convert_into(text, n, out.data() + start);
}

}  // namespace fl::i18n
