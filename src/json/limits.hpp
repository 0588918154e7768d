#pragma once

#include <cstddef>

namespace dovra_json {

// The deepest nesting of JSON arrays and objects the parser reads and the
// encoder writes. Far beyond real data, and shallow enough that parsing,
// decoding and encoding at this depth fit in a 1 MiB thread stack.
inline constexpr std::size_t kMaxNestingDepth = 1000;

// Lets the grammar skip /* */ and // comments as white space; the builtins
// parse strictly.
inline constexpr unsigned char kAllowComments = 1;

}  // namespace dovra_json
