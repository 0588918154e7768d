#pragma once

// How deep the JSON being written nests. The encoder refuses to write text
// the parser would refuse to read back, and the same bound keeps its own
// recursion through cells and structures within a small thread stack.

#include <cstddef>
#include <stdexcept>

#include "json/limits.hpp"

namespace ixtal_json {

// The encoder's output would nest deeper than the parser reads. The encode
// builtin turns it into DOVRA:IXTAL:JSON:EncodeNestingTooDeep.
class IxNestingTooDeep : public std::runtime_error {
 public:
  IxNestingTooDeep() : std::runtime_error("JSON output would nest too deeply") {}
};

namespace detail {

// The number of JSON arrays and objects that enclose the value being
// written. Writers ask before they open containers; container writers
// descend while they encode their elements.
class nesting {
 public:
  // Throws IxNestingTooDeep unless `levels` more containers fit here.
  void require(std::size_t levels) const {
    if (levels > dovra_json::kMaxNestingDepth - depth_) throw IxNestingTooDeep();
  }

  class scope {
   public:
    scope(nesting& n, std::size_t levels) : n_(n), levels_(levels) {
      n.require(levels);
      n.depth_ += levels;
    }
    ~scope() { n_.depth_ -= levels_; }
    scope(const scope&) = delete;
    scope& operator=(const scope&) = delete;

   private:
    nesting& n_;
    std::size_t levels_;
  };

 private:
  std::size_t depth_ = 0;
};

}  // namespace detail
}  // namespace ixtal_json
