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


// The common response is read straight into its cell; the tree path is the
// reference. Lists of every kind of element and string, in documents of the
// right shape and of shapes next to it: wherever the reader answers, the
// tree gives the same cell, field order included, and the reader answers
// for every list of the elements it takes.
TEST(DecodeBuiltins, ResponseReaderAgreesWithTheTree) {
  static const char16_t* const kSpace[] = {u"", u"", u" ", u"\n\t"};
  std::mt19937 rng(3);
  const auto pick = [&](const auto& list) { return std::u16string(list[rng() % std::size(list)]); };
  const fl::i18n::codecvt_ustring_to_string to_utf8("UTF-8");
  int taken = 0;
  for (int i = 0; i < 4000; ++i) {
    const bool plain = i % 2 == 0;
    std::u16string list;
    for (std::size_t n = rng() % 6, k = 0; k < n; ++k)
      list += (k ? pick(kSpace) + u"," : u"") + pick(kSpace) + (plain || rng() % 4 ? pick(kReaderTaken) : pick(kReaderLeft));
    static const char16_t* const kShapes[] = {u"{%\"lhs\"%:%[%L%]%}", u"{\"lhs\":[L],\"x\":1}",
                                             u"{\"x\":1,\"lhs\":[L]}", u"{\"lhs\":[L]} ", u"{\"l\\u0068s\":[L]}",
                                             u"{\"lhs\":[L]", u"[L]"};
    std::u16string text;
    for (char16_t c : std::u16string(plain ? kShapes[0] : kShapes[rng() % std::size(kShapes)]))
      text += c == u'%' ? pick(kSpace) : c == u'L' ? list : std::u16string(1, c);
    SCOPED_TRACE(to_utf8(text));

    owned_array tree;
    try {
      foundation::json::Value root = dovra_json::parse(to_utf8(text));
      ixArray* out = nullptr;
      const bool failed = bool(failure_of([&] { ixtal_json::decode_response(root, out); }));
      tree.reset(out);  // a failing element leaves a partly filled cell to dispose of
      if (failed) tree.reset();
    } catch (const foundation::json::ParserException&) {
    }
    auto direct = ixtal_json::read_response(std::u16string_view(text));
    const bool plain_list = plain && list.find_first_of(u"\xd800\xdc00") == std::u16string::npos;
    if (!direct) {
      EXPECT_FALSE(plain_list) << "a plain list left to the tree";
      continue;
    }
    ++taken;
    ASSERT_TRUE(tree) << "read a text the tree refuses";
    expect_same_reading(direct->get(), tree.get());
    for (ixSize k = 0; k < ixGetNumberOfElements(direct->get()); ++k)
      EXPECT_EQ(ixGetArrayScope(ixGetCell(direct->get(), k)), ixGetArrayScope(ixGetCell(tree.get(), k)));
  }
  EXPECT_GT(taken, 2000);
}

}  // namespace
}  // namespace dovra_test
