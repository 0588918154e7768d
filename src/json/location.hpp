#pragma once

// Where in the text a parse stopped, as a reader of the text sees it.

#include <cstdint>
#include <string>

namespace foundation::json {

struct LocationInfo {
  std::uint64_t line;    // 1-based; only "\n" ends a line
  std::uint64_t column;  // 0-based byte column within the line
  std::string context;   // the line around the position, at most 80 bytes either side
  std::uint64_t caret;   // blanks before the caret under context: min(column, 80)
};

// pos lies in [begin, end].
LocationInfo get_location_info(const char* begin, const char* pos, const char* end);

}  // namespace foundation::json
