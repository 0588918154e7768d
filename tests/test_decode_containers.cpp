// Cell, structure and string arrays in large notation, and plain structure
// objects.

#include "decode_rows.hpp"

namespace dovra_test {
namespace {

TEST(DecodeContainers, LayoutsTheEncoderWrites) {
  const auto one = D({1}, {1, 1}), two = D({2}, {1, 1}), a = Ch(u"a", {1, 1});
  const auto strings = share(make_strings({u"a", std::nullopt, u"é😀"}, {3, 1}));
  expect_decodes({
      {R"({"tndata":[{"tndata":[1],"tnsize":[1,1],"tntype":"double"},{"tndata":["a"],"tnsize":[1,1],"tntype":"char"}],)"
       R"("tnsize":[1,2],"tntype":"cell"})",
       Cell({one, a}, {1, 2})},
      {R"({"tndata":[[],{"tndata":[1,"a"],"tnsize":[2,1],"tntype":"cell"}],"tnsize":[1,2],"tntype":"cell"})",
       Cell({D({}, {0, 1}), Cell({one, a}, {2, 1})}, {1, 2})},
      {R"({"tndata":[],"tnsize":[0,0],"tntype":"cell"})", Cell({}, {0, 0})},
      {R"({"tndata":{"a":["a"],"b":[2]},"tnsize":[1,1],"tntype":"struct"})", St({"a", "b"}, {a, two}, {1, 1})},
      {R"({"tndata":{"v":[1,2]},"tnsize":[1,2],"tntype":"struct"})", St({"v"}, {one, two}, {1, 2})},
      {R"({"tndata":{"a":[],"b":[]},"tnsize":[0,0],"tntype":"struct"})", St({"a", "b"}, {}, {0, 0})},
      {R"({"tndata":{},"tnsize":[0,0],"tntype":"struct"})", St({}, {}, {0, 0})},
      {"{}", St({}, {}, {1, 1})},
      {R"({"a":1,"b":{"tnsize":[2]}})", St({"a", "b"}, {one, St({"tnsize"}, {two}, {1, 1})}, {1, 1})},
      {R"({"tndata":["a",null,"é😀"],"tnsize":[3,1],"tntype":"string"})", strings},
  });
}

// Field names are the keys in byte order, whatever they hold.
TEST(DecodeContainers, PlainStructureFieldNames) {
  const std::pair<std::string, std::vector<std::string>> rows[] = {
      {R"({"a":1,"B":2})", {"B", "a"}},
      {R"({"":1," a b":2,"é":3,"1x":4})", {"", " a b", "1x", "é"}},
  };
  for (const auto& [json, names] : rows) {
    auto s = decode(json);
    std::vector<std::string> got;
    for (int i = 0; i < ixGetNumberOfFields(s.get()); ++i) got.push_back(ixGetFieldName(s.get(), i));
    EXPECT_EQ(got, names) << json;
  }
}

TEST(DecodeContainers, Errors) {
  expect_failures({
      {R"({"tndata":{},"tnsize":[1,1],"tntype":"cell"})", "DecodeInvalidTNDataType", {S("cell"), S("array")}},
      {R"({"tndata":[1],"tnsize":[1,2],"tntype":"cell"})", "DecodeMismatchedTNSize"},
      {R"({"tndata":[1,[1,true]],"tnsize":[1,2],"tntype":"cell"})", "DecodeArrayInconsistentTypes",
       {S("double"), S("logical")}},
      {R"({"tndata":[[1]],"tnsize":[1,1],"tntype":"struct"})", "DecodeInvalidTNDataType", {S("struct"), S("object")}},
      {R"({"tndata":{"a":1},"tnsize":[1,1],"tntype":"struct"})", "DecodeInvalidTNDataType", {S("struct"), S("array")}},
      {R"({"tndata":{"a":[1],"b":[1,2]},"tnsize":[1,1],"tntype":"struct"})", "DecodeMismatchedTNSize"},
      // Field by field: a's second value fails before b's first.
      {R"({"tndata":{"a":[1,null],"b":[{"tntype":"int8","tnsize":[1,1],"tndata":[300]},1]},"tnsize":[1,2],)"
       R"("tntype":"struct"})",
       "DecodeNullNotSupported"},
      {R"({"a":[1],"b":{"c":{"tntype":"int8","tnsize":[1,1],"tndata":[300]}}})", "DecodeInvalidIntegralElem",
       {S("int8")}},
      {R"({"tndata":"a","tnsize":[1,1],"tntype":"string"})", "DecodeInvalidTNDataType", {S("string"), S("array")}},
      {R"({"tndata":["a",5],"tnsize":[1,3],"tntype":"string"})", "DecodeInvalidTNDataType", {S("string"), S("string")}},
      {R"({"tndata":["a"],"tnsize":[1,2],"tntype":"string"})", "DecodeMismatchedTNSize"},
      {R"({"tndata":[],"tnsize":[1,1],"tntype":"object","tnclass":"C"})", "DecodeInvalidTNType", {S("object")}},
      {R"({"tndata":[],"tnsize":[1],"tntype":"enum"})", "DecodeInvalidTNSize"},
  });
}

}  // namespace
}  // namespace dovra_test
