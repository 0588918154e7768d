// Small notation: plain (nested) JSON arrays, and the scalars of the top
// level.

#include "decode_rows.hpp"

namespace dovra_test {
namespace {

// Element (i,j,k) is json[i][j][k]; data are given in storage order.
TEST(DecodeSmall, ShapesAndStorageOrder) {
  expect_decodes({
      {"true", L({true}, {1, 1})},
      {R"("abc")", Ch(u"abc", {1, 3})},
      {R"("")", Ch(u"", {0, 0})},
      {R"("é😀")", Ch(u"é😀", {1, 3})},  // UTF-16 code units: the surrogate pair counts twice
      {"[]", D({}, {0, 1})},
      {"[[]]", D({}, {1, 0})},
      {"[[],[]]", D({}, {2, 0})},  // an empty result has no data to fill (found by fuzzing)
      {"[1,2,3]", D({1, 2, 3}, {3, 1})},
      {"[[1,2,3],[4,5,6]]", D({1, 4, 2, 5, 3, 6}, {2, 3})},
      {"[[[1,2],[3,4]],[[5,6],[7,8]]]", D({1, 5, 3, 7, 2, 6, 4, 8}, {2, 2, 2})},
      {R"([1,{"tndata":"NaN"},{"tndata":"-Inf"},-0])", D({1, kNaN, -kInf, -0.0}, {4, 1})},
      {R"([{"tndata":"Inf"}])", D({kInf}, {1, 1})},
      {"[[true],[false]]", L({true, false}, {2, 1})},
      // A single outer element skips the shape check; the fill reads only
      // as far as the first elements promise.
      {"[[[1,2],[3,4,5]]]", D({1, 3, 2, 4}, {1, 2, 2})},
  });
}

TEST(DecodeSmall, ElementErrors) {
  expect_failures({
      {"null", "DecodeNullNotSupported"},
      // The first element decides the class...
      {R"(["NaN",1])", "DecodeInvalidArrayElemType"},
      {"[null,1]", "DecodeInvalidArrayElemType"},
      {R"([{"tndata":"nan"}])", "DecodeInvalidArrayElemType"},
      // ...and any other element that does not fit it is a mix of kinds.
      {R"([1,"NaN"])", "DecodeArrayInconsistentTypes", {S("double"), S("string")}},
      {"[1,null]", "DecodeArrayInconsistentTypes", {S("double"), S("undefined")}},
      {"[1,true]", "DecodeArrayInconsistentTypes", {S("double"), S("logical")}},
      {"[true,1]", "DecodeArrayInconsistentTypes", {S("logical"), S("double")}},
      {R"([1,{"tndata":"nan"}])", "DecodeArrayInconsistentTypes", {S("double"), S("object")}},
      {R"([true,{"tndata":"NaN"}])", "DecodeArrayInconsistentTypes", {S("logical"), S("object")}},
  });
}

TEST(DecodeSmall, ShapeErrorsAndTheirPrecedence) {
  expect_failures({
      {"[[1,2],[3]]", "DecodeArrayInconsistentSizes"},
      {"[[1,2],3]", "DecodeArrayInconsistentDepths"},
      {"[1,[2]]", "DecodeArrayInconsistentDepths"},
      // The shape check runs before any element is converted...
      {"[[1,true],[2]]", "DecodeArrayInconsistentSizes"},
      {R"([[1,"x"],[2,3],4])", "DecodeArrayInconsistentDepths"},
      // ...and elements are converted in storage order: json[1][0] before json[0][1].
      {R"([[1,true],["x",2]])", "DecodeArrayInconsistentTypes", {S("double"), S("string")}},
      // A single outer element: no shape check, never a read past a short
      // array, and the fault a storage-order fill meets first wins.
      {"[[[1,2],[3]]]", "DecodeArrayInconsistentSizes"},
      {"[[[1,2],3]]", "DecodeArrayInconsistentDepths"},
      {"[[1,[2]]]", "DecodeArrayInconsistentTypes", {S("double"), S("undefined")}},
      {"[[[1,true],[3]]]", "DecodeArrayInconsistentTypes", {S("double"), S("logical")}},         // (0,0,1) < (0,1,1)
      {"[[[1,2],[3],[true,5]]]", "DecodeArrayInconsistentTypes", {S("double"), S("logical")}},  // (0,2,0) < (0,1,1)
  });
}

}  // namespace
}  // namespace dovra_test
