#pragma once

// Text conversion between the host's UTF-16 character data and UTF-8.
// Invalid input never fails: an unpaired surrogate (UTF-16) or an
// ill-formed sequence (UTF-8, each maximal ill-formed subpart) becomes
// U+FFFD.

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "ixtal/export.hpp"
#include "ixtal/memory.hpp"

namespace fl::i18n {

// UTF-16 to a byte code set. Only "UTF-8" is available; any other code set
// raises std::invalid_argument.
class IXTAL_API codecvt_ustring_to_string {
 public:
  explicit codecvt_ustring_to_string(const char* codeset, bool replace_invalid = true);
  // Appends the conversion of [text, text + n) to out.
  void convert(const char16_t* text, std::size_t n, std::string& out) const;
  // The number of bytes convert() would append.
  std::size_t measure(const char16_t* text, std::size_t n) const noexcept;
  // Writes exactly measure(text, n) bytes to out.
  void convert_into(const char16_t* text, std::size_t n, char* out) const noexcept;
  // Writes the conversion to out, which has room for 3 * n bytes (never
  // fewer than needed), and returns its length.
  std::size_t convert_bounded(const char16_t* text, std::size_t n, char* out) const noexcept;
  // The conversion in one pass, into a new buffer (size receives the
  // length): for texts too large to pay for a zero fill or a second
  // reading. All-ASCII text takes exactly n bytes; otherwise the buffer is
  // the bound, of which only what is written is ever touched.
  ixtal::large_buffer<char> convert_once(const char16_t* text, std::size_t n, std::size_t& size) const;
  std::string operator()(std::u16string_view text) const {
    std::string out;
    convert(text.data(), text.size(), out);
    return out;
  }
};

// A byte code set to UTF-16; only "UTF-8".
class IXTAL_API codecvt_string_to_ustring {
 public:
  explicit codecvt_string_to_ustring(const char* codeset, bool replace_invalid = true);
  void convert(const char* text, std::size_t n, std::u16string& out) const;
  std::u16string operator()(std::string_view text) const {
    std::u16string out;
    convert(text.data(), text.size(), out);
    return out;
  }
  // The number of UTF-16 units convert() would append.
  std::size_t measure(const char* text, std::size_t n) const noexcept;
  // Writes exactly measure(text, n) units to out.
  void convert_into(const char* text, std::size_t n, char16_t* out) const noexcept;
  // One pass for callers that can give room for n units (never fewer than
  // needed): writes the conversion and returns its length.
  std::size_t convert_bounded(const char* text, std::size_t n, char16_t* out) const noexcept;
};

// The vector instructions the conversions run ASCII through: SSE2, the
// x86-64 baseline, or AVX2 where the processor has it (the default is the
// best there is). Every path gives the same units and bytes; tests narrow
// the path to compare each with the unit-by-unit one (none).
enum class vector_path { none, sse2, avx2 };
IXTAL_API vector_path best_vector_path() noexcept;
// Sets the widest path to use (at most the best) and returns the previous.
IXTAL_API vector_path use_vector_path(vector_path p) noexcept;

// Bytes of UTF-8 text at the end of [s, s + n) that begin a sequence the
// text after them may complete. A conversion that stops before them sees
// every sequence whole, so converting in pieces gives what converting at
// once gives.
constexpr std::size_t utf8_incomplete_tail(const char* s, std::size_t n) noexcept {
  for (std::size_t k = 1; k <= 3 && k <= n; ++k) {
    const unsigned c = static_cast<unsigned char>(s[n - k]);
    if ((c & 0xC0) == 0x80) continue;  // a continuation byte: its lead is further back
    const std::size_t need = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 1;
    return need > k ? k : 0;
  }
  return 0;
}

namespace lcctype {
// ASCII classification that ignores the process locale.
constexpr bool isspace_ascii(int c) noexcept {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}
constexpr bool isdigit_ascii(int c) noexcept { return c >= '0' && c <= '9'; }
}  // namespace lcctype

}  // namespace fl::i18n
