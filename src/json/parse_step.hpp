#pragma once

// From a builtin's text argument to a JSON value tree.

#include <string_view>

#include "foundation/json/value.hpp"
#include "ixtal/array.hpp"

namespace dovra_json {

// The parse step of the decode builtins: reads the argument (any char array
// or a non-missing string scalar; anything else raises
// "IXTAL:checkSyntacticWarnings:MustBeStringScalarOrCharacterVector"),
// converts it to UTF-8 and parses it; malformed text raises the keyed parse
// error with its position prefix and context suffix.
foundation::json::Value parse_text_argument(const ixArray* arg);

// Its two halves: the argument's text (or the argument error), and the text
// parsed (or the parse error).
std::u16string_view text_argument(const ixArray* arg);
foundation::json::Value parse_text(std::u16string_view text);

}  // namespace dovra_json
