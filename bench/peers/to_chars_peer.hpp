#pragma once

// The floor of encoding: std::to_chars (shortest round-trip text) in a plain
// loop into one preallocated buffer, writing the same text as our encoder.

#include <string_view>
#include <vector>

#include "peers/outputs.hpp"

namespace dovra_bench::peers {

class ToCharsEncoder {
 public:
  std::string_view write(const NumericMatrix& m, Layout layout);

 private:
  std::vector<char> buffer_;  // grown to the worst case once, then reused
};

}  // namespace dovra_bench::peers
