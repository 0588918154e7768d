#pragma once

// Table rows for the decoder tests: a JSON text and either the array it
// must decode to or the error it must raise.

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "support/host.hpp"

namespace dovra_test {

using shared_array = std::shared_ptr<ixArray>;
inline shared_array share(owned_array a) { return shared_array(a.release(), matrix::array_deleter()); }
inline std::vector<owned_array> copies(const std::vector<shared_array>& arrays) {
  std::vector<owned_array> out;
  for (const auto& a : arrays) out.emplace_back(ixDuplicateArray(a.get()));
  return out;
}

template <class T>
shared_array N(const std::vector<T>& data, std::vector<ixSize> dims) { return share(make_numeric<T>(data, dims)); }
inline shared_array D(const std::vector<double>& data, std::vector<ixSize> dims) { return N<double>(data, dims); }
inline shared_array L(const std::vector<bool>& data, std::vector<ixSize> dims) { return N<bool>(data, dims); }
inline shared_array Ch(std::u16string_view chars, std::vector<ixSize> dims) { return share(make_char(chars, dims)); }
inline shared_array Cell(const std::vector<shared_array>& elements, std::vector<ixSize> dims) {
  return share(make_cell(copies(elements), dims));
}
inline shared_array St(const std::vector<std::string>& fields, const std::vector<shared_array>& values,
                       std::vector<ixSize> dims) {
  return share(make_struct(fields, copies(values), dims));
}

inline constexpr double kNaN = NAN, kInf = INFINITY;
using S = std::string;  // message arguments are UTF-8 texts

inline std::string shape_of(const ixArray* a) {
  std::string s = std::string(ixGetClassName(a)) + (ixIsComplex(a) ? " complex" : "");
  for (ixSize d : dims_of(a)) s += " " + std::to_string(d);
  return s;
}

struct decode_row {
  std::string json;
  shared_array expected;
};

inline void expect_decodes(const std::vector<decode_row>& rows, owned_array (*fn)(std::string_view) = &decode) {
  LeakCheck leaks;
  for (const decode_row& row : rows) {
    owned_array got;
    if (auto f = failure_of([&] { got = fn(row.json); })) {
      ADD_FAILURE() << row.json << " failed: " << f->identifier << " " << f->message;
      continue;
    }
    EXPECT_TRUE(ixIsEqualN(got.get(), row.expected.get()))
        << row.json << "\n  got " << shape_of(got.get()) << "\n  expected " << shape_of(row.expected.get());
  }
}

struct failure_row {
  std::string json;
  std::string key;  // the identifier without "DOVRA:IXTAL:JSON:"
  std::vector<resource_core::MsgArg> args = {};
};

inline void expect_failures(const std::vector<failure_row>& rows, owned_array (*fn)(std::string_view) = &decode) {
  LeakCheck leaks;
  for (const failure_row& row : rows) {
    SCOPED_TRACE(row.json);
    expect_failure([&] { fn(row.json); }, "DOVRA:IXTAL:JSON:" + row.key, row.args);
  }
}

}  // namespace dovra_test
