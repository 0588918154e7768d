// dovra.json.decode and the response-decode builtin as the host calls them.

#include "decode_rows.hpp"
#include "ixtal/testing.hpp"

namespace dovra_test {
namespace {

const char* const kBoth[] = {ixtal::kJsonDecodeName, ixtal::kJsonDecodeResponseName};

TEST(DecodeBuiltins, ResponseShapes) {
  const auto no = L({false}, {1, 1});
  expect_decodes({{R"({"lhs":[1,"a",true]})", Cell({D({1}, {1, 1}), Ch(u"a", {1, 1}), L({true}, {1, 1})}, {3, 1})},
                  {R"({"rhs":0,"lhs":[[1,2],{}]})", Cell({D({1, 2}, {2, 1}), St({}, {}, {1, 1})}, {2, 1})},
                  {R"({"lhs":[]})", Cell({}, {0, 1})},
                  {R"({"lhs":{}})", no}, {R"({"lhs":null})", no}, {R"({"rhs":[1]})", no}, {R"({"Lhs":[1]})", no},
                  {"[1,2]", no}, {"null", no}, {"1", no}, {R"("lhs")", no}},
                 &decode_response);
  expect_failures({{R"({"lhs":[1,null]})", "DecodeNullNotSupported"}}, &decode_response);

  EXPECT_EQ(ixGetArrayScope(decode("[1,2]").get()), 4);
  auto cell = decode_response(R"({"lhs":[1,"a"]})");
  for (ixSize i = 0; i < 2; ++i) EXPECT_EQ(ixGetArrayScope(ixGetCell(cell.get(), i)), 4) << "cell " << i;

  // The result is written even when the caller asks for none.
  auto t = text("[1]");
  for (const char* name : kBoth) EXPECT_EQ(call(name, 0, {t.get()}).size(), 1u) << name;
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
  const int depth = 998;  // the parser's limit is 1000 levels
  std::string objects, arrays, cells;
  for (int i = 0; i < depth; ++i) objects += R"({"a":)", arrays += "[";
  for (int i = 0; i < depth / 2; ++i) cells += R"({"tntype":"cell","tnsize":[1,1],"tndata":[)";
  objects += "1" + std::string(depth, '}');
  arrays += "1" + std::string(depth, ']');
  for (int i = 0; i < depth / 2; ++i) cells += "]}";
  EXPECT_EQ(ixGetClassID(decode(objects).get()), ixSTRUCT_CLASS);
  expect_decodes({{arrays, D({1}, {1, 1})}});
  expect_failures({{cells, "DecodeMismatchedTNSize"}});  // the innermost cell has no element
}

}  // namespace
}  // namespace dovra_test
