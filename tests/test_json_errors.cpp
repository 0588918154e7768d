// Parse errors: where they are, what the exception says, and the keyed
// error the parse step raises for a text argument.

#include <gtest/gtest.h>

#include <string>

#include "errors/keys.hpp"
#include "foundation/json/serializer.hpp"
#include "ixtal/catalog.hpp"
#include "ixtal/text.hpp"
#include "json/limits.hpp"
#include "json/location.hpp"
#include "json/parse_step.hpp"
#include "json/parser.hpp"
#include "json/parser_exception.hpp"
#include "support/host.hpp"

namespace {

namespace fj = foundation::json;

std::string shown(const std::string& text) { return fj::Serializer().to_string(fj::Value(text)); }

TEST(JsonLocation, LineColumnContextAndCaret) {
  const std::string long_line = std::string(120, 'a') + std::string(80, 'b') + "X" + std::string(150, 'c');
  const struct {
    std::string text;
    std::size_t pos;
    std::uint64_t line, column;
    std::string context;
    std::uint64_t caret;
  } rows[] = {
      {"x", 0, 1, 0, "x", 0},
      {"[1,", 3, 1, 3, "[1,", 3},                      // at the end: caret one past the text
      {"[\n", 2, 2, 0, "", 0},
      {"[1\n,2\n]", 3, 2, 0, ",2", 0},
      {"[1\n,2\n]", 2, 1, 2, "[1", 2},                 // on the newline itself
      {"a\r\nb\r\nc x", 8, 3, 2, "c x", 2},            // only "\n" counts; "\r" stays with the line before
      {"a\r\nb\r\nc x\r\nd", 8, 3, 2, "c x\r", 2},
      {long_line, 200, 1, 200, long_line.substr(120, 160), 80},
      {"\n" + long_line, 201, 2, 200, long_line.substr(120, 160), 80},
      {std::string(100, 'a') + "\nb", 100, 1, 100, std::string(80, 'a'), 80},
  };
  for (const auto& row : rows) {
    const char* b = row.text.data();
    const auto [line, column, context, caret] = fj::get_location_info(b, b + row.pos, b + row.text.size());
    EXPECT_EQ(line, row.line) << shown(row.text) << " at " << row.pos;
    EXPECT_EQ(column, row.column) << shown(row.text) << " at " << row.pos;
    EXPECT_EQ(context, row.context) << shown(row.text) << " at " << row.pos;
    EXPECT_EQ(caret, row.caret) << shown(row.text) << " at " << row.pos;
  }
}

fj::ParserException failure_of_parse(const std::string& text) {
  try {
    dovra_json::parse(text);
  } catch (const fj::ParserException& e) {
    return e;
  }
  throw std::logic_error(text + " was accepted");
}

TEST(JsonParserException, MessageCarriesCodeDescriptionAndPosition) {
  const auto e = failure_of_parse("{\"a\":\n  [1,]}");
  EXPECT_EQ(e.result(), fj::kStringExpected);
  EXPECT_EQ(e.offset(), 11u);
  EXPECT_STREQ(e.what(),
               "JSON ParserException (E0008): Expected a string or another value (Line 2, Column 5)\n\t  [1,]}\n\t     ^");
  EXPECT_STREQ(failure_of_parse("1 ").what(), "JSON ParserException (E0000): Parse incomplete (Line 1, Column 1)\n\t1 \n\t ^");
  EXPECT_STREQ(failure_of_parse("[1,").what(),
               "JSON ParserException (E0019): Unexpected end of text (Line 1, Column 3)\n\t[1,\n\t   ^");
}

std::u16string catalog_u16(const resource_core::BaseMsgID& key) {
  return fl::i18n::codecvt_string_to_ustring("UTF-8")(
      fl::i18n::MessageCatalog::get_message(key, fl::i18n::TnLocale::global()));
}

TEST(JsonParseStep, RaisesTheKeyOfTheCodeWithPositionTexts) {
  const std::string too_deep = std::string(dovra_json::kMaxNestingDepth + 1, '[');
  const struct {
    std::string text;
    std::string identifier;
    long line, column, offset;
    std::string context, caret_line;
  } rows[] = {
      {"[1] x", "DecodeUnexpectedValue", 1, 3, 3, "[1] x", "   ^"},
      {"[1,", "DecodeIncomplete", 1, 3, 3, "[1,", "   ^"},
      {"", "DecodeIncomplete", 1, 0, 0, "", "^"},
      {"tru", "DecodeUnexpectedValue", 1, 0, 0, "tru", "^"},
      {"1.x", "DecodeNumberInvalidFractionalComponent", 1, 2, 2, "1.x", "  ^"},
      {"1ex", "DecodeNumberInvalidExponent", 1, 2, 2, "1ex", "  ^"},
      {"{\"a\" 1}", "DecodeObjectNoColonAfterName", 1, 5, 5, "{\"a\" 1}", "     ^"},
      {"[\"\\q\"]", "DecodeCharInvalidEscape", 1, 2, 2, "[\"\\q\"]", "  ^"},
      {"\"\\u00g0\"", "DecodeCharInvalidUnicodeEscape", 1, 1, 1, "\"\\u00g0\"", " ^"},
      {"[\"\xC3\xA9\",\n x]", "DecodeUnexpectedValue", 2, 1, 8, " x]", " ^"},  // offsets count UTF-8 bytes
      {too_deep, "DecodeNestingTooDeep", 1, 1000, 1000, std::string(81, '['), std::string(80, ' ') + "^"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(shown(row.text));
    const auto argument = dovra_test::text(row.text);
    dovra_test::expect_failure([&] { dovra_json::parse_text_argument(argument.get()); },
                               "DOVRA:IXTAL:JSON:" + row.identifier,
                               {catalog_u16(DOVRA::IXTAL::JSON::DecodeJsonErrPrefix(row.line, row.column, row.offset)),
                                catalog_u16(DOVRA::IXTAL::JSON::DecodeJsonErrSuffix(row.context, row.caret_line))});
  }
}

TEST(JsonParseStep, ReadsAnyCharArrayOrAStringScalar) {
  // storage order spells [1,22]: the shape of a char array does not matter
  const auto chars = dovra_test::make_char(u"[1,22]", {2, 3});
  EXPECT_EQ(dovra_json::parse_text_argument(chars.get()), fj::Value(fj::Array{1, 22}));
  const auto scalar = dovra_test::make_strings({u"{\"a\":true}"}, {1, 1});
  EXPECT_EQ(dovra_json::parse_text_argument(scalar.get()), fj::Value(fj::Object{{"a", true}}));
}

TEST(JsonParseStep, AnyOtherArgumentIsOneError) {
  const auto two_strings = dovra_test::make_strings({u"1", u"2"}, {1, 2});
  const auto missing = dovra_test::make_strings({std::nullopt}, {1, 1});
  const auto number = dovra_test::make_double({1}, {1, 1});
  for (const ixArray* argument : {two_strings.get(), missing.get(), number.get(), static_cast<ixArray*>(nullptr)})
    dovra_test::expect_failure([&] { dovra_json::parse_text_argument(argument); },
                               "IXTAL:checkSyntacticWarnings:MustBeStringScalarOrCharacterVector");
}

}  // namespace
