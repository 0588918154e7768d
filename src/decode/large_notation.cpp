#include "decode/large_notation.hpp"

#include <cmath>
#include <string>

#include "decode/char_data.hpp"
#include "decode/containers.hpp"
#include "decode/driver.hpp"
#include "decode/element_rules.hpp"
#include "decode/flat_data.hpp"
#include "decode/ixtal_type.hpp"
#include "decode/nonfinite_object.hpp"
#include "decode/rules.hpp"
#include "errors/conversion_exceptions.hpp"
#include "host/json_keys.hpp"

namespace ixtal_json {

namespace detail {
namespace {

using foundation::json::Array;
using foundation::json::Object;
using foundation::json::traits;
using foundation::json::Value;

dims_vector read_tnsize(const Array& entries) {
  dims_vector dims;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const Value& e = entries[i];
    ixSize size;
    if (!e.is_double() || !size_entry(e.as_double(), size)) throw fault_at(InvalidTNSize(), keys::tnsize, i);
    dims.push_back(size);
  }
  if (dims.size() < kMinDimensions) throw fault_at(InvalidTNSize(), keys::tnsize);
  return dims;
}

bool read_tncomplex(const Object& obj) {
  const auto it = obj.find(keys::tncomplex);
  if (it == obj.end()) return false;
  if (!it->second.is_bool()) throw fault_at(InvalidPropertyType(keys::tncomplex, traits<bool>::name), keys::tncomplex);
  return it->second.as_bool();
}

const Array& data_array(const large_format_context& ctx, const char* class_name) {
  if (!ctx.data.is_array()) throw fault_at(InvalidTNDataType(class_name, traits<Array>::name), keys::tndata);
  return ctx.data.as_array();
}

// Numeric and logical data: one value per element (a pair per complex
// element, which the host stores interleaved just the same), each through
// the class's element rule.
template <class T>
matrix::owned_array read_flat(const Array& data, const dims_vector& dims, bool complex) {
  const ixSize slots = value_count(element_count(dims), complex);
  if (data.size() != slots) {
    report_size_mismatch(data, slots, complex, [](const Value& v) {
      T x;
      if (!convert_element(v, x)) throw_element_error<T>();
    });
  }
  auto a = uninitialised_array<T>(dims, complex);
  T* out = data_of<T>(a);
  for (const Value& v : data)
    if (!convert_element(v, *out++)) throw_element_error<T>(keys::tndata, std::size_t(&v - data.data()));
  return a;
}

}  // namespace
}  // namespace detail

// One reader per "tntype".
template <class Policy>
struct ixtal_json_large_format_visitor {
  const detail::large_format_context& ctx;

  template <detail::IxtalType X>
  typename Policy::result_type operator()(detail::ixtal_type_tag<X>) const {
    using namespace detail;
    if constexpr (is_numeric_type(X)) {
      using T = element_type_of<X>;
      const Array& data = data_array(ctx, element_traits<T>::name);
      return read_flat<T>(data, ctx.dims, read_tncomplex(ctx.object));
    } else if constexpr (X == IxtalType::kLogical) {
      return read_flat<bool>(data_array(ctx, element_traits<bool>::name), ctx.dims, false);
    } else if constexpr (X == IxtalType::kChar) {
      const Array& data = data_array(ctx, element_traits<char16_t>::name);
      if (data.size() != 1 || !data.front().is_string()) throw fault_at(InvalidCharArrayTNData(), keys::tndata);
      return char_array(data.front().as_string(), ctx.dims);
    } else if constexpr (X == IxtalType::kCell) {
      return read_cell(ctx);
    } else if constexpr (X == IxtalType::kStruct) {
      return read_struct(ctx);
    } else if constexpr (X == IxtalType::kString) {
      return read_string_array(ctx);
    } else {
      // The embedded host has no user-defined classes, so no class object
      // or enumeration can be made whatever the data say.
      static_assert(X == IxtalType::kObject || X == IxtalType::kEnum);
      throw fault_at(InvalidTNType(ixtal_type_name(X)), keys::tntype);
    }
  }
};

namespace detail {

matrix::owned_array decode_object(const Object& obj) {
  const auto end = obj.end();
  const auto type_it = obj.find(keys::tntype);
  const auto data_it = obj.find(keys::tndata);
  const ObjectRole role = object_role(type_it != end, data_it != end);

  if (role == ObjectRole::kLarge) {
    const auto size_it = obj.find(keys::tnsize);
    if (size_it == end || data_it == end) throw MissingTNSizeOrTNData();
    if (!size_it->second.is_array())
      throw fault_at(InvalidPropertyType(keys::tnsize, traits<Array>::name), keys::tnsize);
    if (!type_it->second.is_string())
      throw fault_at(InvalidPropertyType(keys::tntype, traits<std::string>::name), keys::tntype);
    const std::string& name = type_it->second.as_string();
    IxtalType type;
    try {
      type = ixtal_type_for_name(name);
    } catch (...) {
      throw fault_at(InvalidTNType(name), keys::tntype);
    }
    const dims_vector dims = read_tnsize(size_it->second.as_array());
    const large_format_context ctx{obj, data_it->second, dims};
    return dispatch_on_IxtalType(type, ixtal_json_large_format_visitor<to_ixArray_visitor>{ctx});
  }

  if (role == ObjectRole::kSpecialFloat) {
    double x;
    if (!read_special_float(obj, x)) throw MissingTNTypeOrTNSize();
    return matrix::owned_array(ixCreateDoubleScalar(x));
  }

  return read_plain_struct(obj);
}

}  // namespace detail
}  // namespace ixtal_json
