// Numbers as JSON text: every double and float written as std::to_chars
// writes its shortest text, by each of the runtime's writers (a value
// alone, an element of a compact array, the elements of a numeric array
// straight into UTF-16), and read back to the same value; and decimal texts
// of every length and scale read as the general conversion reads them.

#include <gtest/gtest.h>

#include <bit>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "foundation/json/serializer.hpp"
#include "foundation/json/text_output.hpp"
#include "foundation/json/support.hpp"
#include "json/parser.hpp"

namespace {

namespace fj = foundation::json;
using fj::Array;
using fj::Value;
using namespace std::string_literals;

std::string compact(const Value& v) { return fj::Serializer().to_string(v); }

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

// Doubles drawn from the places where the digit choice or the notation
// changes, and from where most data lie.
struct Source {
  const char* name;
  std::function<double(std::mt19937_64&)> draw;
};

const std::vector<Source>& sources() {
  static const std::vector<Source> s = {
      {"random bits", [](std::mt19937_64& rng) { return std::bit_cast<double>(rng()); }},
      {"normal deviates",  // 16 or 17 digits in fixed notation, about equally often
       [](std::mt19937_64& rng) { return std::normal_distribution<double>()(rng); }},
      {"whole numbers",  // with trailing zeros a quarter of the time
       [](std::mt19937_64& rng) {
         const double magnitude = std::pow(10.0, double(rng() % 17));
         double d = std::floor(double(rng() % 1000) * magnitude / double(1 + rng() % 1000));
         return rng() % 4 ? d : std::round(d / magnitude) * magnitude;
       }},
      {"powers of ten",  // and their neighbours, up and down by a few units in the last place
       [](std::mt19937_64& rng) {
         double d = std::pow(10.0, double(int(rng() % 617) - 308));
         for (int steps = int(rng() % 7) - 3; steps != 0; steps += steps > 0 ? -1 : 1)
           d = std::nextafter(d, steps > 0 ? 1e308 : 0.0);
         return d;
       }},
      {"near 2^53", [](std::mt19937_64& rng) { return 9007199254740992.0 + double(std::int64_t(rng() % 4096) - 2048) * 2; }},
      {"subnormals", [](std::mt19937_64& rng) { return std::bit_cast<double>(rng() % (std::uint64_t(1) << 52)); }},
      {"powers of two",  // and the next value down, across the shorter interval below each
       [](std::mt19937_64& rng) {
         const double d = std::ldexp(1.0, int(rng() % 2098) - 1074);
         return rng() % 2 ? d : std::nextafter(d, 0.0);
       }},
      {"short decimals",  // few digits at every scale: the fixed/scientific choice
       [](std::mt19937_64& rng) { return double(rng() % 1000) * std::pow(10.0, double(int(rng() % 50) - 25)); }},
      {"bounds",
       [](std::mt19937_64& rng) {
         constexpr double kBounds[] = {DBL_MAX, DBL_MIN, DBL_TRUE_MIN, 0.0, 1e21, 1e22, 1e-7, 1e-6, 1e16, 123456.0,
                                       9.999999999999999e22, 1152921504606846976.0, 9007199254740991.0, 4294967296.0};
         return kBounds[rng() % std::size(kBounds)];
       }},
  };
  return s;
}

// Every number, alone and as an element of a compact array (two paths in
// the writer), against the general conversion.
TEST(JsonNumbers, MatchTheGeneralConversion) {
  std::mt19937_64 rng(3);
  for (const Source& source : sources()) {
    for (int i = 0; i < 40000; ++i) {
      double d = source.draw(rng);
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
  for (const float f : {FLT_MAX, FLT_MIN, FLT_TRUE_MIN, 0.0f, 1e10f, 3.4028233e38f, 16777216.0f, 4032688896.0f})
    EXPECT_EQ(compact(f), reference(f));
}

// The elements of a numeric array as the encoder writes them, straight
// into a UTF-16 row of exact room, in runs long enough that the output
// passes between its ways of writing; each run against the general
// conversion of its elements, commas between. Floats of every exponent
// by a stride through their bit patterns.
template <class T>
void expect_elements_as_the_general_conversion(const std::vector<T>& x, const std::string& name) {
  std::string want;
  for (std::size_t i = 0; i < x.size(); ++i) want += (i ? "," : "") + reference(x[i]);
  std::u16string units(x.size() * (fj::TextOutput::kLongestNumber + 1) + fj::TextOutput::kNumberRoom, u'\0');
  fj::TextOutput out(units.data(), units.size());
  ASSERT_EQ(out.numbers(x.data(), x.size(), false), x.size()) << name;
  units.resize(out.finish());
  ASSERT_EQ(units, std::u16string(want.begin(), want.end())) << name;
}

TEST(JsonNumbers, ElementsOfNumericArraysMatchTheGeneralConversion) {
  std::mt19937_64 rng(7);
  for (const Source& source : sources()) {
    std::vector<double> x;
    while (x.size() < 100000)
      if (const double d = source.draw(rng); std::isfinite(d)) x.push_back(rng() % 2 ? -d : d);
    expect_elements_as_the_general_conversion(x, source.name);
    std::vector<float> f;
    for (const double d : x)
      if (std::isfinite(float(d))) f.push_back(float(d));
    expect_elements_as_the_general_conversion(f, "single of "s + source.name);
  }
  std::vector<float> stride;
  for (std::uint64_t bits = 0; bits < (std::uint64_t(1) << 32); bits += 4099)
    if (const float f = std::bit_cast<float>(std::uint32_t(bits)); std::isfinite(f)) stride.push_back(f);
  expect_elements_as_the_general_conversion(stride, "floats by stride");
}

// Whole numbers are written from a digit table, alone and, on another
// path, as elements of a compact array; both must agree with the general
// conversion, which writes scientific notation when it is shorter.
TEST(JsonNumbers, WholeNumbersAtTheBoundsOfTheDigitPath) {
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
TEST(JsonNumbers, WholeNumbersNearPowersOfTenMatchTheGeneralConversion) {
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

TEST(JsonNumbers, FloatsReadBackAsDoublesThatNarrowToThem) {
  std::mt19937_64 rng(11);
  for (int i = 0; i < 100000; ++i) {
    const float f = std::bit_cast<float>(std::uint32_t(rng()));
    if (!std::isfinite(f)) continue;
    const std::string text = compact(f);
    const double back = dovra_json::parse(text).as_double();
    ASSERT_TRUE(std::fabs(back) <= FLT_MAX && float(back) == f) << text << " for " << f;
  }
}

// Decimal texts as people and other writers make them, not only shortest
// ones: integer parts of 0 to 20 digits, fractions of 0 to 34, now and
// then an exponent. Each is read alone (the careful reading, near the end
// of the text) and as an element of a long list in UTF-8 and UTF-16 (the
// quick lane), and must give the general conversion's double bit for bit,
// whichever rounding step the reader took.
TEST(JsonNumbers, DecimalTextsReadAsTheGeneralConversion) {
  std::mt19937_64 rng(13);
  const auto digits = [&](std::size_t n) {
    std::string d;
    for (std::size_t i = 0; i < n; ++i) d += char('0' + rng() % 10);
    return d;
  };
  std::vector<std::string> texts;
  for (int i = 0; i < 60000; ++i) {
    const std::size_t whole = rng() % 4 ? 1 + rng() % 4 : rng() % 21, fraction = rng() % 3 ? rng() % 20 : rng() % 35;
    std::string t = rng() % 2 ? "-" : "";
    std::string w = digits(whole);
    if (w.empty() || w[0] == '0') w = whole > 1 && rng() % 2 ? "1" + w.substr(1) : "0";
    t += w;
    if (fraction != 0) t += "." + digits(fraction);
    if (rng() % 8 == 0) t += (rng() % 2 ? "e" : "E") + std::to_string(int(rng() % 700) - 350);
    texts.push_back(t);
  }
  const auto general = [](const std::string& t) {
    return std::bit_cast<std::uint64_t>(fj::detail::string_to_double(t.data(), t.data() + t.size()));
  };
  std::string list = "[";
  for (const std::string& t : texts) {
    ASSERT_EQ(std::bit_cast<std::uint64_t>(dovra_json::parse(t).as_double()), general(t)) << t;
    list += t + ",";
  }
  list += "0]";
  const std::u16string units(list.begin(), list.end());
  for (const Value& read : {dovra_json::parse(list), [&] {
         const char16_t* cur = units.data();
         Value v;
         EXPECT_EQ(dovra_json::parse_value(cur, units.data() + units.size(), 0, v), fj::kParseOk);
         return v;
       }()}) {
    const Array& a = read.as_array();
    ASSERT_EQ(a.size(), texts.size() + 1);
    for (std::size_t i = 0; i < texts.size(); ++i)
      ASSERT_EQ(std::bit_cast<std::uint64_t>(a[i].as_double()), general(texts[i])) << texts[i];
  }
}

}  // namespace
