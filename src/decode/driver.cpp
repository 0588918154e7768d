#include "decode/driver.hpp"

#include <cstdlib>

#include "decode/char_data.hpp"
#include "decode/large_notation.hpp"
#include "decode/rules.hpp"
#include "decode/small_notation.hpp"
#include "errors/conversion_exceptions.hpp"
#include "errors/decode_errors.hpp"

namespace ixtal_json {

using foundation::json::Value;

template <class Policy>
typename Policy::result_type json_value_to_ixtal_visitor<Policy>::operator()(const Value& v) const {
  switch (v.index()) {
    case Value::kUndefined:
    case Value::kFloat:  // never produced by the parser
      return matrix::owned_array(ixCreateDoubleMatrix(0, 0, ixREAL));
    case Value::kNull: throw NullNotSupported();
    case Value::kBool: return detail::scalar(v.as_bool());
    case Value::kDouble: return detail::scalar(v.as_double());
    case Value::kString: return detail::char_row(v.as_string());
    case Value::kArray: return detail::decode_small_array(v.as_array());
    case Value::kObject: return detail::decode_object(v.as_object());
  }
  std::abort();  // a corrupted value; the parser never makes one
}

template struct json_value_to_ixtal_visitor<to_ixArray_visitor>;

matrix::owned_array decode_value(const Value& root, std::optional<std::u16string_view> text) {
  return dovra_errors::translate_decode_errors([&] { return detail::decode_element(root); }, text);
}

}  // namespace ixtal_json
