// dovra.json.decode and the response-decode builtin as the host calls them.

#include <random>

#include "decode/response.hpp"
#include "decode_rows.hpp"
#include "ixtal/testing.hpp"
#include "ixtal/text.hpp"
#include "json/parser.hpp"
#include "json/parser_exception.hpp"

namespace dovra_test {
namespace {

const char* const kBoth[] = {ixtal::kJsonDecodeName, ixtal::kJsonDecodeResponseName};

TEST(DecodeBuiltins, ResponseShapes) {
  const auto no = logicals({false}, {1, 1});
  expect_decodes({{R"({"lhs":[1,"a",true]})", cell({doubles({1}, {1, 1}), chars(u"a", {1, 1}), logicals({true}, {1, 1})}, {3, 1})},
                  {R"({"rhs":0,"lhs":[[1,2],{}]})", cell({doubles({1, 2}, {2, 1}), structure({}, {}, {1, 1})}, {2, 1})},
                  {R"({"lhs":[]})", cell({}, {0, 1})},
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


}  // namespace
}  // namespace dovra_test
