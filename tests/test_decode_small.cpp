// Small notation: plain (nested) JSON arrays, and the scalars of the top
// level.

#include <cstring>
#include <random>

#include "decode/driver.hpp"
#include "decode_rows.hpp"
#include "ixtal/text.hpp"
#include "json/parser.hpp"
#include "json/parser_exception.hpp"

namespace dovra_test {
namespace {

// Element (i,j,k) is json[i][j][k]; data are given in storage order.
TEST(DecodeSmall, ShapesAndStorageOrder) {
  expect_decodes({
      {"true", logicals({true}, {1, 1})},
      {R"("abc")", chars(u"abc", {1, 3})},
      {R"("")", chars(u"", {0, 0})},
      {R"("é😀")", chars(u"é😀", {1, 3})},  // UTF-16 code units: the surrogate pair counts twice
      {"[]", doubles({}, {0, 1})},
      {"[[]]", doubles({}, {1, 0})},
      {"[[],[]]", doubles({}, {2, 0})},  // an empty result has no data to fill (found by fuzzing)
      {"[1,2,3]", doubles({1, 2, 3}, {3, 1})},
      {"[[1,2,3],[4,5,6]]", doubles({1, 4, 2, 5, 3, 6}, {2, 3})},
      {"[[[1,2],[3,4]],[[5,6],[7,8]]]", doubles({1, 5, 3, 7, 2, 6, 4, 8}, {2, 2, 2})},
      {R"([1,{"tndata":"NaN"},{"tndata":"-Inf"},-0])", doubles({1, kNaN, -kInf, -0.0}, {4, 1})},
      {R"([{"tndata":"Inf"}])", doubles({kInf}, {1, 1})},
      {"[[true],[false]]", logicals({true, false}, {2, 1})},
      // A single outer element skips the shape check; the fill reads only
      // as far as the first elements promise.
      {"[[[1,2],[3,4,5]]]", doubles({1, 3, 2, 4}, {1, 2, 2})},
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
      {R"([1,"NaN"])", "DecodeArrayInconsistentTypes", {std::string("double"), std::string("string")}},
      {"[1,null]", "DecodeArrayInconsistentTypes", {std::string("double"), std::string("undefined")}},
      {"[1,true]", "DecodeArrayInconsistentTypes", {std::string("double"), std::string("logical")}},
      {"[true,1]", "DecodeArrayInconsistentTypes", {std::string("logical"), std::string("double")}},
      {R"([1,{"tndata":"nan"}])", "DecodeArrayInconsistentTypes", {std::string("double"), std::string("object")}},
      {R"([true,{"tndata":"NaN"}])", "DecodeArrayInconsistentTypes", {std::string("logical"), std::string("object")}},
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
      {R"([[1,true],["x",2]])", "DecodeArrayInconsistentTypes", {std::string("double"), std::string("string")}},
      // A single outer element: no shape check, never a read past a short
      // array, and the fault a storage-order fill meets first wins.
      {"[[[1,2],[3]]]", "DecodeArrayInconsistentSizes"},
      {"[[[1,2],3]]", "DecodeArrayInconsistentDepths"},
      {"[[1,[2]]]", "DecodeArrayInconsistentTypes", {std::string("double"), std::string("undefined")}},
      {"[[[1,true],[3]]]", "DecodeArrayInconsistentTypes", {std::string("double"), std::string("logical")}},         // (0,0,1) < (0,1,1)
      {"[[[1,2],[3],[true,5]]]", "DecodeArrayInconsistentTypes", {std::string("double"), std::string("logical")}},  // (0,2,0) < (0,1,1)
  });
}


}  // namespace
}  // namespace dovra_test
