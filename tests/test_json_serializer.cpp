// The serializer: exact compact and pretty text, numbers, escapes, the
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

// The text std::to_chars gives, which the writer's own conversion must
// match byte for byte. A float keeps its own shortest text only when a
// reader that takes it as a double and narrows gets the float back.
std::string reference(double d) {
  char buf[32];
  return std::string(buf, std::to_chars(buf, buf + sizeof buf, d).ptr);
}
std::string reference(float f) {
  char buf[32];
  const auto end = std::to_chars(buf, buf + sizeof buf, f).ptr;
  double back = 0;
  std::from_chars(buf, end, back);
  return std::fabs(back) <= FLT_MAX && float(back) == f ? std::string(buf, end) : reference(double(f));
}

// Every number, alone and as an element of a compact array (two paths in
// the writer), against the general conversion, over values drawn from the
// places where the digit choice or the notation changes.
TEST(JsonSerializer, NumbersMatchTheGeneralConversion) {
  std::mt19937_64 rng(3);
  auto bits = [&] { return std::bit_cast<double>(rng()); };
  auto whole = [&] {  // with trailing zeros a quarter of the time
    const double magnitude = std::pow(10.0, double(rng() % 17));
    double d = std::floor(double(rng() % 1000) * magnitude / double(1 + rng() % 1000));
    return rng() % 4 ? d : std::round(d / magnitude) * magnitude;
  };
  auto power_of_ten = [&] {  // and its neighbours, up and down by a few units in the last place
    double d = std::pow(10.0, double(int(rng() % 617) - 308));
    for (int steps = int(rng() % 7) - 3; steps != 0; steps += steps > 0 ? -1 : 1)
      d = std::nextafter(d, steps > 0 ? 1e308 : 0.0);
    return d;
  };
  auto near_2_53 = [&] { return 9007199254740992.0 + double(std::int64_t(rng() % 4096) - 2048) * 2; };
  auto subnormal = [&] { return std::bit_cast<double>(rng() % (std::uint64_t(1) << 52)); };
  auto boundary = [&] {  // a power of two: the shorter interval below it
    return std::ldexp(1.0, int(rng() % 2098) - 1074);
  };
  auto short_decimal = [&] {  // few digits at every scale: the fixed/scientific choice
    return double(rng() % 1000) * std::pow(10.0, double(int(rng() % 50) - 25));
  };
  const struct {
    const char* name;
    std::function<double()> draw;
  } sources[] = {{"random bits", bits},         {"whole numbers", whole}, {"powers of ten", power_of_ten},
                 {"near 2^53", near_2_53},       {"subnormals", subnormal}, {"powers of two", boundary},
                 {"short decimals", short_decimal}};
  for (const auto& source : sources) {
    for (int i = 0; i < 40000; ++i) {
      double d = source.draw();
      if (!std::isfinite(d)) continue;
      if (rng() % 2) d = -d;
      const std::string want = reference(d);
      ASSERT_EQ(compact(d), want) << source.name;
      ASSERT_EQ(compact(Array{d, 0.5}), "[" + want + ",0.5]") << source.name;
      const float f = std::bit_cast<float>(std::uint32_t(rng()));
      if (std::isfinite(f)) {
        ASSERT_EQ(compact(f), reference(f)) << "single " << f;
      }
      const float g = float(d);
      if (std::isfinite(g)) {
        ASSERT_EQ(compact(g), reference(g)) << "single of " << source.name << " " << g;
      }
    }
  }
  for (const double d : {DBL_MAX, DBL_MIN, DBL_TRUE_MIN, 0.0, 1e21, 1e22, 1e-7, 1e-6, 123456.0, 1e16, 9.999999999999999e22,
                         1152921504606846976.0})  // 2^60: fixed notation, exact digits
    EXPECT_EQ(compact(d), reference(d));
  for (const float f : {FLT_MAX, FLT_MIN, FLT_TRUE_MIN, 0.0f, 1e10f, 3.4028233e38f, 16777216.0f, 4032688896.0f})
    EXPECT_EQ(compact(f), reference(f));
}

// Whole numbers are written from a digit table, alone and, on another
// path, as elements of a compact array; both must agree with the general
// conversion, which writes scientific notation when it is shorter.
TEST(JsonSerializer, WholeNumbersAtTheBoundsOfTheDigitPath) {
  const struct {
    double value;
    const char* text;
  } rows[] = {
      {1, "1"},
      {-1, "-1"},
      {0, "0"},
      {-0.0, "-0"},
      {9, "9"},
      {10, "10"},
      {99, "99"},
      {100, "100"},
      {99999, "99999"},
      {100000, "1e+05"},  // five zeros: scientific is one byte shorter
      {-100000, "-1e+05"},
      {110000, "110000"},
      {1200000, "1200000"},  // a tie keeps the digits
      {12000000, "1.2e+07"},
      {-12300000, "-12300000"},
      {123000000, "1.23e+08"},
      {2147483647, "2147483647"},
      {-2147483648.0, "-2147483648"},
      {4294967295.0, "4294967295"},
      {999999999999999, "999999999999999"},
      {1e15, "1e+15"},
      {1e15 + 1, "1000000000000001"},
      {9007199254740991.0, "9007199254740991"},  // 2^53 - 1
      {-9007199254740991.0, "-9007199254740991"},
      {9007199254740992.0, "9007199254740992"},  // 2^53: the general path
      {9007199254740994.0, "9007199254740994"},
      {123456789012345678.0, "123456789012345680"},
      {0.5, "0.5"},
      {-1.5, "-1.5"},
  };
  for (const auto& row : rows) {
    char buf[32];
    const std::string general(buf, std::to_chars(buf, buf + sizeof buf, row.value).ptr);
    EXPECT_EQ(general, row.text) << row.text;  // the table itself
    EXPECT_EQ(compact(row.value), row.text);
    EXPECT_EQ(compact(Array{row.value, row.value}), "["s + row.text + "," + row.text + "]");
  }
}

// Every m * 10^k and its neighbours, for two-digit m, in both positions.
TEST(JsonSerializer, WholeNumbersNearPowersOfTenMatchTheGeneralConversion) {
  for (int k = 0; k <= 16; ++k) {
    for (int m = 1; m < 100; ++m) {
      for (int delta = -1; delta <= 1; ++delta) {
        for (const double sign : {1.0, -1.0}) {
          const double d = sign * (double(m) * std::pow(10.0, k) + delta);
          char buf[32];
          const std::string general(buf, std::to_chars(buf, buf + sizeof buf, d).ptr);
          ASSERT_EQ(compact(d), general) << general;
          ASSERT_EQ(compact(Array{0.5, d}), "[0.5," + general + "]") << general;
        }
      }
    }
  }
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

TEST(JsonSerializer, FloatsReadBackAsDoublesThatNarrowToThem) {
  TreeMaker maker(11);
  for (int i = 0; i < 100000; ++i) {
    const float f = maker.finite<float>();
    const std::string text = compact(f);
    const double back = dovra_json::parse(text).as_double();
    ASSERT_TRUE(std::fabs(back) <= FLT_MAX && float(back) == f) << text << " for " << f;
  }
}

}  // namespace
