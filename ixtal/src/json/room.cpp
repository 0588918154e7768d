#include "foundation/json/serializer.hpp"
#include "foundation/json/text_output.hpp"
#include "number_text.hpp"

namespace foundation::json {
namespace {

// Bytes of s once escaped, without the quotes.
std::size_t escaped_size(const std::string& s) noexcept {
  std::size_t n = s.size();
  for (const char c : s) {
    const char e = kEscapes[static_cast<unsigned char>(c)];
    n += e ? (e == 'u' ? 5 : 1) : 0;
  }
  return n;
}

// Room for the text of v at the given level, never short: the text is
// written into it without regrowing. Room reserved and not written is
// never touched.
std::size_t room_for(const Value& v, std::size_t level, bool pretty) noexcept {
  using number_text::kLongestNumberText;
  switch (v.index()) {
    case Value::kString: return escaped_size(v.as_string()) + 2;
    case Value::kArray: {
      const std::size_t per_element = 1 + (pretty ? 1 + 2 * (level + 1) : 0);
      std::size_t n = 2 + (pretty ? 1 + 2 * level : 0);
      for (const Value& e : v.as_array())
        n += per_element + (e.index() == Value::kDouble ? kLongestNumberText : room_for(e, level + 1, pretty));
      return n;
    }
    case Value::kObject: {
      const std::size_t per_member = 4 + (pretty ? 2 + 2 * (level + 1) : 0);
      std::size_t n = 2 + (pretty ? 1 + 2 * level : 0);
      for (const auto& [name, member] : v.as_object())
        n += per_member + escaped_size(name) + room_for(member, level + 1, pretty);
      return n;
    }
    default: return kLongestNumberText;
  }
}

}  // namespace

std::size_t Serializer::room(const Value& v) const noexcept { return room_for(v, 0, pretty_); }

}  // namespace foundation::json
