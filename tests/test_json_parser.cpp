// The parser: accepted and rejected text with codes and positions, the
// first-byte dispatch against the ordered choice as written, and the number
// and UTF-16 conversions it relies on.

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <string>

#include "foundation/json/serializer.hpp"
#include "foundation/json/support.hpp"
#include "json/grammar.hpp"
#include "json/limits.hpp"
#include "json/parser.hpp"
#include "json/parser_exception.hpp"
#include "ixtal/text.hpp"

namespace {

namespace fj = foundation::json;
using fj::Array;
using fj::Object;
using fj::Value;
using fj::ParseResult;
using namespace std::string_literals;

std::string shown(const std::string& text) { return fj::Serializer().to_string(Value(text)); }

std::string nested(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

Value nested_value(std::size_t depth) {
  Value v = Array{};
  while (--depth) {
    Array outer;
    outer.push_back(std::move(v));
    v = Value(std::move(outer));
  }
  return v;
}

struct Accepted {
  std::string text;
  Value expected;
  unsigned char flags = 0;
};

TEST(JsonParser, AcceptsAndBuildsTheTree) {
  const double inf = std::numeric_limits<double>::infinity();
  const Accepted rows[] = {
      {"0123", 123.0},
      {"-007", -7.0},
      {"0.5", 0.5},
      {"-1.25E+2", -125.0},
      {"1e400", inf},
      {"-1e400", -inf},
      {"[ 1 , 2 ]", Array{1, 2}},
      {"[\t\n\r 1 \v\f]", Array{1}},
      {"{ \"a\" : 1 }", Object{{"a", 1}}},
      {"{\"a\":1,\"a\":2}", Object{{"a", 1}}},
      {"[true,false,null,[],{}]", Array{true, false, fj::Null{}, Array{}, Object{}}},
      {"\"\\\"\\\\\\/\\b\\f\\n\\r\\t\"", "\"\\/\b\f\n\r\t"},
      {"\"\\u00e9\\u00C9\"", "\xC3\xA9\xC3\x89"},
      {"\"\\ud83d\\ude00\"", "\xF0\x9F\x98\x80"},
      {"\"\\ud83d\\u0041\"", "\xEF\xBF\xBD" "A"},  // high surrogate without its pair
      {"\"\\udc00\"", "\xEF\xBF\xBD"},             // lone low surrogate
      {"\"a\\u0000b\"", "a\0b"s},
      {"\"\t\n\x01\x7F\xFF\"", "\t\n\x01\x7F\xFF"},  // taken unchecked
      {"[1,/* x */2 // y\n]", Array{1, 2}, dovra_json::kAllowComments},
      {"[/**/]", Array{}, dovra_json::kAllowComments},
      {nested(dovra_json::kMaxNestingDepth), nested_value(dovra_json::kMaxNestingDepth)},
  };
  for (const auto& row : rows) {
    Value got;
    EXPECT_NO_THROW(got = dovra_json::parse(row.text, row.flags)) << shown(row.text);
    EXPECT_EQ(got, row.expected) << shown(row.text);
  }
  EXPECT_TRUE(std::signbit(dovra_json::parse("-0").as_double()));
}

struct Rejected {
  std::string text;
  fj::ParseResult code;  // kParseOk: a complete value with more text after it
  std::size_t offset;
  unsigned char flags = 0;
};

TEST(JsonParser, RejectsWithCodeAndPosition) {
  const std::string too_deep = nested(dovra_json::kMaxNestingDepth + 1);
  const Rejected rows[] = {
      {"", fj::kUnexpectedEnd, 0},
      {" 1", fj::kStringExpected, 0},             // ^ no white space before the value
      {"1 ", fj::kParseOk, 1},             //  ^ nor after it
      {"1\n", fj::kParseOk, 1},
      {"[1,]", fj::kStringExpected, 3},           //    ^ the string's code wins the tie
      {"{\"a\":1,}", fj::kStringExpected, 7},
      {"0123.5", fj::kParseOk, 4},         //     ^ digits after a leading zero take no fraction
      {"01.5", fj::kParseOk, 2},
      {"1.", fj::kUnexpectedEnd, 2},
      {"-", fj::kUnexpectedEnd, 1},
      {"1e+", fj::kUnexpectedEnd, 3},
      {"1.x", fj::kFractionDigitExpected, 2},
      {"1ex", fj::kExponentDigitExpected, 2},
      {"1e-x", fj::kExponentDigitExpected, 3},
      {"-x", fj::kDigitExpected, 1},
      {"[-]", fj::kDigitExpected, 2},
      {".5", fj::kStringExpected, 0},
      {"+1", fj::kStringExpected, 0},
      {"tru", fj::kStringExpected, 0},            // ^ a failed literal does not advance
      {"nul", fj::kStringExpected, 0},
      {"truex", fj::kParseOk, 4},
      {"[truex]", fj::kCommaOrBracketExpected, 5},
      {"[1 2]", fj::kCommaOrBracketExpected, 3},
      {"[1", fj::kUnexpectedEnd, 2},
      {"[", fj::kUnexpectedEnd, 1},
      {"]", fj::kStringExpected, 0},
      {"{", fj::kUnexpectedEnd, 1},
      {"{1:2}", fj::kStringExpected, 1},
      {"{\"a\" 1}", fj::kColonExpected, 5},
      {"{\"a\"", fj::kUnexpectedEnd, 4},
      {"{\"a\":", fj::kUnexpectedEnd, 5},
      {"{\"a\":1 \"b\":2}", fj::kCommaOrBraceExpected, 7},
      {"\"abc", fj::kUnexpectedEnd, 4},
      {"\"a\\q\"", fj::kInvalidEscape, 2},       //   ^ escapes report their backslash
      {"\"a\\", fj::kUnexpectedEnd, 2},
      {"\"\\u12\"", fj::kUnexpectedEnd, 1},
      {"\"\\u12g4\"", fj::kInvalidUnicodeEscape, 1},
      {"\"\\ud83d\"", fj::kUnexpectedEnd, 1},   // fewer than six bytes after a high surrogate
      {"[\"\\ud83d\"]", fj::kUnexpectedEnd, 2},
      {"\"\\ud83dabcdef\"", fj::kInvalidUnicodeEscape, 1},
      {"\"\\ud83d\\u12g4\"", fj::kInvalidUnicodeEscape, 1},
      {"/* c */1", fj::kStringExpected, 0, dovra_json::kAllowComments},
      {"[1,/* c */2]", fj::kStringExpected, 3},   // comments are off by default
      {"[1,/* open", fj::kUnexpectedEnd, 10, dovra_json::kAllowComments},
      {"[1,// open", fj::kUnexpectedEnd, 10, dovra_json::kAllowComments},
      {"[1 /x]", fj::kCommaOrBracketExpected, 3, dovra_json::kAllowComments},
      {"[1,/", fj::kStringExpected, 3, dovra_json::kAllowComments},
      {too_deep, fj::kNestingTooDeep, dovra_json::kMaxNestingDepth},
      {"[" + too_deep + "]", fj::kNestingTooDeep, dovra_json::kMaxNestingDepth},
      {std::string(dovra_json::kMaxNestingDepth, '[') + "{\"a\":1}", fj::kNestingTooDeep, dovra_json::kMaxNestingDepth},
  };
  for (const auto& row : rows) {
    try {
      dovra_json::parse(row.text, row.flags);
      ADD_FAILURE() << shown(row.text) << " was accepted";
    } catch (const fj::ParserException& e) {
      EXPECT_EQ(e.result(), row.code) << shown(row.text);
      EXPECT_EQ(e.offset(), row.offset) << shown(row.text);
    }
  }
}

// The rule as written: six alternatives tried from the same byte, each with
// its own cursor; the first success wins, else the failure that got
// furthest, the earlier alternative among equals. The alternatives are the
// parser's own: only the choice differs.
class OrderedChoice {
 public:
  OrderedChoice(const char* end, unsigned char flags) : g_(end, flags) {}

  ParseResult value(const char*& p, Value& out) {
    const char* at[6] = {p, p, p, p, p, p};
    ParseResult code[6];
    Value v[6] = {Value(), Value(), Value(), Value(), Value(true), Value(fj::Null{})};
    std::string s;
    dovra_json::detail::Utf8Sink sink(s);
    code[0] = g_.string(at[0], sink);
    v[0] = Value(s);
    double d = 0;
    code[1] = g_.number(at[1], d);
    v[1] = Value(d);
    code[2] = object(at[2], v[2]);
    code[3] = array(at[3], v[3]);
    code[4] = literal(at[4], "true", fj::kBooleanExpected);
    if (code[4] != fj::kParseOk) code[4] = literal(at[4], "false", fj::kBooleanExpected), v[4] = Value(false);
    code[5] = literal(at[5], "null", fj::kNullExpected);
    int chosen = 0;
    while (chosen < 6 && code[chosen] != fj::kParseOk) ++chosen;
    if (chosen == 6) {
      chosen = 0;
      for (int i = 1; i < 6; ++i)
        if (at[i] > at[chosen]) chosen = i;
    }
    p = at[chosen];
    out = std::move(v[chosen]);
    return code[chosen];
  }

 private:
  ParseResult object(const char*& p, Value& out) {
    fj::Object members;
    std::string name;
    const ParseResult r = g_.members(p, name, [&](std::string& key, const char*& q) {
      Value v;
      const ParseResult e = value(q, v);
      if (e == fj::kParseOk) members.try_emplace(std::move(key), std::move(v));
      return e;
    });
    out = Value(std::move(members));
    return r;
  }
  ParseResult array(const char*& p, Value& out) {
    fj::Array elements;
    const ParseResult r = g_.elements(p, [&](const char*& q) {
      Value v;
      const ParseResult e = value(q, v);
      if (e == fj::kParseOk) elements.push_back(std::move(v));
      return e;
    });
    out = Value(std::move(elements));
    return r;
  }
  ParseResult literal(const char*& p, std::string_view word, ParseResult mismatch) {
    const std::string_view rest(p, std::size_t(g_.end() - p));
    if (rest.size() < word.size()) return word.starts_with(rest) ? fj::kUnexpectedEnd : mismatch;
    if (!rest.starts_with(word)) return mismatch;
    p += word.size();
    return fj::kParseOk;
  }

  dovra_json::detail::Grammar<char> g_;
};

// One to three edits: a unit of the alphabet inserted or put in place of
// another, a unit removed, the text cut, or (when given) a pair inserted.
template <class String>
String mutated(String s, const String& alphabet, std::mt19937& rng, const String& pair = {}) {
  const int edits = 1 + int(rng() % 3);
  for (int i = 0; i < edits; ++i) {
    const std::size_t at = s.empty() ? 0 : rng() % (s.size() + 1);
    const auto u = alphabet[rng() % alphabet.size()];
    switch (rng() % (pair.empty() ? 4 : 5)) {
      case 0: s.insert(at, 1, u); break;
      case 1: if (at < s.size()) s[at] = u; break;
      case 2: if (at < s.size()) s.erase(at, 1); break;
      case 3: s.resize(at); break;
      case 4: s.insert(at, pair); break;
    }
  }
  return s;
}

const std::string kGrammarBytes = "{}[],:\"\\/-+.0123456789eEutfnrlsa* \n\x01\xC3";

const std::string kSeeds[] = {
    R"({"a":[1,-2.5e+3,0.0E-0,true,false,null],"b":{},"c":"x\u00e9\n\"q"})",
    R"([0123,-007,"\ud83d\ude00","\ud83dabcdef","\udc00"])",
    R"({ "k" : [ { } , [ ] , "v" ] , "k" : 1e5 })",
    R"([[[["deep"]]],{"x":{"y":{"z":-0}}}])",
    R"("plain \/ text \\ with \b\f\r\t escapes")",
    "[true, false ,null\t,\n1.5e-7]",
    R"([12345678901234567890.12345678901234e-5,"abcdefghijklmnopqrstuvwxyz0123456789 long enough"])",
};

TEST(JsonParser, FirstByteDispatchAgreesWithTheOrderedChoice) {
  std::mt19937 rng(20240611);
  std::vector<std::string> inputs;
  for (const auto& seed : kSeeds) {
    for (std::size_t n = 0; n <= seed.size(); ++n) inputs.push_back(seed.substr(0, n));
    for (int i = 0; i < 4000; ++i) inputs.push_back(mutated(seed, kGrammarBytes, rng));
  }
  int failures = 0;
  for (const auto& text : inputs) {
    const char* end = text.data() + text.size();
    const char *fast = text.data(), *slow = text.data();
    Value fast_value, slow_value;
    const int fast_code = dovra_json::parse_value(fast, end, 0, fast_value);
    const int slow_code = OrderedChoice(end, 0).value(slow, slow_value);
    const bool same = fast_code == slow_code && fast == slow && (fast_code != 0 || fast_value == slow_value);
    EXPECT_TRUE(same) << shown(text) << ": dispatch " << fast_code << " at " << fast - text.data()
                      << ", ordered choice " << slow_code << " at " << slow - text.data();
    if (!same && ++failures == 10) break;
  }
}

// Units whose low byte is grammar, text beyond ASCII, and surrogates alone
// and in pairs, besides the grammar itself.
const std::u16string kGrammarUnits =
    u"{}[],:\"\\/-+.0123456789eEutfnrlsa \n\x01\u00e9\u0130\u0122\u015c\u0120\u2028\uff10\xd800\xdc00";

// The builtins read the host's UTF-16 text as it stands and go to its UTF-8
// form only to report a failure: both must accept the same texts with the
// same trees, and over ASCII fail with the same code at the same place.
TEST(JsonParser, Utf16TextReadsAsItsUtf8Form) {
  const fl::i18n::codecvt_ustring_to_string to_utf8("UTF-8");
  const fl::i18n::codecvt_string_to_ustring to_utf16("UTF-8");
  std::mt19937 rng(7);
  std::vector<std::u16string> inputs;
  for (const auto& seed : kSeeds) {
    const std::u16string wide = to_utf16(seed);
    for (std::size_t n = 0; n <= wide.size(); ++n) inputs.push_back(wide.substr(0, n));
    for (int i = 0; i < 4000; ++i) inputs.push_back(mutated(wide, kGrammarUnits, rng, std::u16string(u"\xd83d\xde00")));
  }
  int failures = 0, accepted = 0;
  for (const auto& text : inputs) {
    const std::string bytes = to_utf8(text);
    const char *p8 = bytes.data(), *end8 = p8 + bytes.size();
    const char16_t *p16 = text.data(), *end16 = p16 + text.size();
    Value v8, v16;
    const int c8 = dovra_json::parse_value(p8, end8, 0, v8);
    const int c16 = dovra_json::parse_value(p16, end16, 0, v16);
    const bool ok8 = c8 == 0 && p8 == end8, ok16 = c16 == 0 && p16 == end16;
    bool same = ok8 == ok16 && (!ok8 || v8 == v16);
    if (std::all_of(text.begin(), text.end(), [](char16_t u) { return u < 0x80; }))
      same = same && c8 == c16 && p8 - bytes.data() == p16 - text.data();
    accepted += ok16;
    EXPECT_TRUE(same) << shown(bytes) << ": UTF-8 " << c8 << " at " << p8 - bytes.data() << ", UTF-16 " << c16
                      << " at " << p16 - text.data();
    if (!same && ++failures == 10) break;
  }
  EXPECT_GT(accepted, 1000);  // the mutations leave enough valid text to compare trees
}

std::uint64_t bits(double d) { return std::bit_cast<std::uint64_t>(d); }

TEST(JsonStringToDouble, RoundsCorrectlyAndSaturatesOutOfRange) {
  const double inf = std::numeric_limits<double>::infinity();
  const struct {
    std::string text;
    double expected;
  } rows[] = {
      {"0.1", 0.1},
      {"9007199254740993", 9007199254740992.0},  // halfway: ties to even
      {"2.4703282292062328e-324", 4.9406564584124654e-324},
      {"2.4703282292062327e-324", 0.0},          // just below half the smallest subnormal
      {"1.7976931348623158e308", 1.7976931348623157e308},
      {"1.7976931348623159e308", inf},
      {"1e400", inf},
      {"-1e400", -inf},
      {"0.0000001e309", 1e302},
      {"1000000e303", inf},
      {"1e-400", 0.0},
      {"-1e-400", -0.0},
      {"123456789e-999999999999999999999", 0.0},
      {"0.000e99999", 0.0},
      {"1" + std::string(400, '0') + "e-400", 1.0},
  };
  for (const auto& row : rows) {
    const double got = fj::detail::string_to_double(row.text.data(), row.text.data() + row.text.size());
    EXPECT_EQ(bits(got), bits(row.expected)) << row.text << " gave " << got;
  }
}

// The parser takes a quick path for numbers whose digits fit 64 bits and
// whose power of ten is small; whichever path a number takes, its double is
// the general conversion's.
TEST(JsonParserNumbers, AgreeWithTheGeneralConversion) {
  const std::string rows[] = {
      "0", "-0", "0e5", "-0.0e-5", "0123", "-0123", "7", "0.1", "0.5e1", "1E+2", "123456789012345678",
      "9007199254740992", "9007199254740993",    // 2^53 + 1: halfway between two doubles
      "9007199254740993.0", "90071992547409930e-1",
      "18446744073709551615", "18446744073709551616", "1234567890123456789", "12345678901234567890",
      "0.6494516858128923", "-0.0029805269329934497", "1.7976931348623157e308", "4.9406564584124654e-324",
      "1e22", "1e23", "1e27", "1e28", "1e-22", "1e-23", "1e-27", "1e-28", "123456789012345678e-27",
      "0.00000000000000000001", "1" + std::string(30, '0'), "0." + std::string(30, '0') + "1",
      // Where the reading far from the end of the text changes its way:
      // 15 and 16 integer digits, 16, 17, 31 and 32 fraction digits, 19 and
      // 20 digits in all, powers of ten at the table's ends, -0.
      "123456789012345", "1234567890123456", "-999999999999999.5", "0.1234567890123456", "0.12345678901234567",
      "0.1234567890123456789012345678901", "0.12345678901234567890123456789012", "1234567890.123456789",
      "1234567890.1234567891", "0.0000000000000000000001", "0.00000000000000000000001", "9007199254740991.5",
      "-0.0", "-0.000", "0.0", "2147483647", "-2147483648", "2147483648", "-2147483649", "1.0000000000000002",
  };
  // Alone, and followed by more text in UTF-16 (a little, so that digits are
  // also read in blocks; and much, so that numbers are read with no end to
  // look for), and in UTF-8 with much text after.
  auto check = [](const std::string& text) {
    const double expected = fj::detail::string_to_double(text.data(), text.data() + text.size());
    const auto first_element = [&](const std::string& tail, auto unit) {
      const std::string padded = "[" + text + ",1]" + tail;
      const std::basic_string<decltype(unit)> units(padded.begin(), padded.end());
      const decltype(unit)* p = units.data();
      Value v;
      const int code = dovra_json::parse_value(p, units.data() + units.size(), 0, v);
      return code == 0 ? v.as_array().at(0).as_double() : -1;
    };
    const std::string far(80, ' ');
    const double got[] = {dovra_json::parse(text).as_double(), first_element("        ", char16_t()),
                          first_element(far, char16_t()), first_element(far, char())};
    bool all = true;
    for (const double g : got) all = all && bits(g) == bits(expected);
    EXPECT_TRUE(all) << text << ": " << got[0] << " alone, " << got[1] << " and " << got[2] << " in UTF-16, "
                     << got[3] << " in UTF-8";
    return all;
  };
  for (const auto& row : rows) check(row);
  std::mt19937_64 rng(5);
  for (int i = 0; i < 200000; ++i) {
    std::string text = rng() % 2 ? "-" : "";
    const int digits = 1 + int(rng() % 36), point = int(rng() % (digits + 1));
    text += char('1' + rng() % 9);
    for (int k = 1; k < digits; ++k) {
      if (k == point) text += '.';
      text += char('0' + rng() % 10);
    }
    // Exponents near the quick paths' edges, and across the whole range.
    if (rng() % 3 == 0) text += "e" + std::to_string(int(rng() % 70) - 35);
    else if (rng() % 2 == 0) text += "e" + std::to_string(int(rng() % 700) - 350);
    if (!check(text)) break;
  }
}

TEST(JsonU16ToU8, WritesReplacementForUnpairedSurrogates) {
  const struct {
    char16_t first, second;
    bool has_second;
    std::string expected;
  } rows[] = {
      {u'A', 0, false, "A"},
      {0x20AC, 0, false, "\xE2\x82\xAC"},
      {0xD83D, 0xDE00, true, "\xF0\x9F\x98\x80"},
      {0xDBFF, 0xDFFF, true, "\xF4\x8F\xBF\xBF"},
      {0xD83D, 0, false, "\xEF\xBF\xBD"},
      {0xDE00, 0, false, "\xEF\xBF\xBD"},
      {0xD83D, u'A', true, "\xEF\xBF\xBD" "A"},
      {0xD83D, 0xD83D, true, "\xEF\xBF\xBD\xEF\xBF\xBD"},
  };
  for (const auto& row : rows) {
    std::string out = "x";
    fj::detail::u16_to_u8(row.first, row.second, row.has_second, out);
    EXPECT_EQ(out, "x" + row.expected) << std::hex << int(row.first) << " " << int(row.second);
  }
}

}  // namespace
