#pragma once

// String content as the host's UTF-16 units, exactly as the tree's UTF-8
// string gives them once converted back: what a char row holds. Plain
// units are copied as they stand; the rare units whose form the round trip
// through UTF-8 changes (unpaired surrogates, raw or escaped) take that
// round trip, through the same conversions, so the two forms cannot differ.

#include <algorithm>
#include <string>
#include <string_view>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "foundation/json/support.hpp"
#include "ixtal/text.hpp"

namespace dovra_json::detail {

class Utf16Sink {
 public:
  void clear() noexcept { size_ = 0; }
  std::u16string_view units() const noexcept { return {units_.data(), size_}; }

  void append_run(const char16_t* p, const char16_t* q) {
    const std::size_t n = std::size_t(q - p);
    reserve(n);
    char16_t* out = units_.data() + size_;
    // A well-formed pair comes back from the round trip as it went in.
    if (has_surrogate(p, q, out) && !all_paired(out, n)) {
      std::string utf8;
      fl::i18n::codecvt_ustring_to_string("UTF-8").convert(p, n, utf8);
      append_utf8(utf8);
      return;
    }
    size_ += n;
  }
  // Copies the units from p up to the first '"' or '\' (or end) and
  // returns where it stopped: the search and the copy in one pass, eight
  // units at a time, since most strings are plain text.
  const char16_t* copy_plain(const char16_t* p, const char16_t* end) {
    const char16_t* const first = p;
    const std::size_t start = size_;
    bool surrogates = false;
#if defined(__SSE2__)
    const __m128i quote = _mm_set1_epi16('"'), backslash = _mm_set1_epi16('\\');
    const __m128i bits = _mm_set1_epi16(short(0xF800)), surrogate = _mm_set1_epi16(short(0xD800));
    __m128i any = _mm_setzero_si128();
    for (; end - p >= 8; p += 8, size_ += 8) {
      reserve(8);
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(units_.data() + size_), v);
      any = _mm_or_si128(any, _mm_cmpeq_epi16(_mm_and_si128(v, bits), surrogate));
      const unsigned stop = unsigned(_mm_movemask_epi8(_mm_or_si128(_mm_cmpeq_epi16(v, quote), _mm_cmpeq_epi16(v, backslash))));
      if (stop) {
        const unsigned n = unsigned(__builtin_ctz(stop)) / 2;
        p += n;
        size_ += n;
        break;
      }
    }
    // Units past the stop may have set it: all_paired looks at the run alone.
    surrogates = _mm_movemask_epi8(any) != 0;
#endif
    for (; p != end && *p != '"' && *p != '\\'; ++p) {
      surrogates |= is_surrogate(*p);
      reserve(1);
      units_[size_++] = *p;
    }
    if (surrogates && !all_paired(units_.data() + start, size_ - start)) {
      size_ = start;
      append_run(first, p);
    }
    return p;
  }

  void put(char c) {
    reserve(1);
    units_[size_++] = char16_t(c);
  }
  void put_escape(char16_t first, char16_t second, bool has_second) {
    if (!has_second && !is_surrogate(first)) {
      reserve(1);
      units_[size_++] = first;
      return;
    }
    if (has_second && is_high(first) && is_low(second)) {
      reserve(2);
      units_[size_++] = first;
      units_[size_++] = second;
      return;
    }
    std::string utf8;
    foundation::json::detail::u16_to_u8(first, second, has_second, utf8);
    append_utf8(utf8);
  }

 private:
  static bool is_surrogate(char16_t u) noexcept { return (u & 0xF800) == 0xD800; }
  static bool is_high(char16_t u) noexcept { return (u & 0xFC00) == 0xD800; }
  static bool is_low(char16_t u) noexcept { return (u & 0xFC00) == 0xDC00; }

  // Whether every surrogate of the n units at u is one of a pair.
  static bool all_paired(const char16_t* u, std::size_t n) noexcept {
    for (std::size_t i = 0; i < n; ++i) {
      if (!is_surrogate(u[i])) continue;
      if (!is_high(u[i]) || i + 1 == n || !is_low(u[i + 1])) return false;
      ++i;
    }
    return true;
  }

  // Copies [p, q) to out, and tells whether a surrogate is among them.
  static bool has_surrogate(const char16_t* p, const char16_t* q, char16_t* out) noexcept {
    bool found = false;
#if defined(__SSE2__)
    const __m128i bits = _mm_set1_epi16(short(0xF800)), surrogate = _mm_set1_epi16(short(0xD800));
    __m128i any = _mm_setzero_si128();
    for (; q - p >= 8; p += 8, out += 8) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out), v);
      any = _mm_or_si128(any, _mm_cmpeq_epi16(_mm_and_si128(v, bits), surrogate));
    }
    found = _mm_movemask_epi8(any) != 0;
#endif
    for (; p != q; ++p) {
      found |= is_surrogate(*p);
      *out++ = *p;
    }
    return found;
  }

  void append_utf8(const std::string& utf8) {
    std::u16string u16;
    fl::i18n::codecvt_string_to_ustring("UTF-8").convert(utf8.data(), utf8.size(), u16);
    reserve(u16.size());
    std::copy(u16.begin(), u16.end(), units_.data() + size_);
    size_ += u16.size();
  }

  void reserve(std::size_t n) {
    if (units_.size() - size_ < n) units_.resize(std::max(2 * units_.size(), size_ + n + 16));
  }

  std::u16string units_;  // the first size_ are the string's; the rest is room
  std::size_t size_ = 0;
};

}  // namespace dovra_json::detail
