#pragma once

// Writes a Value tree as JSON text. Compact output has no white space at
// all; pretty output puts each member and element on its own line, indented
// by two blanks per level, with no white space before the first or after the
// last byte. The exception is an array of scalars (null, booleans, numbers,
// strings, and objects of one string member such as {"tndata": "NaN"}): it
// stays on one line with ", " between elements, "[1, 2, 3]", so a matrix
// shows one row per line. Empty arrays and objects are "[]" and "{}". Numbers are written in the shortest text that reads back to the
// same value. NaN and infinity have no JSON form: meeting one throws
// std::domain_error.

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>

#include "foundation/json/value.hpp"
#include "ixtal/export.hpp"

namespace foundation::json {

class IXTAL_API Serializer {
 public:
  Serializer() = default;
  void pretty_print(bool on) noexcept { pretty_ = on; }
  bool pretty_print() const noexcept { return pretty_; }

  void write(std::ostream& os, const Value& v) const;
  // Appends the text to out; the fast path used by write().
  void write(std::string& out, const Value& v) const;
  // Bytes the text of v takes at most, so also UTF-16 units.
  std::size_t room(const Value& v) const noexcept;
  // Writes the text of v in UTF-16 to out, which has room(v) units, and
  // returns the units written. The units are those of converting the
  // UTF-8 text, without making it.
  std::size_t write(char16_t* out, const Value& v) const;
  std::string to_string(const Value& v) const {
    std::string s;
    write(s, v);
    return s;
  }

 private:
  bool pretty_ = false;
};

// Compact text written piece by piece, for writers that have no tree: each
// call writes exactly what the Serializer writes for the matching Value
// (number(double) what it writes for a double, and so on), so a writer that
// follows the tree's layout gets the tree's text byte for byte. The text
// goes to UTF-16 storage with room for `room` units, as Serializer::write
// does; passing that room aborts rather than writing past it.
class IXTAL_API TextStream {
 public:
  TextStream(char16_t* out, std::size_t room);
  ~TextStream();
  TextStream(const TextStream&) = delete;
  TextStream& operator=(const TextStream&) = delete;

  // Text that needs no escaping (brackets, commas, known keys), as it is.
  void raw(std::string_view ascii);
  // Each value is preceded by a comma when `comma` is set: one call per
  // element of a long array instead of two.
  void string(std::string_view utf8, bool comma = false);
  // The same for the UTF-8 of a host text, without making it.
  void string(std::u16string_view text, bool comma = false);
  void boolean(bool b, bool comma = false);
  void number(double d, bool comma = false);
  void number(float f);
  // Elements of a numeric array, each as number() writes it after
  // converting an integer to double, separated by commas; a comma goes
  // before the first too when `comma` is set. Stops before the first
  // element that is not finite and returns the number written.
  template <class T> std::size_t numbers(const T* x, std::size_t n, bool comma);

  // Passes the last text on; returns the units written in all.
  std::size_t finish();

  class Impl;

 private:
  std::unique_ptr<Impl> impl_;
  char16_t* const out_;
};

extern template IXTAL_API std::size_t TextStream::numbers(const double*, std::size_t, bool);
extern template IXTAL_API std::size_t TextStream::numbers(const float*, std::size_t, bool);
extern template IXTAL_API std::size_t TextStream::numbers(const std::int8_t*, std::size_t, bool);
extern template IXTAL_API std::size_t TextStream::numbers(const std::uint8_t*, std::size_t, bool);
extern template IXTAL_API std::size_t TextStream::numbers(const std::int16_t*, std::size_t, bool);
extern template IXTAL_API std::size_t TextStream::numbers(const std::uint16_t*, std::size_t, bool);
extern template IXTAL_API std::size_t TextStream::numbers(const std::int32_t*, std::size_t, bool);
extern template IXTAL_API std::size_t TextStream::numbers(const std::uint32_t*, std::size_t, bool);
extern template IXTAL_API std::size_t TextStream::numbers(const std::int64_t*, std::size_t, bool);
extern template IXTAL_API std::size_t TextStream::numbers(const std::uint64_t*, std::size_t, bool);

}  // namespace foundation::json
