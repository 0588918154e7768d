#pragma once

// The decode driver: one JSON value to one new host array.

#include <optional>
#include <string_view>

#include "foundation/json/value.hpp"
#include "errors/conversion_exceptions.hpp"
#include "ixtal/matrix.hpp"

namespace ixtal_json {

// Result policy of the decode visitors: each conversion hands back a newly
// created array, owned until the caller passes it on.
struct to_ixArray_visitor {
  using result_type = matrix::owned_array;
};

// The top-level conversion: scalars directly, arrays as small notation,
// objects as large notation, special float objects or plain structures.
// Containers call it again for the values they hold. Throws the internal
// exceptions of errors/conversion_exceptions.hpp.
template <class Policy>
struct json_value_to_ixtal_visitor {
  typename Policy::result_type operator()(const foundation::json::Value& v) const;
};
extern template struct json_value_to_ixtal_visitor<to_ixArray_visitor>;

// The driver: converts root, and raises the public "DOVRA:IXTAL:JSON:Decode..."
// error for any internal conversion exception. Nothing made during a failed
// conversion survives it. Given the text root was parsed from, the error
// carries the location of the value at fault in it.
matrix::owned_array decode_value(const foundation::json::Value& root,
                                 std::optional<std::u16string_view> text = std::nullopt);

namespace detail {
inline matrix::owned_array decode_element(const foundation::json::Value& v) {
  return json_value_to_ixtal_visitor<to_ixArray_visitor>{}(v);
}

// The value that steps lead to from the one being converted: a fault in it
// is reported with those steps in front of its path.
template <class... Steps>
matrix::owned_array decode_element_at(const foundation::json::Value& v, const Steps&... steps) {
  return at_path([&] { return decode_element(v); }, steps...);
}
}  // namespace detail

}  // namespace ixtal_json
