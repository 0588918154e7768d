#include "encode/container_writer.hpp"

#include <stdexcept>
#include <vector>

#include "encode/forms.hpp"
#include "encode/large_object.hpp"
#include "host/element_count.hpp"
#include "ixtal/matrix.hpp"

namespace ixtal_json::detail {
namespace {

using foundation::json::Array;
using foundation::json::Object;
using foundation::json::Value;

// Unset cell elements and field values read as the empty double; one is
// made when first needed and destroyed with the writer.
class unset_value {
 public:
  const ixArray* operator()(const ixArray* value) {
    if (value) return value;
    if (!empty_) empty_.reset(ixCreateNumericArray(2, kUnsetDims, kUnsetClass, ixREAL));
    return empty_.get();
  }

 private:
  matrix::owned_array empty_;
};

}  // namespace

Value write_cell(const ixArray* a, const element_encoder& encode, nesting& depth) {
  const auto dims = dims_of(a);
  Array size = tnsize_of(dims);
  const ixSize n = ixGetNumberOfElements(a);
  Array data;
  {
    const nesting::scope inside(depth, 2);
    unset_value value;
    data.reserve(n);
    for (ixSize i = 0; i < n; ++i) data.push_back(encode(value(ixGetCell(a, i)), a, i));
  }
  check_count(data.size(), dims);
  return large_object(type_name(ixCELL_CLASS), std::move(size), Value(std::move(data)));
}

Value write_struct_large(const ixArray* a, const element_encoder& encode, nesting& depth) {
  const auto dims = dims_of(a);
  Array size = tnsize_of(dims);
  const int nfields = ixGetNumberOfFields(a);
  const ixSize n = ixGetNumberOfElements(a);
  Object fields;
  std::vector<Array*> columns(static_cast<std::size_t>(nfields));
  {
    // {"tndata":{"field":[value, ...]}}; without fields the arrays are not there.
    const nesting::scope inside(depth, nfields > 0 ? 3 : 2);
    for (int f = 0; f < nfields; ++f) {
      Array& column = fields.emplace(ixGetFieldName(a, f), Value(Array())).first->second.as_array();
      column.reserve(n);
      columns[std::size_t(f)] = &column;
    }
    // Element by element, the order in which the host stores the values.
    unset_value value;
    for (ixSize i = 0; i < n; ++i)
      for (int f = 0; f < nfields; ++f) columns[std::size_t(f)]->push_back(encode(value(ixGetFieldByNumber(a, i, f)), a, i, f));
  }
  // Fields of one name, refused as everywhere (field_order), shared one
  // column: the message names the first of them by its overfull column.
  if (nfields > 0 && field_order(ixGetHeader(a).fields, nfields).empty())
    for (int f = 0; f < nfields; ++f)
      if (columns[std::size_t(f)]->size() != element_count(dims))
        throw std::runtime_error("Number of elements for field " + ixGetFieldName(a, f) +
                                 " did not match specified dimensions");
  return large_object(type_name(ixSTRUCT_CLASS), std::move(size), Value(std::move(fields)));
}

Value write_struct_small(const ixArray* a, Form form, const element_encoder& encode, nesting& depth) {
  const int nfields = ixGetNumberOfFields(a);
  if (form == Form::object) {
    const nesting::scope inside(depth, 1);
    Object out;
    unset_value value;
    for (int f = 0; f < nfields; ++f) out.emplace(ixGetFieldName(a, f), encode(value(ixGetFieldByNumber(a, 0, f)), a, 0, f));
    // Two field names the object would fold into one key.
    if (nfields > 0 && field_order(ixGetHeader(a).fields, nfields).empty())
      throw std::runtime_error("Number of fieldnames does not match number of elements");
    return Value(std::move(out));
  }
  depth.require(1);
  return Value(Object());
}

}  // namespace ixtal_json::detail
