// Shapes that once cost n^2, run at a size where that cost would hold the
// suite for many minutes: a return to a quadratic path fails by the time
// limit, with no timing assertion here.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ixtal/testing.hpp"
#include "support/host.hpp"

namespace {

constexpr std::size_t kMillion = 1000000;

std::vector<std::string> field_names(std::size_t n) {
  std::vector<std::string> names;
  names.reserve(n);
  for (std::size_t i = 0; i < n; ++i) names.push_back("f" + std::to_string(i));
  return names;
}

std::string repeated_name_of(const std::vector<std::string>& names) {
  const ixSize dims[2] = {1, 1};
  try {
    matrix::owned_array s(ixCreateStructArray(2, dims, int(names.size()), names.data()));
  } catch (const std::invalid_argument& e) {
    return e.what();
  }
  return "";
}

TEST(Complexity, StructureCreationReportsTheFirstRepeatedNameInFieldOrder) {
  const struct {
    std::vector<std::string> names;
    const char* reported;
  } rows[] = {
      {{"a", "b", "c"}, nullptr},
      {{"a", "b", "a", "b"}, "a"},
      {{"x", "y", "y", "x"}, "y"},
      {{"b", "a", "c", "a", "b"}, "a"},
      {{"", "z", ""}, ""},
      {{"p", "p", "p"}, "p"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::PrintToString(row.names));
    const std::string what = repeated_name_of(row.names);
    if (!row.reported) {
      EXPECT_EQ(what, "");
    } else {
      EXPECT_EQ(what, std::string("structure creation: repeated field name \"") + row.reported + "\"");
    }
  }
}

TEST(Complexity, AMillionFieldNamesAreCheckedAndCompared) {
  std::vector<std::string> names = field_names(kMillion);
  const ixSize dims[2] = {1, 1};
  matrix::owned_array a(ixCreateStructArray(2, dims, int(names.size()), names.data()));
  std::reverse(names.begin(), names.end());
  matrix::owned_array b(ixCreateStructArray(2, dims, int(names.size()), names.data()));
  EXPECT_TRUE(ixIsEqualN(a.get(), b.get()));

  names.push_back("f0");
  EXPECT_EQ(repeated_name_of(names), "structure creation: repeated field name \"f0\"");
}

TEST(Complexity, DocumentsWithAMillionKeysOrFieldsDecodeToOneStructure) {
  dovra_test::library();
  dovra_test::LeakCheck leaks;
  std::string keys = "{", fields = R"({"tntype":"struct","tnsize":[1,1],"tndata":{)";
  for (std::size_t i = 0; i < kMillion; ++i) {
    const std::string name = "\"k" + std::to_string(i) + "\":";
    keys += (i ? "," : "") + name + "1";
    fields += (i ? "," : "") + name + "[1]";
  }
  keys += "}";
  fields += "}}";
  for (const std::string* doc : {&keys, &fields}) {
    const dovra_test::owned_array s = dovra_test::decode(*doc);
    EXPECT_EQ(ixGetNumberOfFields(s.get()), int(kMillion));
  }
}

}  // namespace
