#pragma once

// Table rows for the encoder tests: an array, the options, and the text the
// encode builtin must return.

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "support/builders.hpp"

namespace dovra_test {


struct encode_row {
  const char* label;
  shared_array array;
  const char* format;
  const char* nan;  // "*": the text is the same in both forms
  std::string expected;
};

inline void expect_rows(const std::vector<encode_row>& rows) {
  LeakCheck leaks;
  for (const encode_row& row : rows)
    for (const char* nan : {"string", "object"}) {
      if (std::string(row.nan) != "*" && row.nan != std::string(nan)) continue;
      EXPECT_EQ(encode(row.array.get(), row.format, nan), row.expected)
          << row.label << " (" << row.format << ", " << nan << ")";
    }
}

}  // namespace dovra_test

