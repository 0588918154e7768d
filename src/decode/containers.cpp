#include "decode/containers.hpp"

#include <optional>
#include <string>
#include <vector>

#include "decode/driver.hpp"
#include "decode/flat_data.hpp"
#include "decode/rules.hpp"
#include "errors/conversion_exceptions.hpp"
#include "host/json_keys.hpp"
#include "ixtal/string_array.hpp"
#include "ixtal/text.hpp"

namespace ixtal_json::detail {

namespace {

using foundation::json::Array;
using foundation::json::Object;
using foundation::json::traits;
using foundation::json::Value;

constexpr const char* kCellName = names::cell;
constexpr const char* kStructName = names::structure;
constexpr const char* kStringName = names::string;

// A structure whose field names are the keys of obj. The object holds each
// name once (the first of repeated names) and iterates in byte order, the
// field order.
matrix::owned_array new_struct(const dims_vector& dims, const Object& obj) {
  std::vector<std::string> names;
  names.reserve(obj.size());
  for (const auto& member : obj) names.push_back(member.first);
  return matrix::owned_array(ixCreateStructArray(dims.size(), dims.data(), int(names.size()), names.data()));
}

// The container takes the value only once it is stored.
void set_field(ixArray* s, ixSize index, int field, matrix::owned_array value) {
  ixSetFieldByNumber(s, index, field, value.get());
  value.release();
}

}  // namespace

matrix::owned_array read_cell(const large_format_context& ctx) {
  if (!ctx.data.is_array()) throw fault_at(InvalidTNDataType(kCellName, traits<Array>::name), keys::tndata);
  const Array& items = ctx.data.as_array();
  if (!fills(items.size(), ctx.dims)) throw MismatchedTNSize();
  return cell_of(ctx.dims, items.size(), [&](std::size_t i) { return decode_element_at(items[i], keys::tndata, i); });
}

matrix::owned_array read_struct(const large_format_context& ctx) {
  if (!ctx.data.is_object()) throw fault_at(InvalidTNDataType(kStructName, traits<Object>::name), keys::tndata);
  const Object& fields = ctx.data.as_object();
  const ixSize count = element_count(ctx.dims);
  for (const auto& [name, values] : fields) {
    if (!values.is_array()) throw fault_at(InvalidTNDataType(kStructName, traits<Array>::name), keys::tndata, name);
    if (values.as_array().size() != count) throw MismatchedTNSize();
  }
  // Without fields no data speak for the size, but a size beyond 64 bits
  // is still not one an array can have.
  if (count == kUncountable) throw MismatchedTNSize();

  auto s = new_struct(ctx.dims, fields);
  int field = 0;
  // Field by field, as the text lists them, so the first bad value in the
  // text is the one reported.
  for (const auto& [name, column] : fields) {
    const Array& values = column.as_array();
    for (std::size_t i = 0; i < values.size(); ++i)
      set_field(s.get(), i, field, decode_element_at(values[i], keys::tndata, name, i));
    ++field;
  }
  return s;
}

matrix::owned_array read_string_array(const large_format_context& ctx) {
  if (!ctx.data.is_array()) throw fault_at(InvalidTNDataType(kStringName, traits<Array>::name), keys::tndata);
  const Array& items = ctx.data.as_array();
  // Each element must be a string, or null for a missing one.
  const auto check = [](const Value& v) {
    if (!v.is_string() && !v.is_null()) throw InvalidTNDataType(kStringName, traits<std::string>::name);
  };
  const ixSize count = element_count(ctx.dims);
  if (items.size() != count) report_size_mismatch(items, count, false, check);

  matrix::owned_array strings(ixCreateStringArray(ctx.dims.size(), ctx.dims.data()));
  const fl::i18n::codecvt_string_to_ustring from_utf8("UTF-8");
  std::u16string text;
  for (std::size_t i = 0; i < items.size(); ++i) {
    const Value& v = items[i];
    at_path([&] { check(v); }, keys::tndata, i);
    if (v.is_null()) {
      Tovenar::String::setString(strings.get(), i, std::nullopt);
      continue;
    }
    text.clear();
    from_utf8.convert(v.as_string().data(), v.as_string().size(), text);
    Tovenar::String::setString(strings.get(), i, std::u16string_view(text));
  }
  return strings;
}

matrix::owned_array read_plain_struct(const Object& obj) {
  const dims_vector one{1, 1};
  auto s = new_struct(one, obj);
  int field = 0;
  for (const auto& [name, value] : obj) set_field(s.get(), 0, field++, decode_element_at(value, name));
  return s;
}

}  // namespace ixtal_json::detail
