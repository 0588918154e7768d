#pragma once

// Table rows for the encoder tests: an array, the options, and the text the
// encode builtin must return.

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "support/host.hpp"

namespace dovra_test {

using shared_array = std::shared_ptr<ixArray>;
inline shared_array share(owned_array a) { return shared_array(a.release(), matrix::array_deleter()); }

inline shared_array D(const std::vector<double>& data, std::vector<ixSize> dims) {
  return share(make_double(data, std::move(dims)));
}
inline shared_array L(const std::vector<bool>& data, std::vector<ixSize> dims) {
  auto a = make_numeric<bool>({}, std::move(dims));
  std::copy(data.begin(), data.end(), static_cast<bool*>(ixGetData(a.get())));
  return share(std::move(a));
}
inline shared_array Ch(std::u16string_view chars, std::vector<ixSize> dims) {
  return share(make_char(chars, std::move(dims)));
}
inline owned_array own(const shared_array& a) { return owned_array(ixDuplicateArray(a.get())); }

inline constexpr double kNaN = NAN, kInf = INFINITY;
inline constexpr float kNaNf = NAN, kInff = INFINITY;

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

namespace dovra_test {

// Containers whose elements are copies of the given arrays; null leaves an
// element unset.
inline shared_array Cell(const std::vector<shared_array>& elements, std::vector<ixSize> dims) {
  std::vector<owned_array> owned;
  for (const auto& e : elements) owned.push_back(e ? own(e) : nullptr);
  return share(make_cell(std::move(owned), std::move(dims)));
}
inline shared_array St(const std::vector<std::string>& fields, const std::vector<shared_array>& values,
                       std::vector<ixSize> dims) {
  std::vector<owned_array> owned;
  for (const auto& v : values) owned.push_back(v ? own(v) : nullptr);
  return share(make_struct(fields, std::move(owned), std::move(dims)));
}

}  // namespace dovra_test
