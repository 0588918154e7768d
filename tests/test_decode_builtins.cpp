// dovra.json.decode and the response-decode builtin as the host calls them.

#include "decode_rows.hpp"
#include "ixtal/testing.hpp"

namespace dovra_test {
namespace {

const char* const kBoth[] = {ixtal::kJsonDecodeName, ixtal::kJsonDecodeResponseName};

TEST(DecodeBuiltins, ResponseShapes) {
  LeakCheck leaks;
  const auto no = L({false}, {1, 1});
  const std::vector<decode_row> rows = {
      {R"({"lhs":[1,"a",true]})", Cell({D({1}, {1, 1}), Ch(u"a", {1, 1}), L({true}, {1, 1})}, {3, 1})},
      {R"({"rhs":0,"lhs":[[1,2],{"x":[]}]})", Cell({D({1, 2}, {2, 1}), St({"x"}, {D({}, {0, 1})}, {1, 1})}, {2, 1})},
      {R"({"lhs":[]})", Cell({}, {0, 1})},
      {R"({"lhs":{}})", no}, {R"({"lhs":null})", no}, {R"({"lhs":"[1]"})", no}, {R"({"rhs":[1]})", no},
      {R"({"Lhs":[1]})", no}, {"[1,2]", no}, {"null", no}, {"true", no}, {"1", no}, {R"("lhs")", no},
  };
  for (const decode_row& row : rows) {
    auto got = decode_response(row.json);
    EXPECT_TRUE(ixIsEqualN(got.get(), row.expected.get())) << row.json << "\n  got " << shape_of(got.get());
  }
  expect_failures({{R"({"lhs":[1,null]})", "DecodeNullNotSupported"},
                   {R"({"lhs":[[1,true]]})", "DecodeArrayInconsistentTypes", {S("double"), S("logical")}}},
                  &decode_response);
}

TEST(DecodeBuiltins, ResultsCarryScopeFour) {
  auto single = decode("[1,2]");
  EXPECT_EQ(ixGetArrayScope(single.get()), 4);
  auto cell = decode_response(R"({"lhs":[1,"a"]})");
  for (ixSize i = 0; i < 2; ++i) EXPECT_EQ(ixGetArrayScope(ixGetCell(cell.get(), i)), 4) << "cell " << i;
}

TEST(DecodeBuiltins, TextArgument) {
  LeakCheck leaks;
  const auto expected = D({1, 2}, {2, 1});
  auto chars = make_char(u"[1, 2]", {2, 3});  // any shape; characters in element order
  auto scalar = make_strings({u"[1,2]"}, {1, 1});
  for (const char* name : kBoth) {
    if (name == std::string(ixtal::kJsonDecodeName)) {
      for (const ixArray* arg : {chars.get(), scalar.get()})
        EXPECT_TRUE(ixIsEqualN(call(name, 1, {arg})[0].get(), expected.get())) << shape_of(arg);
    }
    auto row = make_strings({u"[1]", u"[2]"}, {1, 2});
    auto missing = make_strings({std::nullopt}, {1, 1});
    auto number = make_double({1}, {1, 1});
    for (const ixArray* arg : {row.get(), missing.get(), number.get(), static_cast<ixArray*>(nullptr)}) {
      SCOPED_TRACE(std::string(name) + " with " + (arg ? shape_of(arg) : "null"));
      expect_failure([&] { call(name, 1, {arg}); },
                     "IXTAL:checkSyntacticWarnings:MustBeStringScalarOrCharacterVector");
    }
  }
}

TEST(DecodeBuiltins, ArityComesFirst) {
  auto t = text("[1]");
  auto bad = make_double({1}, {1, 1});  // never looked at
  for (const char* name : kBoth) {
    SCOPED_TRACE(name);
    expect_failure([&] { call(name, 2, {t.get()}); }, "IXTAL:TooManyOutputs");
    expect_failure([&] { call(name, 1, {bad.get(), t.get()}); }, "IXTAL:TooManyInputs");
    expect_failure([&] { call(name, 1, {}); }, "IXTAL:NotEnoughInputs");
    EXPECT_EQ(call(name, 0, {t.get()}).size(), 1u);  // the result is written even when none is asked for
  }
}

// Each array creation in turn made to fail: whatever was made before it is
// released, in both builtins.
TEST(DecodeBuiltins, AllocationFailureAtAnyPointLeavesNothing) {
  LeakCheck leaks;
  const std::string value = R"({"tndata":[{"a":"x"},{"tndata":{"f":[[true]]},"tnsize":[1,1],"tntype":"struct"},)"
                            R"({"tntype":"string","tnsize":[1,1],"tndata":["s"]},[1,2]],"tnsize":[2,2],"tntype":"cell"})";
  const std::pair<const char*, std::string> calls[] = {{ixtal::kJsonDecodeName, value},
                                                        {ixtal::kJsonDecodeResponseName, R"({"lhs":[1,)" + value + "]}"}};
  for (const auto& [name, json] : calls) {
    auto t = text(json);
    for (int k = 0;; ++k) {
      ixtal::testing::fail_allocations_after(k);
      auto f = failure_of([&] { call(name, 1, {t.get()}); });
      ixtal::testing::fail_allocations_after(-1);
      if (!f) break;
      ASSERT_EQ(f->identifier, "IXTAL:nomem") << name << " after " << k << " creations";
    }
  }
}

TEST(DecodeBuiltins, DeepNesting) {
  LeakCheck leaks;
  const int depth = 998;
  std::string objects, arrays, cells;
  for (int i = 0; i < depth; ++i) objects += R"({"a":)", arrays += "[";
  objects += "1" + std::string(depth, '}');
  arrays += "1" + std::string(depth, ']');
  for (int i = 0; i < depth / 2; ++i) cells += R"({"tntype":"cell","tnsize":[1,1],"tndata":[)";
  for (int i = 0; i < depth / 2; ++i) cells += "]}";
  EXPECT_EQ(ixGetClassID(decode(objects).get()), ixSTRUCT_CLASS);
  EXPECT_TRUE(ixIsEqualN(decode(arrays).get(), D({1}, {1, 1}).get()));
  expect_failures({{cells, "DecodeMismatchedTNSize"}});  // the innermost cell has no element
}

}  // namespace
}  // namespace dovra_test
