#pragma once

// simdjson's DOM API: parse the whole text, then walk the tree into the
// caller's buffers, as an application filling typed arrays would. Shapes are
// checked on the way (a real reader would), element types by simdjson's
// checked getters.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <simdjson.h>

#include "peers/outputs.hpp"

namespace dovra_bench::peers {

class SimdjsonDecoder {
 public:
  // Copies the text into simdjson's padded buffer once, outside any timing.
  explicit SimdjsonDecoder(std::string_view json) : text_(json) {}

  // Rows of numbers -> column-major rows-by-cols doubles.
  void matrix(double* out, std::size_t rows, std::size_t cols);
  // {"tndata":[...],"tnsize":[1,n],"tntype":"int32"} -> n int32 values.
  void int32_row(std::int32_t* out, std::size_t n);
  // {"lhs":["...", ...]} -> the strings, copied out.
  void response_strings(StringColumn& out);
  // {"tndata":[{...}, ...],"tnsize":[n,1],"tntype":"cell"} -> out, sized n by the caller.
  void records(std::vector<Record>& out);

  // The kernel simdjson chose for this processor at run time.
  static std::string implementation();

 private:
  simdjson::padded_string text_;
  simdjson::dom::parser parser_;  // reused: its buffers are allocated by the first parse
};

}  // namespace dovra_bench::peers
