#pragma once

// Table rows for the decoder tests: a JSON text and either the array it
// must decode to or the error it must raise.

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "support/builders.hpp"

namespace dovra_test {

inline constexpr double kNaN = NAN, kInf = INFINITY;

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
