#pragma once

// Table rows for the decoder tests: a JSON text and either the array it
// must decode to or the error it must raise.

#include <cmath>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "support/builders.hpp"

namespace dovra_test {


inline std::string shape_of(const ixArray* a) {
  std::string s = std::string(ixGetClassName(a)) + (ixIsComplex(a) ? " complex" : "");
  for (ixSize d : dims_of(a)) s += " " + std::to_string(d);
  return s;
}

// The field names of every structure in a, in field order, depth first:
// what equality of values leaves out.
inline std::string field_order(const ixArray* a) {
  if (!a) return {};
  const bool is_struct = ixGetClassID(a) == ixSTRUCT_CLASS, is_cell = ixGetClassID(a) == ixCELL_CLASS;
  std::string s;
  if (is_struct) {
    s += "{";
    for (int f = 0; f < ixGetNumberOfFields(a); ++f) s += ixGetFieldName(a, f) + ",";
    s += "}";
  }
  if (is_struct || is_cell) {
    const std::size_t slots = ixGetNumberOfElements(a) * (is_struct ? std::size_t(ixGetNumberOfFields(a)) : 1);
    for (std::size_t i = 0; i < slots; ++i) s += field_order(ixGetContents(a)[i]);
  }
  return s;
}

// The one-pass reader's array against the tree path's: the same value, and the same
// order of every structure's fields.
inline void expect_same_reading(const ixArray* direct, const ixArray* tree) {
  EXPECT_TRUE(ixIsEqualN(direct, tree)) << "reader " << shape_of(direct) << ", tree " << shape_of(tree);
  EXPECT_EQ(field_order(direct), field_order(tree));
}

// An integer as large bodies hold them, for the readers' quick reading of
// integers: 1 to 20 digits, sometimes signed or with leading zeros, at the
// bounds of the integer classes and of exact doubles, now and then with a
// fraction or an exponent that the quick reading must leave alone.
inline std::string generated_integer(std::mt19937& rng) {
  static const char* const kBounds[] = {
      "2147483647",          "-2147483648",          "2147483648",           "-2147483649",
      "4294967295",          "4294967296",           "9007199254740992",     "9007199254740993",
      "-9007199254740993",   "999999999999999",      "-999999999999999",     "1000000000000000",
      "9223372036854775807", "-9223372036854775808", "18446744073709551616", "99999999",
      "100000000",           "-0",                   "00000000",             "-000000000000001"};
  static const char* const kTails[] = {".5", "e2", "E-1", ".0e+3", "e-400"};
  std::string s;
  if (rng() % 4 == 0) {
    s = kBounds[rng() % std::size(kBounds)];
  } else {
    if (rng() % 3 == 0) s = "-";
    const std::size_t n = 1 + rng() % 20;
    for (std::size_t k = 0; k < n; ++k) s += char('0' + (k == 0 && rng() % 4 != 0 ? 1 + rng() % 9 : rng() % 10));
  }
  const std::size_t first = s[0] == '-';
  const bool leading_zero = s[first] == '0' && s.size() > first + 1;  // "01.5" is no number
  if (!leading_zero && rng() % 24 == 0) s += kTails[rng() % std::size(kTails)];
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
