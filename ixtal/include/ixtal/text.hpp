#pragma once

// Text conversion between the host's UTF-16 character data and UTF-8.
// Invalid input never fails: an unpaired surrogate (UTF-16) or an
// ill-formed sequence (UTF-8, each maximal ill-formed subpart) becomes
// U+FFFD.

#include <cstddef>
#include <string>
#include <string_view>

#include "ixtal/export.hpp"

namespace fl::i18n {

// UTF-16 to a byte code set. Only "UTF-8" is available; any other code set
// raises std::invalid_argument.
class IXTAL_API codecvt_ustring_to_string {
 public:
  explicit codecvt_ustring_to_string(const char* codeset, bool replace_invalid = true);
  // Appends the conversion of [text, text + n) to out.
  void convert(const char16_t* text, std::size_t n, std::string& out) const;
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
};

namespace lcctype {
// ASCII classification that ignores the process locale.
constexpr bool isspace_ascii(int c) noexcept {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}
constexpr bool isdigit_ascii(int c) noexcept { return c >= '0' && c <= '9'; }
}  // namespace lcctype

}  // namespace fl::i18n
