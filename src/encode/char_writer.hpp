#pragma once

// The writer for character arrays.

#include "encode/modes.hpp"
#include "encode/nesting.hpp"
#include "foundation/json/value.hpp"
#include "ixtal/array.hpp"

namespace fl::i18n {
class codecvt_ustring_to_string;
}

namespace ixtal_json::detail {

// The whole text of the array, column by column, as one UTF-8 string: bare
// in small notation for 0-by-0 and 1-by-N, inside the large object for
// every other shape and always in large notation.
foundation::json::Value write_char(const ixArray* a, ToJsonMode mode, fl::i18n::codecvt_ustring_to_string& utf8,
                                   const nesting& depth);

}  // namespace ixtal_json::detail
