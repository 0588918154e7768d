#include "encode/char_writer.hpp"

#include "encode/large_object.hpp"
#include "ixtal/matrix.hpp"

namespace ixtal_json::detail {

using foundation::json::Array;
using foundation::json::Value;

Value write_char(const ixArray* a, Form form, fl::i18n::codecvt_ustring_to_string& utf8, const nesting& depth) {
  std::string text = matrix::get_string(a, utf8);
  if (form == Form::string) return Value(std::move(text));
  Array size = tnsize_of(dims_of(a));
  depth.require(2);
  Array data;
  data.reserve(1);
  data.emplace_back(std::move(text));
  return large_object(type_name(ixCHAR_CLASS), std::move(size), Value(std::move(data)));
}

}  // namespace ixtal_json::detail
