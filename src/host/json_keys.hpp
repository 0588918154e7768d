#pragma once

// Every name the JSON forms use as text, in one place: the large notation's
// keys, the class names a document states ("tntype"), and the special
// names of the numbers JSON has no text for. Class names are the runtime's
// where the runtime has the class.

#include <string>
#include <string_view>

#include "ixtal/classes.hpp"

namespace ixtal_json {

namespace names {
// The keys of a large-notation object, in the byte order its object lists them.
inline constexpr std::string_view tncomplex = "tncomplex";
inline constexpr std::string_view tndata = "tndata";
inline constexpr std::string_view tnsize = "tnsize";
inline constexpr std::string_view tntype = "tntype";
inline constexpr std::string_view lhs = "lhs";
// A tree's object lists its members in byte order; the text writer writes
// the keys in the same order without sorting them.
static_assert(tncomplex < tndata && tndata < tnsize && tnsize < tntype);

inline constexpr const char* cell = ixtal::info_of(ixCELL_CLASS).name;
inline constexpr const char* structure = ixtal::info_of(ixSTRUCT_CLASS).name;
inline constexpr const char* double_class = ixtal::info_of(ixDOUBLE_CLASS).name;
inline constexpr const char* char_class = ixtal::info_of(ixCHAR_CLASS).name;
// Host string arrays are objects of the runtime's that carry this class name
// each; the class table has no row for it.
inline constexpr const char* string = "string";

// NaN and the infinities.
inline constexpr std::string_view nan = "NaN";
inline constexpr std::string_view inf = "Inf";
inline constexpr std::string_view minus_inf = "-Inf";

// The special name of a value beyond the finite range of its type.
template <class F>
constexpr std::string_view special(F x) noexcept {
  if (x != x) return nan;
  return x > 0 ? inf : minus_inf;
}
}  // namespace names

// The keys as strings, for lookups in a value tree's objects; made once at
// load and only read after.
namespace keys {
extern const std::string tndata;
extern const std::string tnsize;
extern const std::string tntype;
extern const std::string tncomplex;
// The member of a response that lists its outputs.
extern const std::string lhs;
}  // namespace keys

}  // namespace ixtal_json
