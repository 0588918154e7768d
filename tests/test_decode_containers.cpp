// Cell, structure and string arrays in large notation, and plain structure
// objects.

#include "decode_rows.hpp"

namespace dovra_test {
namespace {

TEST(DecodeContainers, LayoutsTheEncoderWrites) {
  const auto one = doubles({1}, {1, 1}), two = doubles({2}, {1, 1}), a = chars(u"a", {1, 1});
  const auto strings = share(make_strings({u"a", std::nullopt, u"é😀"}, {3, 1}));
  expect_decodes({
      {R"({"tndata":[{"tndata":[1],"tnsize":[1,1],"tntype":"double"},{"tndata":["a"],"tnsize":[1,1],"tntype":"char"}],)"
       R"("tnsize":[1,2],"tntype":"cell"})",
       cell({one, a}, {1, 2})},
      {R"({"tndata":[[],{"tndata":[1,"a"],"tnsize":[2,1],"tntype":"cell"}],"tnsize":[1,2],"tntype":"cell"})",
       cell({doubles({}, {0, 1}), cell({one, a}, {2, 1})}, {1, 2})},
      {R"({"tndata":[],"tnsize":[0,0],"tntype":"cell"})", cell({}, {0, 0})},
      {R"({"tndata":{"a":["a"],"b":[2]},"tnsize":[1,1],"tntype":"struct"})", structure({"a", "b"}, {a, two}, {1, 1})},
      {R"({"tndata":{"v":[1,2]},"tnsize":[1,2],"tntype":"struct"})", structure({"v"}, {one, two}, {1, 2})},
      {R"({"tndata":{"a":[],"b":[]},"tnsize":[0,0],"tntype":"struct"})", structure({"a", "b"}, {}, {0, 0})},
      {R"({"tndata":{},"tnsize":[0,0],"tntype":"struct"})", structure({}, {}, {0, 0})},
      {"{}", structure({}, {}, {1, 1})},
      {R"({"a":1,"b":{"tnsize":[2]}})", structure({"a", "b"}, {one, structure({"tnsize"}, {two}, {1, 1})}, {1, 1})},
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
      {R"({"tndata":{},"tnsize":[1,1],"tntype":"cell"})", "DecodeInvalidTNDataType", {std::string("cell"), std::string("array")}},
      {R"({"tndata":[1],"tnsize":[1,2],"tntype":"cell"})", "DecodeMismatchedTNSize"},
      {R"({"tndata":[1,[1,true]],"tnsize":[1,2],"tntype":"cell"})", "DecodeArrayInconsistentTypes",
       {std::string("double"), std::string("logical")}},
      {R"({"tndata":[[1]],"tnsize":[1,1],"tntype":"struct"})", "DecodeInvalidTNDataType", {std::string("struct"), std::string("object")}},
      {R"({"tndata":{"a":1},"tnsize":[1,1],"tntype":"struct"})", "DecodeInvalidTNDataType", {std::string("struct"), std::string("array")}},
      {R"({"tndata":{"a":[1],"b":[1,2]},"tnsize":[1,1],"tntype":"struct"})", "DecodeMismatchedTNSize"},
      // Field by field: a's second value fails before b's first.
      {R"({"tndata":{"a":[1,null],"b":[{"tntype":"int8","tnsize":[1,1],"tndata":[300]},1]},"tnsize":[1,2],)"
       R"("tntype":"struct"})",
       "DecodeNullNotSupported"},
      {R"({"a":[1],"b":{"c":{"tntype":"int8","tnsize":[1,1],"tndata":[300]}}})", "DecodeInvalidIntegralElem",
       {std::string("int8")}},
      {R"({"tndata":"a","tnsize":[1,1],"tntype":"string"})", "DecodeInvalidTNDataType", {std::string("string"), std::string("array")}},
      {R"({"tndata":["a",5],"tnsize":[1,3],"tntype":"string"})", "DecodeInvalidTNDataType", {std::string("string"), std::string("string")}},
      {R"({"tndata":["a"],"tnsize":[1,2],"tntype":"string"})", "DecodeMismatchedTNSize"},
      {R"({"tndata":[],"tnsize":[1,1],"tntype":"object","tnclass":"C"})", "DecodeInvalidTNType", {std::string("object")}},
      {R"({"tndata":[],"tnsize":[1],"tntype":"enum"})", "DecodeInvalidTNSize"},
  });
}

}  // namespace
}  // namespace dovra_test
