#pragma once

// The writer for character arrays.

#include "encode/forms.hpp"
#include "encode/nesting.hpp"
#include "foundation/json/value.hpp"
#include "ixtal/array.hpp"

namespace fl::i18n {
class codecvt_ustring_to_string;
}

namespace ixtal_json::detail {

// The whole text of the array, column by column, as one UTF-8 string: bare
// in the string form, inside the large object in the large one.
foundation::json::Value write_char(const ixArray* a, Form form, fl::i18n::codecvt_ustring_to_string& utf8,
                                   const nesting& depth);

}  // namespace ixtal_json::detail
