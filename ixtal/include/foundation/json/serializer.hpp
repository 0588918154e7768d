#pragma once

// Writes a Value tree as JSON text. Compact output has no white space at
// all; pretty output puts each member and element on its own line, indented
// by two blanks per level, with no white space before the first or after the
// last byte. The exception is an array of scalars (null, booleans, numbers,
// strings, and objects of one string member such as {"tndata": "NaN"}): it
// stays on one line with ", " between elements, "[1, 2, 3]", so a matrix
// shows one row per line. Empty arrays and objects are "[]" and "{}".
// Numbers are written in the shortest text that reads back to the same
// value (text_output.hpp writes them, and every other piece of the text).
// NaN and infinity have no JSON form: meeting one throws std::domain_error.

#include <cstddef>
#include <iosfwd>
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

}  // namespace foundation::json
