#pragma once

// Compact JSON text written piece by piece, for the serializer's tree walk
// and for writers that have no tree: each call writes exactly what the
// serializer writes for the matching value (number(double) what it writes
// for a double, and so on), so a writer that follows the tree's layout gets
// the tree's text byte for byte.
//
// Text goes through a chunk of its own, passed on when full: a value then
// costs a few stores instead of a string append each. The chunk goes either
// to a string as it is or, converted to UTF-16, straight to its final place
// (ASCII, the usual JSON, widened while the chunk is still in cache).

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "ixtal/export.hpp"

namespace foundation::json {

// For each byte: 0 when it is written as it is, else the letter after the
// backslash ('u' for the \u00XX form).
inline constexpr std::array<char, 256> kEscapes = [] {
  std::array<char, 256> t{};
  for (int c = 0; c < 0x20; ++c) t[c] = 'u';
  t['\b'] = 'b';
  t['\f'] = 'f';
  t['\n'] = 'n';
  t['\r'] = 'r';
  t['\t'] = 't';
  t['"'] = '"';
  t['\\'] = '\\';
  return t;
}();

class IXTAL_API TextOutput {
 public:
  // Room one number takes at most in the chunk: its longest text and what
  // the digit writers store past its end.
  static constexpr std::size_t kNumberRoom = 48;
  // The longest number text: "-2.2250738585072014e-308".
  static constexpr std::size_t kLongestNumber = 24;

  // UTF-8, appended to out.
  explicit TextOutput(std::string& out);
  // UTF-16 at out, which has room enough (the serializer's room estimate).
  explicit TextOutput(char16_t* out);
  // UTF-16 at out, with room for exactly `room` units: a writer whose room
  // was reckoned without the tree stops the process before it would write
  // past it.
  TextOutput(char16_t* out, std::size_t room);
  ~TextOutput();
  TextOutput(const TextOutput&) = delete;
  TextOutput& operator=(const TextOutput&) = delete;

  // Room for n more bytes (n well below the chunk), then the new end.
  char* room(std::size_t n) {
    if (std::size_t(end_ - p_) < n) [[unlikely]] flush();
    return p_;
  }
  void advance(char* end) noexcept { p_ = end; }

  void put(char c) {
    *room(1) = c;
    ++p_;
  }
  void put(const char* s, std::size_t n) {
    if (std::size_t(end_ - p_) < n) [[unlikely]] return put_long(s, n);
    std::memcpy(p_, s, n);
    p_ += n;
  }
  // Text that needs no escaping (brackets, commas, known keys), as it is.
  void raw(std::string_view ascii) { put(ascii.data(), ascii.size()); }
  void boolean(bool b) { b ? put("true", 4) : put("false", 5); }

  // Quoted and escaped: UTF-8 as it is; a host text as its UTF-8, written
  // without making it (an unpaired surrogate becomes U+FFFD).
  void string(std::string_view utf8);
  void string(std::u16string_view text);
  // Finite numbers only (std::domain_error otherwise): JSON has no text for
  // the others. A float keeps its own shortest text when a reader that
  // takes it as a double and narrows gets the same float back.
  void number(double d);
  void number(float f);
  // Elements of a numeric array, each as number() writes it after
  // converting an integer to double, separated by commas; a comma goes
  // before the first too when `comma` is set. Stops before the first
  // element that is not finite and returns the number written.
  template <class T> std::size_t numbers(const T* x, std::size_t n, bool comma);

  // Passes the chunk on; the last flush also converts a sequence the text
  // leaves incomplete (to U+FFFD, as a conversion of the whole text would).
  void flush(bool last = false);
  // Passes the last text on; returns the units written in all (UTF-16) or
  // the bytes appended (a string).
  std::size_t finish();

 private:
  void put_long(const char* s, std::size_t n);
  void general_number(double d);
  template <class T> std::size_t units_directly(const T* x, std::size_t n, bool comma);
  bool string_directly(std::u16string_view s);

  const std::unique_ptr<char[]> chunk_;
  char* p_;
  char* const end_;
  std::string* const text_ = nullptr;
  const std::size_t text_mark_ = 0;
  char16_t* const units_begin_ = nullptr;
  char16_t* units_ = nullptr;
  char16_t* const units_end_ = nullptr;  // null: room enough
};

extern template IXTAL_API std::size_t TextOutput::numbers(const double*, std::size_t, bool);
extern template IXTAL_API std::size_t TextOutput::numbers(const float*, std::size_t, bool);
extern template IXTAL_API std::size_t TextOutput::numbers(const std::int8_t*, std::size_t, bool);
extern template IXTAL_API std::size_t TextOutput::numbers(const std::uint8_t*, std::size_t, bool);
extern template IXTAL_API std::size_t TextOutput::numbers(const std::int16_t*, std::size_t, bool);
extern template IXTAL_API std::size_t TextOutput::numbers(const std::uint16_t*, std::size_t, bool);
extern template IXTAL_API std::size_t TextOutput::numbers(const std::int32_t*, std::size_t, bool);
extern template IXTAL_API std::size_t TextOutput::numbers(const std::uint32_t*, std::size_t, bool);
extern template IXTAL_API std::size_t TextOutput::numbers(const std::int64_t*, std::size_t, bool);
extern template IXTAL_API std::size_t TextOutput::numbers(const std::uint64_t*, std::size_t, bool);

}  // namespace foundation::json
