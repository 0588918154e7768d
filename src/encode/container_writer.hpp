#pragma once

// The writers for cell and structure arrays. They encode each contained
// array with the converter that called them, so nested arrays follow the
// same notation and NaN form.

#include <functional>

#include "encode/forms.hpp"
#include "encode/nesting.hpp"
#include "encode/trail.hpp"
#include "foundation/json/value.hpp"
#include "ixtal/array.hpp"

namespace ixtal_json::detail {

// The calling converter, held by reference. A failure inside an element
// leaves the element's place on the trail as it unwinds.
class element_encoder {
 public:
  element_encoder(std::function<foundation::json::Value(const ixArray*)> encode, encode_trail* trail)
      : encode_(std::move(encode)), trail_(trail) {}

  // value is held at index of the cell container, or at field of element
  // index of the structure container.
  foundation::json::Value operator()(const ixArray* value, const ixArray* container, ixSize index,
                                     int field = -1) const {
    try {
      return encode_(value);
    } catch (...) {
      if (trail_) trail_->enter(container, index, field);
      throw;
    }
  }

 private:
  std::function<foundation::json::Value(const ixArray*)> encode_;
  encode_trail* trail_;
};

// {"tndata":[one value per element],"tnsize":...,"tntype":"cell"}, in both
// notations; unset elements are written as the empty double.
foundation::json::Value write_cell(const ixArray* a, const element_encoder& encode, nesting& depth);

// {"tndata":{field:[one value per element]},"tnsize":...,"tntype":"struct"}.
foundation::json::Value write_struct_large(const ixArray* a, const element_encoder& encode, nesting& depth);

// A structure in the object form ({field:value}, values in small notation)
// or the empty-object form ({}).
foundation::json::Value write_struct_small(const ixArray* a, Form form, const element_encoder& encode, nesting& depth);

}  // namespace ixtal_json::detail
