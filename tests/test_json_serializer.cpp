// The serializer: exact compact and pretty text, escapes, the
// refusal of non-finite numbers, and round trips through the parser.

#include <gtest/gtest.h>

#include <cfloat>
#include <charconv>
#include <cstdint>
#include <functional>
#include <cmath>
#include <bit>
#include <limits>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>

#include "foundation/json/serializer.hpp"
#include "ixtal/text.hpp"
#include "json/parser.hpp"

namespace {

namespace fj = foundation::json;
using fj::Array;
using fj::Object;
using fj::Value;
using namespace std::string_literals;

std::string compact(const Value& v) { return fj::Serializer().to_string(v); }
std::string pretty(const Value& v) {
  fj::Serializer s;
  s.pretty_print(true);
  return s.to_string(v);
}

TEST(JsonSerializer, WritesCompactAndPrettyText) {
  const struct {
    Value value;
    std::string compact, pretty;
  } rows[] = {
      {Object{{"b", Object{}}, {"a", Array{1, "x", Array{}}}},
       R"({"a":[1,"x",[]],"b":{}})",
       "{\n  \"a\": [\n    1,\n    \"x\",\n    []\n  ],\n  \"b\": {}\n}"},
      {Array{Object{{"k", fj::Null{}}}}, R"([{"k":null}])", "[\n  {\n    \"k\": null\n  }\n]"},
      {Array{}, "[]", "[]"},
      // Arrays of scalars stay on one line: a matrix shows its rows, a size
      // its two numbers; a special number's object is a scalar there.
      {Array{Array{1, 2.5}, Array{-3, 4}}, "[[1,2.5],[-3,4]]", "[\n  [1, 2.5],\n  [-3, 4]\n]"},
      {Object{{"tnsize", Array{2, 3}}}, R"({"tnsize":[2,3]})", "{\n  \"tnsize\": [2, 3]\n}"},
      {Array{fj::Null{}, true, "a, b", Object{{"tndata", "NaN"}}, 1e21},
       R"([null,true,"a, b",{"tndata":"NaN"},1e+21])", R"([null, true, "a, b", {"tndata": "NaN"}, 1e+21])"},
      {Array{Object{{"tndata", "NaN"}, {"x", "y"}}}, R"([{"tndata":"NaN","x":"y"}])",
       "[\n  {\n    \"tndata\": \"NaN\",\n    \"x\": \"y\"\n  }\n]"},
      {Array{Object{{"k", 1}}}, R"([{"k":1}])", "[\n  {\n    \"k\": 1\n  }\n]"},
      {Object{{"tndata", "NaN"}}, R"({"tndata":"NaN"})", "{\n  \"tndata\": \"NaN\"\n}"},
      {Value(), "null", "null"},  // Undefined has no text of its own
      {true, "true", "true"},
      {5.0, "5", "5"},
      {-0.0, "-0", "-0"},
      {0.1, "0.1", "0.1"},
      {1e21, "1e+21", "1e+21"},
      {4.9406564584124654e-324, "5e-324", "5e-324"},
      {0.1f, "0.1", "0.1"},
      {16777216.0f, "16777216", "16777216"},
      {FLT_MAX, "3.4028234663852886e+38", "3.4028234663852886e+38"},  // 3.4028235e+38 would overflow a float
      {-FLT_MAX, "-3.4028234663852886e+38", "-3.4028234663852886e+38"},
      {FLT_TRUE_MIN, "1e-45", "1e-45"},
      {"q\"b\\s/", R"("q\"b\\s/")", R"("q\"b\\s/")"},
      {"\b\f\n\r\t\x01\x1f\x7f\xC3\xA9"s + '\0', R"("\b\f\n\r\t\u0001\u001f)" "\x7f\xC3\xA9" R"(\u0000")", ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(compact(row.value), row.compact) << row.compact;
    if (!row.pretty.empty()) {
      EXPECT_EQ(pretty(row.value), row.pretty) << row.compact;
    }
  }
  std::ostringstream os;
  fj::Serializer().write(os, rows[0].value);
  EXPECT_EQ(os.str(), rows[0].compact);
}

// Long texts pass through the writer in pieces; a piece boundary must not
// show. Each long text is compared with its parts written one by one.
TEST(JsonSerializer, LongTextIsTheSumOfItsParts) {
  std::mt19937_64 rng(5);
  Array mixed;
  std::string expected_compact = "[", expected_pretty = "[";
  for (int i = 0; i < 60000; ++i) {
    Value e;
    switch (rng() % 5) {
      case 0: e = double(std::int64_t(rng() % 2000000) - 1000000); break;
      case 1: e = std::ldexp(double(rng() % 1000000), -int(rng() % 40)); break;
      case 2: e = std::string(rng() % 40, "a\"\n\x01"[rng() % 4]); break;
      case 3: e = Value(rng() % 2 == 0); break;
      default: e = Object{{"k", double(rng() % 100)}}; break;
    }
    expected_compact += (i ? "," : "") + compact(e);
    std::string piece = pretty(e);
    for (std::size_t at = piece.find('\n'); at != std::string::npos; at = piece.find('\n', at + 1))
      piece.insert(at + 1, "  ");
    expected_pretty += (i ? ",\n  " : "\n  ") + piece;
    mixed.push_back(std::move(e));
  }
  expected_compact += "]";
  expected_pretty += "\n]";
  EXPECT_EQ(compact(mixed), expected_compact);
  EXPECT_EQ(pretty(mixed), expected_pretty);

  std::string long_string, expected_inner;
  for (int i = 0; i < 20000; ++i) {
    const std::string part(1 + rng() % 30, "xy\t\\\x1f"[rng() % 5]);
    long_string += part;
    const std::string written = compact(part);
    expected_inner += written.substr(1, written.size() - 2);
  }
  EXPECT_EQ(compact(long_string), "\"" + expected_inner + "\"");
  EXPECT_EQ(compact(Array{long_string, 7.0}), "[\"" + expected_inner + "\",7]");
}

TEST(JsonSerializer, RefusesNonFiniteNumbersAndLeavesNoPartialText) {
  const double inf = std::numeric_limits<double>::infinity();
  const Value bad[] = {std::nan(""), -inf, std::numeric_limits<float>::infinity(), std::nanf(""),
                       Object{{"a", Array{1, "x", Object{{"z", inf}}}}}};
  for (const auto& v : bad) {
    std::string out = "kept";
    EXPECT_THROW(fj::Serializer().write(out, v), std::domain_error);
    EXPECT_EQ(out, "kept");
  }
}

// Random trees of everything the parser reads, with strings of every byte
// value (NUL and invalid UTF-8 included).
class TreeMaker {
 public:
  explicit TreeMaker(unsigned seed) : rng_(seed) {}

  Value make(int depth) {
    switch (rng_() % (depth > 0 ? 8 : 5)) {
      case 0: return rng_() % 2 ? Value(fj::Null{}) : Value(rng_() % 2 == 0);
      case 1: return finite<double>();
      case 2: return double(int(rng_() % 2001) - 1000);
      case 3: case 4: return text();
      case 5: {
        Array a(rng_() % 5);
        for (auto& e : a) e = make(depth - 1);
        return a;
      }
      case 6: {  // rows of numbers and special objects: one line each in pretty text
        Array rows(rng_() % 4);
        for (auto& row : rows) {
          Array r(rng_() % 5);
          for (auto& e : r) e = rng_() % 4 ? Value(finite<double>()) : Value(Object{{"tndata", text()}});
          row = std::move(r);
        }
        return rows;
      }
      default: {
        Object o;
        for (auto n = rng_() % 5; n > 0; --n) o.emplace(text(), make(depth - 1));
        return o;
      }
    }
  }

  template <class T>
  T finite() {
    using Bits = std::conditional_t<sizeof(T) == 8, std::uint64_t, std::uint32_t>;
    T v;
    do v = std::bit_cast<T>(static_cast<Bits>(rng_()));
    while (!std::isfinite(v));
    return v;
  }

 private:
  std::string text() {
    std::string s(rng_() % 12, '\0');
    for (auto& c : s) c = char(rng_() % 256);
    return s;
  }
  std::mt19937_64 rng_;
};

// Pretty text, one-line rows included, reads back to the value of the
// compact text.
TEST(JsonSerializer, ParserReadsBackWhatItWrites) {
  for (unsigned seed = 1; seed <= 600; ++seed) {
    const Value tree = TreeMaker(seed).make(5);
    for (const std::string& text : {compact(tree), pretty(tree)}) {
      Value back;
      ASSERT_NO_THROW(back = dovra_json::parse(text)) << "seed " << seed << ": " << text;
      ASSERT_EQ(back, tree) << "seed " << seed << ": " << text;
    }
  }
}

// The UTF-16 output is the conversion of the UTF-8 text, made in pieces:
// trees with strings of any bytes (sequences cut by a piece boundary, and
// ill-formed ones), and long texts of multibyte characters.
TEST(JsonSerializer, Utf16TextIsTheConversionOfTheUtf8Text) {
  const fl::i18n::codecvt_string_to_ustring to_utf16("UTF-8");
  auto check = [&](const Value& v, const std::string& name) {
    for (const bool pretty : {false, true}) {
      fj::Serializer s;
      s.pretty_print(pretty);
      const std::string text = s.to_string(v);
      ASSERT_LE(text.size(), s.room(v)) << name;
      std::u16string units(s.room(v), u'\0');
      units.resize(s.write(units.data(), v));
      ASSERT_EQ(units, to_utf16(text)) << name << (pretty ? ", pretty" : "");
    }
  };
  for (unsigned seed = 1; seed <= 200; ++seed) check(TreeMaker(seed).make(5), "tree " + std::to_string(seed));
  std::mt19937_64 rng(9);
  const char* const pieces[] = {"a", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xE2\x82", "\xF0", "\x80", "\n"};
  for (int round = 0; round < 8; ++round) {
    Array long_strings;
    for (int i = 0; i < 4; ++i) {
      std::string s;
      while (s.size() < 70000) s += pieces[rng() % (round < 4 ? 4 : 8)];  // well-formed, then not
      long_strings.push_back(std::move(s));
    }
    check(long_strings, "round " + std::to_string(round));
  }
}

}  // namespace
