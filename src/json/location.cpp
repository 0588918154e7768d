#include "json/location.hpp"

#include <algorithm>
#include <cstring>

namespace foundation::json {

namespace {
// Long lines are cut to this many bytes on either side of the position, so
// a minified document does not become one huge error message.
constexpr std::size_t kContextReach = 80;
}  // namespace

LocationInfo get_location_info(const char* begin, const char* pos, const char* end) {
  const std::size_t offset = std::size_t(pos - begin);
  const std::uint64_t line = 1 + std::uint64_t(std::count(begin, pos, '\n'));

  std::size_t line_start = offset;
  while (line_start > 0 && begin[line_start - 1] != '\n') --line_start;
  const std::size_t column = offset - line_start;

  const std::size_t first = offset - std::min(column, kContextReach);
  const std::size_t limit = std::min(std::size_t(end - begin), offset + kContextReach);
  const void* nl = std::memchr(pos, '\n', limit - offset);
  const std::size_t last = nl ? std::size_t(static_cast<const char*>(nl) - begin) : limit;

  return {line, column, std::string(begin + first, begin + last), offset - first};
}

}  // namespace foundation::json
