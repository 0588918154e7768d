#include "encode/trail.hpp"

#include "ixtal/notation.hpp"

namespace ixtal_json::detail {

void encode_trail::enter(const ixArray* container, ixSize index, int field) noexcept {
  try {
    inner_first_.push_back({container, index, field});
  } catch (...) {
    lost_ = true;
  }
}

std::string encode_trail::text() const {
  std::string out;
  for (auto s = inner_first_.rbegin(); s != inner_first_.rend(); ++s) {
    if (s->field < 0) {
      out += "{" + ixtal::subscripts(s->container, s->index) + "}";
      continue;
    }
    // A scalar structure's fields follow it directly, as the display lists them.
    if (ixGetNumberOfElements(s->container) != 1) out += "(" + ixtal::subscripts(s->container, s->index) + ")";
    out += "." + ixtal::field_label(ixGetFieldName(s->container, s->field));
  }
  return out;
}

}  // namespace ixtal_json::detail
