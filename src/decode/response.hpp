#pragma once

// The response-decode builtin's general path, over the value tree (the
// reader from the text, decode/text_reader.hpp, gives the same answer).

#include <optional>
#include <string_view>

#include "foundation/json/value.hpp"
#include "ixtal/matrix.hpp"

namespace ixtal_json {

// The scope code the host expects on every array a decode hands back.
inline constexpr int kReturnedScope = 4;

// {"lhs":[...]} becomes an n-by-1 cell of the decoded elements, each with
// the returned scope; any other document becomes false. out receives the
// result as soon as it exists: a failing element leaves the cell, partly
// filled, to whoever holds out. Given the text root was parsed from, an
// error carries the location of the value at fault in it ("$.lhs[i]...").
void decode_response(foundation::json::Value& root, ixArray*& out,
                     std::optional<std::u16string_view> text = std::nullopt);

}  // namespace ixtal_json
