#pragma once

// Where an encode failure lies: the steps from the argument down to the
// array at fault, in the host's notation ("{3}.meta(2)"). They are not kept
// while the writers descend; each container writer adds its step as the
// failure unwinds through it, so an encode that succeeds pays nothing.

#include <string>
#include <vector>

#include "ixtal/array.hpp"

namespace ixtal_json::detail {

class encode_trail {
 public:
  // The array at `index` of a cell (field < 0) or at field `field` of
  // element `index` of a structure. Never throws: a step that cannot be
  // kept leaves the trail without a path.
  void enter(const ixArray* container, ixSize index, int field) noexcept;

  // Outermost step first; empty for the argument itself. Only while the
  // arrays entered live.
  bool known() const noexcept { return !lost_; }
  std::string text() const;

 private:
  struct step {
    const ixArray* container;
    ixSize index;
    int field;
  };
  std::vector<step> inner_first_;
  bool lost_ = false;
};

}  // namespace ixtal_json::detail
