#include "encode/converter.hpp"

#include <functional>
#include <stdexcept>

#include "encode/char_writer.hpp"
#include "encode/container_writer.hpp"
#include "encode/forms.hpp"
#include "encode/numeric_writer.hpp"
#include "errors/conversion_exceptions.hpp"

namespace ixtal_json::detail {

using foundation::json::Value;

template <ToJsonMode Mode, NanType Nan>
ixArray_to_json_converter<Mode, Nan>::ixArray_to_json_converter(encode_trail* trail)
    : utf8_("UTF-8", true), trail_(trail) {}

template <ToJsonMode Mode, NanType Nan>
Value ixArray_to_json_converter<Mode, Nan>::operator()(const ixArray* a) {
  a->_complete_opaque_dimensions();
  try {
    return convert_form(a, form_of(ixGetHeader(a), Mode));
  } catch (const IxUnsupportedType&) {
    throw;  // a contained array's class, already named
  } catch (const std::invalid_argument&) {
    // A checked view refused the array: wrong storage for its class.
    throw IxUnsupportedType(ixGetClassName(a));
  }
}

template <ToJsonMode Mode, NanType Nan>
Value ixArray_to_json_converter<Mode, Nan>::convert_form(const ixArray* a, Form form) {
  switch (form) {
    // Sparse storage, unknown classes and classes without a JSON form.
    case Form::none: throw IxUnsupportedType(ixGetClassName(a));
    case Form::cell: return write_cell(a, element_encoder(std::ref(*this), trail_), depth_);
    case Form::fields: return write_struct_large(a, element_encoder(std::ref(*this), trail_), depth_);
    case Form::object:
    case Form::empty_object: return write_struct_small(a, form, element_encoder(std::ref(*this), trail_), depth_);
    default: break;
  }
  switch (ixGetClassID(a)) {
    case ixCHAR_CLASS: return write_char(a, form, utf8_, depth_);
    case ixLOGICAL_CLASS: return write_logical(a, form, depth_);
    case ixDOUBLE_CLASS: return write_double(a, form, Nan, depth_);
    // The other numeric classes, real or complex, and complex double.
    default: return write_numeric_large(a, Nan, depth_);
  }
}

Value convert(const ixArray* a, ToJsonMode mode, NanType nan, encode_trail* trail) {
  if (mode == ToJsonMode::large)
    return nan == NanType::string ? ixArray_to_json_converter<ToJsonMode::large, NanType::string>(trail)(a)
                                  : ixArray_to_json_converter<ToJsonMode::large, NanType::object>(trail)(a);
  return nan == NanType::string ? ixArray_to_json_converter<ToJsonMode::small, NanType::string>(trail)(a)
                                : ixArray_to_json_converter<ToJsonMode::small, NanType::object>(trail)(a);
}

// The four variants the encode builtin chooses from.
template class ixArray_to_json_converter<ToJsonMode::large, NanType::string>;
template class ixArray_to_json_converter<ToJsonMode::small, NanType::string>;
template class ixArray_to_json_converter<ToJsonMode::large, NanType::object>;
template class ixArray_to_json_converter<ToJsonMode::small, NanType::object>;

}  // namespace ixtal_json::detail
