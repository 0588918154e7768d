#include "encode/converter.hpp"

#include <functional>
#include <stdexcept>

#include "encode/char_writer.hpp"
#include "encode/container_writer.hpp"
#include "encode/numeric_writer.hpp"
#include "errors/conversion_exceptions.hpp"
#include "ixtal/matrix.hpp"

namespace ixtal_json::detail {

using foundation::json::Value;

template <ToJsonMode Mode, NanType Nan>
ixArray_to_json_converter<Mode, Nan>::ixArray_to_json_converter(encode_trail* trail)
    : utf8_("UTF-8", true), trail_(trail) {}

template <ToJsonMode Mode, NanType Nan>
Value ixArray_to_json_converter<Mode, Nan>::operator()(const ixArray* a) {
  a->_complete_opaque_dimensions();
  try {
    // Complex arrays have no small form.
    if (ixIsComplex(a)) return write_numeric_large(a, Nan, depth_);
    return convert_real(a);
  } catch (const IxUnsupportedType&) {
    throw;  // a contained array's class, already named
  } catch (const std::invalid_argument&) {
    // A checked view refused the array: sparse, wrong storage or unknown class.
    throw IxUnsupportedType(ixGetClassName(a));
  }
}

template <ToJsonMode Mode, NanType Nan>
Value ixArray_to_json_converter<Mode, Nan>::convert_real(const ixArray* a) {
  constexpr bool large = Mode == ToJsonMode::large;
  switch (ixGetClassID(a)) {
    case ixCELL_CLASS:
      return write_cell(a, element_encoder(std::ref(*this), trail_), depth_);
    case ixSTRUCT_CLASS:
      return large ? write_struct_large(a, element_encoder(std::ref(*this), trail_), depth_)
                   : write_struct_small(a, element_encoder(std::ref(*this), trail_), depth_);
    case ixLOGICAL_CLASS:
      return large ? write_logical_large(a, depth_) : write_logical_small(a, depth_);
    case ixCHAR_CLASS:
      return write_char(a, Mode, utf8_, depth_);
    case ixDOUBLE_CLASS:
      return large ? write_numeric_large(a, Nan, depth_) : write_double_small(a, Nan, depth_);
    default: break;
  }
  // The other numeric classes have only the large form; any other class
  // the host knows has no JSON form at all.
  if (ixIsNumeric(a)) return write_numeric_large(a, Nan, depth_);
  if (matrix::detail::isValidClassId(ixGetClassID(a))) throw IxUnsupportedType(ixGetClassName(a));
  matrix::detail::rejectInvalidClassId(a);
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
