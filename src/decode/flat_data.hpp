#pragma once

// "tndata" as a flat list in storage order (complex: re, im, re, im, ...).
// Arrays are only made once the list is known to fill them exactly; when
// the counts differ, the list is checked in the order a fill would have
// read it, so an element error that a fill would have met first still wins
// over the count error, and no array of a size the data cannot back is ever
// allocated.

#include <cstddef>

#include "decode/dimensions.hpp"
#include "errors/conversion_exceptions.hpp"
#include "foundation/json/value.hpp"
#include "host/json_keys.hpp"

namespace ixtal_json::detail {

// The number of JSON values that fill count elements.
inline ixSize value_count(ixSize count, bool complex) noexcept {
  if (!complex) return count;
  return count > kUncountable / 2 ? kUncountable : 2 * count;
}

// Reports what a fill of `slots` values from data would meet, given that
// data.size() != slots: check(value) throws for a bad element, which is
// reported at its place in "tndata"; a count that does not match is the
// object's fault.
template <class Check>
[[noreturn]] void report_size_mismatch(const foundation::json::Array& data, ixSize slots, bool complex,
                                       Check&& check) {
  const std::size_t n = data.size();
  for (std::size_t i = 0; i < n; ++i) {
    if (i == slots) throw MismatchedTNSize();  // the array is full and data remain
    at_path([&] { check(data[i]); }, keys::tndata, i);
  }
  // The data ran out before the array was full: with complex data an odd
  // count ends on a real part whose imaginary part is missing.
  if (complex && n % 2 == 1) throw IncompleteComplexData();
  throw MismatchedTNSize();
}

}  // namespace ixtal_json::detail
