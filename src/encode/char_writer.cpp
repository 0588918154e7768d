#include "encode/char_writer.hpp"

#include "encode/large_object.hpp"
#include "host/class_traits.hpp"
#include "ixtal/matrix.hpp"

namespace ixtal_json::detail {

using foundation::json::Array;
using foundation::json::Value;

Value write_char(const ixArray* a, ToJsonMode mode, fl::i18n::codecvt_ustring_to_string& utf8, const nesting& depth) {
  std::string text = matrix::get_string(a, utf8);
  const auto dims = dims_of(a);
  const bool row = dims.size() == 2 && dims[0] == 1 && dims[1] >= 1;
  if (mode == ToJsonMode::small && (row || is_2d(dims, 0, 0))) return Value(std::move(text));
  Array size = tnsize_of(dims);
  depth.require(2);
  Array data;
  data.reserve(1);
  data.emplace_back(std::move(text));
  return large_object(element_traits<char16_t>::name, std::move(size), Value(std::move(data)));
}

}  // namespace ixtal_json::detail
