// Numeric and logical arrays in both notations and both NaN forms.

#include <cfloat>
#include <complex>
#include <cstdint>
#include <limits>

#include "encode_rows.hpp"

namespace dovra_test {
namespace {

template <class T> using lim = std::numeric_limits<T>;
using cd = std::complex<double>;

TEST(EncodeNumeric, LargeNotation) {
  const auto matrix = doubles({1, kNaN, kInf, 4}, {2, 2});
  expect_rows({
      {"specials as strings", matrix, "large", "string",
       R"({"tndata":[1,"NaN","Inf",4],"tnsize":[2,2],"tntype":"double"})"},
      {"specials as objects", matrix, "large", "object",
       R"({"tndata":[1,{"tndata":"NaN"},{"tndata":"Inf"},4],"tnsize":[2,2],"tntype":"double"})"},
      {"finite extremes and -0", doubles({-kInf, DBL_MAX, -DBL_MAX, -0.0}, {1, 4}), "large", "string",
       R"({"tndata":["-Inf",1.7976931348623157e+308,-1.7976931348623157e+308,-0],"tnsize":[1,4],"tntype":"double"})"},
      {"scalar", doubles({5}, {1, 1}), "large", "*", R"({"tndata":[5],"tnsize":[1,1],"tntype":"double"})"},
      {"0x0", doubles({}, {0, 0}), "large", "*", R"({"tndata":[],"tnsize":[0,0],"tntype":"double"})"},
      {"logical row", logicals({true, false}, {1, 2}), "large", "*",
       R"({"tndata":[true,false],"tnsize":[1,2],"tntype":"logical"})"},
  });
}

TEST(EncodeNumeric, SingleAndIntegerClassesAreLargeInBothNotations) {
  for (const char* format : {"large", "small"})
    expect_rows({
        {"single", numeric<float>({1.5f, kNaNf, kInff, -kInff}, {1, 4}), format, "string",
         R"({"tndata":[1.5,"NaN","Inf","-Inf"],"tnsize":[1,4],"tntype":"single"})"},
        {"single", numeric<float>({-0.0f, kNaNf}, {2, 1}), format, "object",
         R"({"tndata":[-0,{"tndata":"NaN"}],"tnsize":[2,1],"tntype":"single"})"},
        {"int8", numeric<std::int8_t>({-128, 127}, {1, 2}), format, "*",
         R"({"tndata":[-128,127],"tnsize":[1,2],"tntype":"int8"})"},
        {"uint8", numeric<std::uint8_t>({200}, {1, 1}), format, "*", R"({"tndata":[200],"tnsize":[1,1],"tntype":"uint8"})"},
        {"int32", numeric<std::int32_t>({lim<std::int32_t>::min(), 7}, {1, 2}), format, "*",
         R"({"tndata":[-2147483648,7],"tnsize":[1,2],"tntype":"int32"})"},
        {"uint32", numeric<std::uint32_t>({lim<std::uint32_t>::max()}, {1, 1}), format, "*",
         R"({"tndata":[4294967295],"tnsize":[1,1],"tntype":"uint32"})"},
        // Past 2^53 the nearest double: 2^53 + 1 and the largest int64 do not come back.
        {"int64", numeric<std::int64_t>({(1LL << 53) + 1, lim<std::int64_t>::max()}, {1, 2}), format, "*",
         R"({"tndata":[9007199254740992,9223372036854775808],"tnsize":[1,2],"tntype":"int64"})"},
        {"uint64 past 2^63", numeric<std::uint64_t>({lim<std::uint64_t>::max()}, {1, 1}), format, "*",
         R"({"tndata":[18446744073709551616],"tnsize":[1,1],"tntype":"uint64"})"},
        {"complex with zero imaginary part", numeric<cd>({{3, 0}}, {1, 1}), format, "*",
         R"({"tncomplex":true,"tndata":[3,0],"tnsize":[1,1],"tntype":"double"})"},
        {"complex parts tested separately", numeric<std::complex<float>>({{kNaNf, 1}, {2, -kInff}}, {2, 1}), format,
         "object",
         R"({"tncomplex":true,"tndata":[{"tndata":"NaN"},1,2,{"tndata":"-Inf"}],"tnsize":[2,1],"tntype":"single"})"},
        {"complex integers", numeric<std::complex<std::int8_t>>({{1, -2}}, {1, 1}), format, "*",
         R"({"tncomplex":true,"tndata":[1,-2],"tnsize":[1,1],"tntype":"int8"})"},
    });
}

TEST(EncodeNumeric, SmallDouble) {
  expect_rows({
      {"scalar", doubles({5}, {1, 1}), "small", "*", "5"},
      {"NaN ignores the NaN form", doubles({kNaN}, {1, 1}), "small", "*", R"({"tndata":"NaN"})"},
      {"-Inf", doubles({-kInf}, {1, 1}), "small", "*", R"({"tndata":"-Inf"})"},
      {"0x0", doubles({}, {0, 0}), "small", "*", "[]"},
      {"0x3 keeps its shape", doubles({}, {0, 3}), "small", "*", R"({"tndata":[],"tnsize":[0,3],"tntype":"double"})"},
      {"1x0", doubles({}, {1, 0}), "small", "*", R"({"tndata":[],"tnsize":[1,0],"tntype":"double"})"},
      {"2x0x4", doubles({}, {2, 0, 4}), "small", "*", R"({"tndata":[],"tnsize":[2,0,4],"tntype":"double"})"},
      {"rows outermost", doubles({1, 4, 2, 5, 3, 6}, {2, 3}), "small", "*", "[[1,2,3],[4,5,6]]"},
      {"row", doubles({1, 2, 3}, {1, 3}), "small", "*", "[[1,2,3]]"},
      {"column", doubles({1, 2, 3}, {3, 1}), "small", "*", "[1,2,3]"},
      {"2x2x2", doubles({1, 2, 3, 4, 5, 6, 7, 8}, {2, 2, 2}), "small", "*", "[[[1,5],[3,7]],[[2,6],[4,8]]]"},
      {"3x1x2", doubles({1, 2, 3, 4, 5, 6}, {3, 1, 2}), "small", "*", "[[[1,4]],[[2,5]],[[3,6]]]"},
      {"specials in a column", doubles({1, kNaN, kInf}, {3, 1}), "small", "*",
       R"([1,{"tndata":"NaN"},{"tndata":"Inf"}])"},
      {"specials in a matrix", doubles({kNaN, 1, 2, -kInf}, {2, 2}), "small", "*",
       R"([[{"tndata":"NaN"},2],[1,{"tndata":"-Inf"}]])"},
      {"complex", numeric<cd>({{1, 2}}, {1, 1}), "small", "*",
       R"({"tncomplex":true,"tndata":[1,2],"tnsize":[1,1],"tntype":"double"})"},
  });
}

TEST(EncodeNumeric, SmallLogical) {
  expect_rows({
      {"scalar", logicals({true}, {1, 1}), "small", "*", "true"},
      {"column", logicals({true, false}, {2, 1}), "small", "*", "[true,false]"},
      {"row", logicals({false, true}, {1, 2}), "small", "*", "[[false,true]]"},
      {"matrix", logicals({true, false, false, false}, {2, 2}), "small", "*", "[[true,false],[false,false]]"},
      {"0x0 is not []", logicals({}, {0, 0}), "small", "*", R"({"tndata":[],"tnsize":[0,0],"tntype":"logical"})"},
  });
}

}  // namespace
}  // namespace dovra_test
