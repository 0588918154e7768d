#pragma once

// A path from a document's root to one of its values: what a conversion
// error says it is about, and how the value is found again in the text.

#include <cstddef>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "ixtal/errors.hpp"

namespace dovra_json {

// One step from a value to one it holds: an array index (from 0, as in the
// text) or an object member's name (UTF-8, as the tree holds it).
using PathStep = std::variant<std::size_t, std::string>;
using ValuePath = std::vector<PathStep>;  // outermost first

// "$", then "[i]" per index, ".name" per plain name ([A-Za-z_][A-Za-z0-9_]*)
// and ["name"] (a JSON string) per other name.
std::string path_text(const ValuePath& path);

// The location of the value at the end of path in text, the text the tree
// was parsed from: one scan of its UTF-8 form, following the path, counting
// line and column as for parse errors. A member is found by its name, the
// first of repeated names, as the tree keeps it. Should the path lead
// nowhere (it never does for a path the conversion took), the location is
// that of the last value it reached.
ixtal::ErrorLocation locate_value(std::u16string_view text, const ValuePath& path);

}  // namespace dovra_json
