// Character, cell and structure arrays.

#include "encode_rows.hpp"

namespace dovra_test {
namespace {

TEST(EncodeChar, Shapes) {
  expect_rows({
      {"row", chars(u"abc", {1, 3}), "small", "*", R"("abc")"},
      {"row", chars(u"abc", {1, 3}), "large", "*", R"({"tndata":["abc"],"tnsize":[1,3],"tntype":"char"})"},
      {"0x0", chars(u"", {0, 0}), "small", "*", R"("")"},
      {"0x0", chars(u"", {0, 0}), "large", "*", R"({"tndata":[""],"tnsize":[0,0],"tntype":"char"})"},
      {"1x0 keeps its shape", chars(u"", {1, 0}), "small", "*", R"({"tndata":[""],"tnsize":[1,0],"tntype":"char"})"},
      {"column by column", chars(u"acbd", {2, 2}), "small", "*", R"({"tndata":["acbd"],"tnsize":[2,2],"tntype":"char"})"},
      {"N-d", chars(u"ab", {1, 1, 2}), "small", "*", R"({"tndata":["ab"],"tnsize":[1,1,2],"tntype":"char"})"},
      {"outside ASCII", chars(u"\u00e9\U0001F600", {1, 3}), "small", "*", "\"\xC3\xA9\xF0\x9F\x98\x80\""},
      {"escapes and NUL", chars(std::u16string_view(u"a\0b\"\n", 5), {1, 5}), "small", "*", R"("a\u0000b\"\n")"},
  });
}

TEST(EncodeCell, BothNotations) {
  const auto pair = cell({doubles({1}, {1, 1}), chars(u"a", {1, 1})}, {1, 2});
  const auto unset = cell({nullptr, logicals({true}, {1, 1})}, {2, 1});
  const auto nan = cell({doubles({kNaN}, {1, 1})}, {1, 1});
  expect_rows({
      {"pair", pair, "large", "*",
       R"({"tndata":[{"tndata":[1],"tnsize":[1,1],"tntype":"double"},{"tndata":["a"],"tnsize":[1,1],"tntype":"char"}],"tnsize":[1,2],"tntype":"cell"})"},
      {"pair", pair, "small", "*", R"({"tndata":[1,"a"],"tnsize":[1,2],"tntype":"cell"})"},
      {"unset element", unset, "large", "*",
       R"({"tndata":[{"tndata":[],"tnsize":[0,0],"tntype":"double"},{"tndata":[true],"tnsize":[1,1],"tntype":"logical"}],"tnsize":[2,1],"tntype":"cell"})"},
      {"unset element", unset, "small", "*", R"({"tndata":[[],true],"tnsize":[2,1],"tntype":"cell"})"},
      {"0x0", cell({}, {0, 0}), "small", "*", R"({"tndata":[],"tnsize":[0,0],"tntype":"cell"})"},
      {"nested", cell({cell({doubles({2}, {1, 1})}, {1, 1})}, {1, 1}), "small", "*",
       R"({"tndata":[{"tndata":[2],"tnsize":[1,1],"tntype":"cell"}],"tnsize":[1,1],"tntype":"cell"})"},
      {"NaN form passes down", nan, "large", "string",
       R"({"tndata":[{"tndata":["NaN"],"tnsize":[1,1],"tntype":"double"}],"tnsize":[1,1],"tntype":"cell"})"},
      {"NaN form passes down", nan, "large", "object",
       R"({"tndata":[{"tndata":[{"tndata":"NaN"}],"tnsize":[1,1],"tntype":"double"}],"tnsize":[1,1],"tntype":"cell"})"},
  });
}

TEST(EncodeStruct, BothNotations) {
  const auto scalar = structure({"b", "a"}, {doubles({2}, {1, 1}), chars(u"x", {1, 1})}, {1, 1});
  const auto unset = structure({"a"}, {nullptr}, {1, 1});
  expect_rows({
      {"scalar, keys in byte order", scalar, "small", "*", R"({"a":"x","b":2})"},
      {"scalar", scalar, "large", "*",
       R"({"tndata":{"a":[{"tndata":["x"],"tnsize":[1,1],"tntype":"char"}],"b":[{"tndata":[2],"tnsize":[1,1],"tntype":"double"}]},"tnsize":[1,1],"tntype":"struct"})"},
      {"row", structure({"v"}, {doubles({1}, {1, 1}), doubles({2}, {1, 1})}, {1, 2}), "small", "*",
       R"({"tndata":{"v":[1,2]},"tnsize":[1,2],"tntype":"struct"})"},
      {"element-major values", structure({"y", "x"}, {doubles({1}, {1, 1}), chars(u"p", {1, 1}), doubles({2}, {1, 1}), chars(u"q", {1, 1})}, {2, 1}),
       "small", "*", R"({"tndata":{"x":["p","q"],"y":[1,2]},"tnsize":[2,1],"tntype":"struct"})"},
      {"0x0 without fields", structure({}, {}, {0, 0}), "small", "*", "{}"},
      {"0x0 without fields", structure({}, {}, {0, 0}), "large", "*", R"({"tndata":{},"tnsize":[0,0],"tntype":"struct"})"},
      {"0x0 with fields", structure({"b", "a"}, {}, {0, 0}), "small", "*",
       R"({"tndata":{"a":[],"b":[]},"tnsize":[0,0],"tntype":"struct"})"},
      {"1x1 without fields", structure({}, {}, {1, 1}), "small", "*", "{}"},
      {"unset field", unset, "small", "*", R"({"a":[]})"},
      {"unset field", unset, "large", "*",
       R"({"tndata":{"a":[{"tndata":[],"tnsize":[0,0],"tntype":"double"}]},"tnsize":[1,1],"tntype":"struct"})"},
  });
}

}  // namespace
}  // namespace dovra_test
