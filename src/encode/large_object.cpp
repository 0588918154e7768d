#include "encode/large_object.hpp"

#include <stdexcept>

#include "encode/forms.hpp"
#include "host/element_count.hpp"
#include "host/json_keys.hpp"

namespace ixtal_json::detail {

using foundation::json::Array;
using foundation::json::Object;
using foundation::json::Value;

Array tnsize_of(std::span<const ixSize> dims) {
  if (dims.size() < 2) throw std::runtime_error("Must have at least two dimensions");
  Array size;
  size.reserve(dims.size());
  for (ixSize d : dims) size.emplace_back(size_entry(d));
  return size;
}

void check_count(std::size_t written, std::span<const ixSize> dims) {
  if (written != element_count(dims)) throw std::runtime_error("Number of elements did not match specified dimensions");
}

Value large_object(const char* type, Array size, Value data, bool complex) {
  Object o;
  if (complex) o.emplace(keys::tncomplex, Value(true));
  o.emplace(keys::tndata, std::move(data));
  o.emplace(keys::tnsize, Value(std::move(size)));
  o.emplace(keys::tntype, Value(type));
  return Value(std::move(o));
}

}  // namespace ixtal_json::detail
