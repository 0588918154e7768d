#pragma once

// Arrays for table rows, built from their data in storage order. Rows hold
// them shared, so that one array can stand in several rows; a container
// takes copies of its elements, and a null element stays unset.

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "support/host.hpp"

namespace dovra_test {

inline constexpr double kNaN = NAN, kInf = INFINITY;
inline constexpr float kNaNf = NAN, kInff = INFINITY;

using shared_array = std::shared_ptr<ixArray>;
inline shared_array share(owned_array a) { return shared_array(a.release(), matrix::array_deleter()); }
inline owned_array copy_of(const shared_array& a) { return owned_array(a ? ixDuplicateArray(a.get()) : nullptr); }

template <class T>
shared_array numeric(const std::vector<T>& data, std::vector<ixSize> dims) {
  return share(make_numeric<T>(data, std::move(dims)));
}
inline shared_array doubles(const std::vector<double>& data, std::vector<ixSize> dims) {
  return numeric<double>(data, std::move(dims));
}
inline shared_array logicals(const std::vector<bool>& data, std::vector<ixSize> dims) {
  return numeric<bool>(data, std::move(dims));
}
inline shared_array chars(std::u16string_view text, std::vector<ixSize> dims) {
  return share(make_char(text, std::move(dims)));
}
inline shared_array cell(const std::vector<shared_array>& elements, std::vector<ixSize> dims) {
  std::vector<owned_array> owned;
  for (const auto& e : elements) owned.push_back(copy_of(e));
  return share(make_cell(std::move(owned), std::move(dims)));
}
inline shared_array structure(const std::vector<std::string>& fields, const std::vector<shared_array>& values,
                              std::vector<ixSize> dims) {
  std::vector<owned_array> owned;
  for (const auto& v : values) owned.push_back(copy_of(v));
  return share(make_struct(fields, std::move(owned), std::move(dims)));
}

}  // namespace dovra_test
