// Paths whose cost once grew with the square of the input. Each runs at a
// size where that cost would take many minutes, so a return to it fails by
// the test time limit rather than by a timing assertion; at linear cost each
// takes a second or two.

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "ixtal/array.hpp"
#include "support/host.hpp"

namespace {

using dovra_test::owned_array;

constexpr std::size_t kFields = 1000000;

std::string key(std::size_t i) { return "k" + std::to_string(i); }

std::vector<std::string> distinct_names(std::size_t n) {
  std::vector<std::string> names;
  names.reserve(n);
  for (std::size_t i = 0; i < n; ++i) names.push_back(key(i));
  return names;
}

// Members "k0":..., joined; value(i) writes member i's value.
template <class Value>
std::string members(std::size_t n, Value value) {
  std::string s;
  for (std::size_t i = 0; i < n; ++i) {
    if (i) s += ',';
    s += '"' + key(i) + "\":" + value(i);
  }
  return s;
}

owned_array struct_of(const std::vector<std::string>& names) {
  const ixSize dims[2] = {1, 1};
  return owned_array(ixCreateStructArray(2, dims, int(names.size()), names.data()));
}

// The rule structure creation has always had: the error names the first
// name that repeats an earlier one.
std::string pairwise_repeat(const std::vector<std::string>& names) {
  for (std::size_t i = 0; i < names.size(); ++i)
    for (std::size_t j = 0; j < i; ++j)
      if (names[i] == names[j]) return "structure creation: repeated field name \"" + names[i] + "\"";
  return "";
}

std::string creation_error(const std::vector<std::string>& names) {
  try {
    struct_of(names);
  } catch (const std::invalid_argument& e) {
    return e.what();
  }
  return "";
}

TEST(Complexity, RepeatedFieldNamesAreRefusedAsThePairwiseRuleWould) {
  std::mt19937 random(15);
  for (int round = 0; round < 2000; ++round) {
    std::vector<std::string> names(random() % 12);
    // A small alphabet so that repeats are common, some of them late.
    for (auto& n : names) n = std::string(1 + random() % 2, char('a' + random() % 4));
    EXPECT_EQ(creation_error(names), pairwise_repeat(names)) << "round " << round;
  }
  auto many = distinct_names(kFields);
  EXPECT_EQ(creation_error(many), "");
  many.push_back(key(kFields / 2));
  EXPECT_EQ(creation_error(many), "structure creation: repeated field name \"" + key(kFields / 2) + "\"");
}

TEST(Complexity, EqualityOfWideStructuresIsLinear) {
  const auto names = distinct_names(kFields);
  auto a = struct_of(names), b = struct_of(names);
  for (std::size_t f = 0; f < kFields; f += 1000) {
    ixSetFieldByNumber(a.get(), 0, int(f), ixCreateDoubleScalar(double(f)));
    ixSetFieldByNumber(b.get(), 0, int(f), ixCreateDoubleScalar(double(f)));
  }
  EXPECT_TRUE(ixIsEqualN(a.get(), b.get()));
  ixSetFieldByNumber(b.get(), 0, int(kFields - 1), ixCreateDoubleScalar(1));
  EXPECT_FALSE(ixIsEqualN(a.get(), b.get()));
}

// Every shape that turns n keys into n field names.
TEST(Complexity, WideObjectsDecodeInLinearTime) {
  dovra_test::library();
  // Half under sanitizers, where pairwise compares would still take many
  // minutes and the linear decode takes five seconds instead of ten.
  const std::size_t n = dovra_test::sanitized() ? kFields / 2 : kFields;
  const auto digit = [](std::size_t i) { return std::to_string(i % 10); };
  const auto one_element = [](std::size_t i) { return "[" + std::to_string(i % 10) + "]"; };
  struct Row {
    const char* name;
    std::string text;
    std::size_t fields;
  };
  const Row rows[] = {
      {"plain object of distinct keys", "{" + members(n, digit) + "}", n},
      {"large-notation struct", R"({"tntype":"struct","tnsize":[1,1],"tndata":{)" + members(n, one_element) + "}}",
       n},
      // The first of equal keys is kept.
      {"one key repeated", "{" + [n] {
         std::string s = "\"k\":0";
         for (std::size_t i = 1; i < n; ++i) s += ",\"k\":1";
         return s;
       }() + "}",
       1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    owned_array s = dovra_test::decode(row.text);
    ASSERT_EQ(ixGetClassID(s.get()), ixSTRUCT_CLASS);
    ASSERT_EQ(std::size_t(ixGetNumberOfFields(s.get())), row.fields);
    EXPECT_EQ(*static_cast<const double*>(ixGetData(ixGetFieldByNumber(s.get(), 0, 0))), 0.0);
  }
}

TEST(Complexity, WideStructuresEncodeInLinearTime) {
  dovra_test::library();
  const auto names = distinct_names(kFields);
  auto s = struct_of(names);
  for (std::size_t f = 0; f < kFields; ++f) ixSetFieldByNumber(s.get(), 0, int(f), ixCreateDoubleScalar(double(f % 10)));
  const std::string text = dovra_test::encode(s.get(), "small");
  EXPECT_EQ(text.substr(0, 32), R"({"k0":0,"k1":1,"k10":0,"k100":0,)");
  EXPECT_EQ(text.back(), '}');
}

}  // namespace
