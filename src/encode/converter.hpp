#pragma once

// From a host array to a JSON value tree, in one notation and one form of
// non-finite numbers, fixed by the template arguments.

#include "encode/forms.hpp"
#include "encode/modes.hpp"
#include "encode/nesting.hpp"
#include "encode/trail.hpp"
#include "foundation/json/value.hpp"
#include "ixtal/array.hpp"
#include "ixtal/text.hpp"

namespace ixtal_json::detail {

template <ToJsonMode Mode, NanType Nan>
class ixArray_to_json_converter {
 public:
  // A failure leaves on trail, when given, where it lies.
  explicit ixArray_to_json_converter(encode_trail* trail = nullptr);

  // Throws IxUnsupportedType naming the class of an array no writer takes
  // (sparse storage and unknown classes included), IxNestingTooDeep when the
  // text would nest deeper than the parser reads, and std::runtime_error
  // when an array's dimensions and contents disagree.
  foundation::json::Value operator()(const ixArray* a);

 private:
  foundation::json::Value convert_form(const ixArray* a, Form form);

  // One converter for every char array of the conversion, nested ones too.
  fl::i18n::codecvt_ustring_to_string utf8_;
  nesting depth_;
  encode_trail* trail_;
};

extern template class ixArray_to_json_converter<ToJsonMode::large, NanType::string>;
extern template class ixArray_to_json_converter<ToJsonMode::small, NanType::string>;
extern template class ixArray_to_json_converter<ToJsonMode::large, NanType::object>;
extern template class ixArray_to_json_converter<ToJsonMode::small, NanType::object>;

// The tree of a in the notation and form of non-finite numbers chosen at
// run time, by the instantiation that serves them; a failure leaves on
// trail, when given, the path to the array at fault.
foundation::json::Value convert(const ixArray* a, ToJsonMode mode, NanType nan, encode_trail* trail = nullptr);

}  // namespace ixtal_json::detail
