#pragma once

#include <cstddef>

namespace dovra_json {

// The deepest nesting of JSON arrays and objects the parser reads and the
// encoder writes. Far beyond real data, and shallow enough that parsing,
// decoding and encoding at this depth fit in a 1 MiB thread stack.
inline constexpr std::size_t kMaxNestingDepth = 1000;

}  // namespace dovra_json
