#include "ixtal/text.hpp"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <immintrin.h>
#include <new>
#include <stdexcept>

namespace fl::i18n {
namespace {

void require_utf8(const char* codeset) {
  if (!codeset || std::strcmp(codeset, "UTF-8") != 0)
    throw std::invalid_argument(std::string("unsupported code set: ") + (codeset ? codeset : "(null)"));
}

// Eight ASCII bytes at a time: the common case of JSON text.
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

vector_path best_vector_path() noexcept {
  static const vector_path best = [] {
    __builtin_cpu_init();  // this may run before the CPU model's own initialiser
    return __builtin_cpu_supports("avx2") ? vector_path::avx2 : vector_path::sse2;
  }();
  return best;
}

namespace {

std::atomic<vector_path> g_path{best_vector_path()};

// The path of this conversion, read once per call.
inline vector_path path() noexcept { return g_path.load(std::memory_order_relaxed); }

// ASCII runs 32 units or bytes at a time, where the processor has AVX2.
__attribute__((target("avx2"))) std::size_t ascii_run_u16_avx2(const char16_t* text, std::size_t n,
                                                                char* out) noexcept {
  const __m256i high = _mm256_set1_epi16(static_cast<short>(0xFF80));
  std::size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text + i));
    const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text + i + 16));
    if (!_mm256_testz_si256(_mm256_or_si256(a, b), high)) break;
    // packus works within 128-bit lanes; the permute puts the halves in order.
    if (out) _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i),
                                 _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8));
  }
  return i;
}

__attribute__((target("avx2"))) std::size_t widen_ascii_avx2(const char* text, std::size_t n, char16_t* out) noexcept {
  std::size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text + i));
    if (_mm256_movemask_epi8(b) != 0) break;
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), _mm256_cvtepu8_epi16(_mm256_castsi256_si128(b)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i + 16), _mm256_cvtepu8_epi16(_mm256_extracti128_si256(b, 1)));
  }
  return i;
}

// The ASCII bytes at the start of [text, text + n) written as units to out,
// sixteen at a time (SSE2, the x86-64 baseline); returns how many.
std::size_t widen_ascii_sse2(const char* text, std::size_t n, char16_t* out) noexcept {
  std::size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i));
    if (_mm_movemask_epi8(b) != 0) break;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_unpacklo_epi8(b, _mm_setzero_si128()));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i + 8), _mm_unpackhi_epi8(b, _mm_setzero_si128()));
  }
  return i;
}

// Length of the ASCII run at the start of [text, text + n), in vector
// blocks where the path allows; out (when not null) receives the run as
// bytes.
std::size_t ascii_run_u16(const char16_t* text, std::size_t n, char* out) noexcept {
  const vector_path p = path();
  std::size_t i = 0;
  if (p == vector_path::avx2) i = ascii_run_u16_avx2(text, n, out);
  const __m128i high = _mm_set1_epi16(static_cast<short>(0xFF80));
  for (; p != vector_path::none && i + 16 <= n; i += 16) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i + 8));
    const __m128i any = _mm_and_si128(_mm_or_si128(a, b), high);
    if (_mm_movemask_epi8(_mm_cmpeq_epi16(any, _mm_setzero_si128())) != 0xFFFF) break;
    if (out) _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_packus_epi16(a, b));
  }
  for (; i < n && text[i] < 0x80; ++i)
    if (out) out[i] = char(text[i]);
  return i;
}

// The code point at text[i] (a pair counts as one; an unpaired surrogate
// is U+FFFD); i moves past it.
inline char32_t next_code_point(const char16_t* text, std::size_t n, std::size_t& i) noexcept {
  const char32_t u = text[i++];
  if (u >= 0xD800 && u <= 0xDBFF && i < n && text[i] >= 0xDC00 && text[i] <= 0xDFFF)
    return 0x10000 + ((u - 0xD800) << 10) + (text[i++] - 0xDC00);
  if (u >= 0xD800 && u <= 0xDFFF) return 0xFFFD;
  return u;
}

}  // namespace

std::size_t codecvt_ustring_to_string::measure(const char16_t* text, std::size_t n) const noexcept {
  std::size_t bytes = 0, i = 0;
  while (i < n) {
    const std::size_t run = ascii_run_u16(text + i, n - i, nullptr);
    bytes += run;
    i += run;
    while (i < n && text[i] >= 0x80) {
      const char32_t cp = next_code_point(text, n, i);
      bytes += cp < 0x800 ? 2 : cp < 0x10000 ? 3 : 4;
    }
  }
  return bytes;
}

void codecvt_ustring_to_string::convert_into(const char16_t* text, std::size_t n, char* o) const noexcept {
  convert_bounded(text, n, o);
}

std::size_t codecvt_ustring_to_string::convert_bounded(const char16_t* text, std::size_t n, char* o) const noexcept {
  char* const first = o;
  std::size_t i = 0;
  while (i < n) {
    const std::size_t run = ascii_run_u16(text + i, n - i, o);
    o += run;
    i += run;
    while (i < n && text[i] >= 0x80) {
      const char32_t cp = next_code_point(text, n, i);
      if (cp < 0x800) {
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
  }
  return std::size_t(o - first);
}

void codecvt_ustring_to_string::convert(const char16_t* text, std::size_t n, std::string& out) const {
  const std::size_t start = out.size();
  out.resize(start + measure(text, n));
  convert_into(text, n, out.data() + start);
}

ixtal::large_buffer<char> codecvt_ustring_to_string::convert_once(const char16_t* text, std::size_t n,
                                                                  std::size_t& size) const {
  // Text that is all ASCII (the usual JSON) fills a buffer of n exactly.
  // At the first other unit the buffer grows to the most the rest can need;
  // nothing fills it beforehand, so memory never written is never touched.
  const auto allocate = [](std::size_t bytes) {
    ixtal::large_buffer<char> block(static_cast<char*>(ixtal::allocate_large(bytes)));
    if (!block) throw std::bad_alloc();
    return block;
  };
  ixtal::large_buffer<char> out = allocate(n);
  const std::size_t prefix = ascii_run_u16(text, n, out.get());
  size = prefix;
  if (prefix == n) return out;
  if (n - prefix > (~std::size_t(0) - prefix) / 3) throw std::bad_alloc();
  ixtal::large_buffer<char> room = allocate(prefix + 3 * (n - prefix));
  std::memcpy(room.get(), out.get(), prefix);
  out.reset();
  size = prefix + convert_bounded(text + prefix, n - prefix, room.get() + prefix);
  return room;
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
  convert_bounded(text, n, out);
}

std::size_t codecvt_string_to_ustring::convert_bounded(const char* text, std::size_t n, char16_t* out) const noexcept {
  char16_t* const first = out;
  const vector_path p = path();
  std::size_t i = 0;
  while (i < n) {
    std::size_t run = 0;
    if (p == vector_path::avx2) run = widen_ascii_avx2(text + i, n - i, out);
    if (p != vector_path::none) run += widen_ascii_sse2(text + i + run, n - i - run, out + run);
    out += run;
    i += run;
    for (; i < n && static_cast<unsigned char>(text[i]) < 0x80; ++i) *out++ = char16_t(text[i]);
    if (i == n) break;
    // Decode up to the next ASCII byte.
    std::size_t j = i + 1;
    while (j < n && (static_cast<unsigned char>(text[j]) & 0xC0) == 0x80) ++j;
    for_each_unit(text + i, j - i, [&](char16_t u) { *out++ = u; });
    i = j;
  }
  return std::size_t(out - first);
}

void codecvt_string_to_ustring::convert(const char* text, std::size_t n, std::u16string& out) const {
  const std::size_t start = out.size();
  out.resize(start + measure(text, n));
  convert_into(text, n, out.data() + start);
}

vector_path use_vector_path(vector_path p) noexcept {
  if (p > best_vector_path()) p = best_vector_path();
  return g_path.exchange(p, std::memory_order_relaxed);
}

}  // namespace fl::i18n
