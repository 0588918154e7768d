// The two ways of decoding give one answer. Generated documents of every
// shape (small notation, large notation of every class with its keys in any
// order, special floats, plain records at depth, cells, structures,
// responses), valid or spoilt in one place: wherever the reader from the
// text answers, the general path gives the same array (value, class,
// shape, field order, scope), and the reader answers for every valid
// document the generator makes. Running out of memory part way changes
// nothing of that, and leaves nothing behind.

#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <random>
#include <string>

#include "decode/driver.hpp"
#include "decode/response.hpp"
#include "decode/text_reader.hpp"
#include "decode_rows.hpp"
#include "foundation/json/support.hpp"
#include "ixtal/json_host.hpp"
#include "ixtal/testing.hpp"
#include "json/parse_step.hpp"

namespace dovra_test {
namespace {

class Documents {
 public:
  explicit Documents(unsigned seed) : rng_(seed) {}

  std::string value(int depth) {
    switch (depth > 3 ? pick(4) : pick(9)) {
      case 0: return number();
      case 1: return string();
      case 2: return pick(2) ? "true" : "false";
      case 3: return special();
      case 4: case 5: return small();
      case 6: return record(depth + 1);
      default: return large(depth + 1);
    }
  }

  std::string response() {
    std::string list;
    const bool records = pick(3) == 0;  // a body of records, as most responses are
    for (int n = pick(6), k = 0; k < n; ++k) list += (k ? "," + space() : "") + (records ? record(2) : value(1));
    switch (pick(8)) {
      case 0: return "[" + list + "]";
      case 1: return R"({"lhs":3})";
      case 2: return R"({"other":[1]})";
      case 3: return R"({"x":{"lhs":[1]},"lhs":[)" + list + R"(],"lhs":7})";
      default: return "{" + space() + R"("lhs")" + space() + ":" + space() + "[" + list + "]" + space() + "}";
    }
  }

  // One fault: a token put in another's place, a unit dropped or doubled.
  std::string spoil(std::string s) {
    static const char* const kFaults[] = {"null", "\"x\"", "true", "1.5", "[]", "{}", "-1", "[1,2]", "300"};
    if (s.empty()) return s;
    const std::size_t at = rng_() % s.size();
    switch (pick(4)) {
      case 0: s.erase(at, 1); break;
      case 1: s.insert(at, 1, s[at]); break;
      default: {
        // The number or word at the first such place from at.
        std::size_t b = s.find_first_of("-0123456789tfn", at);
        if (b == std::string::npos) return s + "x";
        std::size_t e = s.find_first_of(",]}", b);
        s.replace(b, (e == std::string::npos ? s.size() : e) - b, kFaults[pick(std::size(kFaults))]);
      }
    }
    return s;
  }

 private:
  int pick(std::size_t n) { return int(rng_() % n); }
  std::string space() { return pick(4) ? "" : pick(2) ? " " : "\n\t "; }

  std::string number() {
    static const char* const kNumbers[] = {"0", "-0", "7", "-12", "3.25", "1e3", "-2.5E-3", "0123", "1e400",
                                           "4294967296", "9007199254740993", "0.1", "255", "65535", "127", "-128"};
    return kNumbers[pick(std::size(kNumbers))];
  }

  // Units \x02 and \x03 become a high and a low surrogate in the host text.
  std::string string() {
    static const char* const kStrings[] = {
        R"("")", R"("plain")", R"("esc \" \\ \/ \b\f\n\r\t")", R"("\u00e9\u0000x")", R"("\ud83d\ude00")",
        "\"caf\xc3\xa9 \xf0\x9f\x98\x80\"", R"("\ud800")", R"("\udc00x")", R"("\ud800\u0041")",
        "\"raw \x02\x03 pair\"", "\"lone \x02 high\"", "\"lone \x03 low\"", "\"\x02\"", R"("\ud83d\ude00\x02")",
        R"("NaN")", R"("a]b")"};
    return kStrings[pick(std::size(kStrings))];
  }

  std::string special() {
    static const char* const kNames[] = {"NaN", "Inf", "-Inf"};
    const std::string data = R"("tndata")" + space() + ":" + space() + "\"" + kNames[pick(3)] + "\"";
    switch (pick(4)) {
      case 0: return "{" + data + R"(,"x":[1,{"a":2}])" + "}";
      case 1: return R"({"tnsize":[1,1],)" + data + "}";
      default: return "{" + data + "}";
    }
  }

  // Nested arrays of one size per level, of numbers, booleans or special
  // floats; sometimes empty at some level.
  std::string small() {
    const int levels = 1 + pick(3);
    std::vector<int> sizes;
    for (int l = 0; l < levels; ++l) sizes.push_back(pick(6) ? 1 + pick(3) : 0);
    const int kind = pick(3);
    return small_level(sizes, 0, kind);
  }
  std::string small_level(const std::vector<int>& sizes, std::size_t l, int kind) {
    std::string s = "[";
    for (int k = 0; k < sizes[l]; ++k) {
      s += k ? "," + space() : "";
      if (l + 1 < sizes.size()) s += small_level(sizes, l + 1, kind);
      else if (kind == 0) s += pick(2) ? "true" : "false";
      else s += kind == 2 && pick(3) == 0 ? special() : number();
    }
    return s + "]";
  }

  // Some names are spelt with escapes, one of them as another name is
  // spelt plain: \u0069d is id. Some are the start of another, and some
  // long ones differ only past their first sixteen bytes.
  std::string name() {
    static const char* const kNames[] = {"id", "name", "score", "ok", "B", "a", "_", "", "tnsize", "tnclass",
                                         "tncomplex", "a\\u0062", "\xc3\xa9t\xc3\xa9", "pos", "id", "\\u0069d",
                                         "sc\\u006fre", "\\u00e9t\\u00e9", "tn\\u0073ize", "ok\\\"", "names",
                                         "field_number_one", "field_number_two", "field_number_one_more"};
    return "\"" + std::string(kNames[pick(std::size(kNames))]) + "\"";
  }

  // Records mostly give the names of the one before, in its order; now and
  // then one fewer, one more, one other, or one repeated.
  std::string record(int depth) {
    std::vector<std::string> names = last_names_;
    if (names.empty() || pick(3) == 0) {
      names.clear();
      for (int n = pick(6), k = 0; k < n; ++k) names.push_back(name());
    } else {
      switch (pick(8)) {
        case 0: names.pop_back(); break;
        case 1: names.push_back(name()); break;
        case 2: names[std::size_t(pick(names.size()))] = name(); break;
        case 3: names.push_back(names[std::size_t(pick(names.size()))]); break;
        default: break;
      }
    }
    std::string s = "{";
    for (std::size_t k = 0; k < names.size(); ++k)
      s += (k ? "," : "") + space() + names[k] + space() + ":" + space() + value(depth);
    last_names_ = names;
    return s + space() + "}";
  }

  std::string large(int depth) {
    static const char* const kNumeric[] = {"double", "single", "int8", "int16", "int32", "int64",
                                           "uint8",  "uint16", "uint32", "uint64"};
    const int rows = pick(3), cols = pick(3), count = rows * cols;
    std::string type, data;
    bool complex = false;
    const auto list = [&](int n, auto item) {
      std::string l = "[";
      for (int k = 0; k < n; ++k) l += (k ? "," : "") + item();
      return l + "]";
    };
    switch (pick(7)) {
      case 0: case 1:
        type = kNumeric[pick(std::size(kNumeric))];
        complex = pick(3) == 0;
        data = list(complex ? 2 * count : count, [&] { return type[0] == 'd' && pick(4) == 0 ? special() : number(); });
        break;
      case 2: type = "logical"; data = list(count, [&] { return std::string(pick(2) ? "true" : "false"); }); break;
      case 3: type = "char"; data = "[\"" + std::string(std::size_t(count), 'c') + "\"]"; break;
      case 4: type = "cell"; data = list(count, [&] { return value(depth); }); break;
      case 5: {
        type = "struct";
        data = "{";
        for (int n = pick(3), k = 0; k < n; ++k)
          data += (k ? "," : "") + name() + ":" + list(count, [&] { return value(depth); });
        data += "}";
        break;
      }
      default: type = "string"; data = list(count, [&] { return pick(4) ? string() : std::string("null"); });
    }
    std::vector<std::string> members = {R"("tntype":")" + type + "\"",
                                        R"("tnsize":[)" + std::to_string(rows) + "," + std::to_string(cols) + "]",
                                        R"("tndata":)" + data};
    if (complex) members.push_back(R"("tncomplex":true)");
    if (pick(4) == 0) members.push_back(R"("tnclass":"x")");
    if (pick(6) == 0) members.push_back(R"("tntype":"int8")");  // a repeated name: the first counts
    std::shuffle(members.begin(), members.begin() + std::ptrdiff_t(complex ? 4 : 3), rng_);
    std::string s = "{";
    for (std::size_t k = 0; k < members.size(); ++k) s += (k ? "," : "") + space() + members[k];
    return s + "}";
  }

  std::mt19937 rng_;
  std::vector<std::string> last_names_;
};

std::u16string host_units(const std::string& text) {
  const matrix::owned_array row = ixtal::json_host::text(text);
  std::u16string u(static_cast<const char16_t*>(ixGetData(row.get())), std::size_t(ixGetNumberOfElements(row.get())));
  for (char16_t& c : u) c = c == 2 ? 0xD800 : c == 3 ? 0xDC00 : c;
  return u;
}

// The general path's answer, or null where it raises.
owned_array general_document(std::u16string_view text) {
  owned_array out;
  if (failure_of([&] { out = ixtal_json::decode_value(dovra_json::parse_text(text)); })) out.reset();
  return out;
}
owned_array general_response(std::u16string_view text) {
  owned_array out;
  ixArray* cell = nullptr;
  const bool failed = bool(failure_of([&] {
    foundation::json::Value root = dovra_json::parse_text(text);
    ixtal_json::decode_response(root, cell);
  }));
  out.reset(cell);  // a failing element leaves a partly filled cell
  if (failed) out.reset();
  return out;
}

void expect_same_scopes(const ixArray* direct, const ixArray* general) {
  if (ixGetClassID(direct) != ixCELL_CLASS) return;
  for (ixSize k = 0; k < ixGetNumberOfElements(direct); ++k)
    EXPECT_EQ(ixGetArrayScope(ixGetCell(direct, k)), ixGetArrayScope(ixGetCell(general, k)));
}

TEST(DecodePaths, TheReaderGivesWhatTheGeneralPathGives) {
  LeakCheck leaks;
  Documents docs(20261123);
  const struct {
    const char* what;
    std::optional<owned_array> (*read)(std::u16string_view);
    owned_array (*general)(std::u16string_view);
  } kPaths[] = {{"document", ixtal_json::read_document, general_document},
                {"response", ixtal_json::read_response, general_response}};
  for (const auto& path : kPaths) {
    int taken = 0, valid = 0, left_valid = 0;
    for (int i = 0; i < 6000; ++i) {
      const bool spoilt = i % 3 == 2;
      std::string text = path.read == ixtal_json::read_document ? docs.value(0) : docs.response();
      if (spoilt) text = docs.spoil(text);
      SCOPED_TRACE(std::string(path.what) + ": " + text);
      const std::u16string units = host_units(text);
      const owned_array general = path.general(units);
      // Now and then the runtime runs out of memory part way through.
      const std::int64_t fail_after = i % 17 == 16 ? std::int64_t(i % 9) : -1;
      ixtal::testing::fail_allocations_after(fail_after);
      std::optional<owned_array> direct = path.read(units);
      ixtal::testing::fail_allocations_after(-1);
      if (general && !spoilt && fail_after < 0) ++valid;
      if (!direct) {
        if (general && !spoilt && fail_after < 0) {
          ++left_valid;
          ADD_FAILURE() << "a valid document left to the general path";
        }
        continue;
      }
      ++taken;
      ASSERT_TRUE(general) << "read a text the general path refuses";
      expect_same_reading(direct->get(), general.get());
      if (path.read == ixtal_json::read_response) expect_same_scopes(direct->get(), general.get());
    }
    EXPECT_EQ(left_valid, 0) << path.what;
    EXPECT_GT(valid, 3000) << path.what;
    EXPECT_GT(taken, valid) << path.what << ": spoilt documents that are still valid are taken too";
  }
}

// Records on a layout whose names stand too near the end of the text for a
// block to be read there: what the text spells still decides.
TEST(DecodePaths, RecordsAtTheEndOfTheText) {
  LeakCheck leaks;
  const struct {
    const char* text;
    bool response;
  } kCases[] = {
      {R"({"x":{"a":1},"y":{"a":2}})", false},         {R"({"x":{"a":1},"y":{"b":2}})", false},
      {R"({"x":{"a":1},"y":{"":2}})", false},          {R"({"x":{"":1},"y":{"a":2}})", false},
      {R"({"x":{"a":1,"b":2},"y":{"a":3,"c":4}})", false}, {R"({"x":{"a":1},"y":{"a":2,"b":3}})", false},
      {R"({"tntype":"cell","tnsize":[2,1],"tndata":[{"a":1},{"b":2}]})", false},
      {R"({"lhs":[{"a":1},{"b":2}]})", true},          {R"({"lhs":[{"":1},{"":2}]})", true},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    const std::u16string units = host_units(c.text);
    const owned_array general = c.response ? general_response(units) : general_document(units);
    const std::optional<owned_array> direct =
        c.response ? ixtal_json::read_response(units) : ixtal_json::read_document(units);
    ASSERT_TRUE(general);
    ASSERT_TRUE(direct.has_value()) << "the reader takes it";
    expect_same_reading(direct->get(), general.get());
  }
}

// Numbers where the quick reading of matrices and of large data changes its
// way, read by both paths as the elements of a matrix long enough that most
// are read far from the end of the text, and as int32 and double data
// before and after their class: the same array from both, and the doubles
// those of the general conversion.
TEST(DecodePaths, NumbersAtTheEdgesOfTheQuickReading) {
  LeakCheck leaks;
  const std::string rows[] = {
      "0", "-0", "-0.0", "7", "-7", "0123", "1.5E3", "1e+2", "123456789012345", "-1234567890123456",
      "1234567890123456789", "12345678901234567890", "1234567890.123456789", "1234567890.1234567891",
      "9007199254740991", "9007199254740992", "9007199254740993", "-9007199254740993", "9007199254740993.0",
      "0.6494516858128923", "-0.0029805269329934497", "0.30000000000000004", "0.1234567890123456789012345678901",
      "0.12345678901234567890123456789012", "0.0000000000000000000001", "0.00000000000000000000001", "1e22",
      "1e23", "1e-22", "1e-23", "4.9406564584124654e-324", "2.2250738585072009e-308", "1.7976931348623157e308",
      "2147483647", "-2147483648", "2147483648", "-2147483649", "2147483647.0", "-2147483648.5", "1e9",
  };
  const auto repeated = [](const std::string& x, int n) {
    std::string list = "[";
    for (int k = 0; k < n; ++k) list += (k ? "," : "") + x;
    return list + "]";
  };
  for (const std::string& x : rows) {
    SCOPED_TRACE(x);
    const double expected = foundation::json::detail::string_to_double(x.data(), x.data() + x.size());
    std::string matrix = "[";
    for (int r = 0; r < 6; ++r) matrix += (r ? "," : "") + repeated(x, 7);
    matrix += "]";
    const std::string data = repeated(x, 9);
    const std::string documents[] = {
        matrix,
        R"({"tndata":)" + data + R"(,"tnsize":[1,9],"tntype":"int32"})",
        R"({"tntype":"int32","tnsize":[1,9],"tndata":)" + data + "}",
        R"({"tndata":)" + data + R"(,"tnsize":[9,1],"tntype":"double"})",
        R"({"tntype":"double","tnsize":[9,1],"tndata":)" + data + "}",
    };
    for (const std::string& text : documents) {
      SCOPED_TRACE(text);
      const std::u16string units = host_units(text);
      const owned_array general = general_document(units);
      const std::optional<owned_array> direct = ixtal_json::read_document(units);
      ASSERT_EQ(direct.has_value(), bool(general)) << "both read it, or neither";
      if (!general) continue;
      expect_same_reading(direct->get(), general.get());
      if (ixGetClassID(general.get()) != ixDOUBLE_CLASS) continue;
      const double* d = static_cast<const double*>(ixGetData(direct->get()));
      for (ixSize k = 0; k < ixGetNumberOfElements(direct->get()); ++k)
        ASSERT_EQ(std::bit_cast<std::uint64_t>(d[k]), std::bit_cast<std::uint64_t>(expected)) << "element " << k;
    }
  }
}

// Long lists of numbers of every kind and length in random order, read as
// a matrix and as int32 and double data: lists are read a block of units at
// a time, from the commas found in it, so numbers start, end and straddle
// at every place of a block, and the text ends at every distance from the
// last. Now and then spaces or a newline about a comma, or one fault in
// place of a number. Both paths give the same array, or neither answers;
// doubles bit for bit.
TEST(DecodePaths, ListsOfNumbersReadFromTheirCommas) {
  LeakCheck leaks;
  std::mt19937 rng(20261124);
  static const char* const kOthers[] = {
      "0", "-0", "-0.0", "0.5", "-0.0029805269329934497", "1e5", "-2.5E-3", "1.5e+300", "0123", "-00",
      "1234567890123456", "-12345678901234567890", "0.1234567890123456789012345678901", "7",
      "0.12345678901234567890123456789012", "4.9406564584124654e-324", "123456789012345.5", "-1234567.125"};
  static const char* const kFaults[] = {"1.5.3", "01.5", "1e", "-", "", "1-2", "+1", "1.", ".5",
                                        "--1", "1e+", "0x1", "1 2", "Infinity", "1.e3", "-.5", "1,"};
  const auto pick = [&](std::size_t n) { return std::size_t(rng() % n); };
  const auto number = [&](bool int32) -> std::string {
    if (int32) return pick(64) ? std::to_string(std::int32_t(rng()) >> pick(32)) : generated_integer(rng);
    switch (pick(4)) {
      case 0: return generated_integer(rng);
      case 1: return kOthers[pick(std::size(kOthers))];
      default: {
        char buf[32];
        const double d = std::normal_distribution<double>(0, pick(3) ? 1 : 1e6)(rng);
        return std::string(buf, std::to_chars(buf, buf + sizeof buf, d).ptr);
      }
    }
  };
  const auto comma = [&]() -> std::string {
    static const char* const kCommas[] = {" ,", ", ", ",\n  ", "\t,\r\n"};
    return pick(12) ? "," : kCommas[pick(std::size(kCommas))];
  };
  int read = 0;
  for (int doc = 0; doc < 900; ++doc) {
    const std::size_t rows = 1 + pick(4), cols = 1 + pick(48);
    std::vector<std::string> numbers(rows * cols);
    for (std::string& x : numbers) x = number(doc % 3 == 0);
    if (doc % 4 == 3) numbers[pick(numbers.size())] = kFaults[pick(std::size(kFaults))];
    const auto list = [&](std::size_t from, std::size_t n) {
      std::string l = "[";
      for (std::size_t k = 0; k < n; ++k) l += (k ? comma() : "") + numbers[from + k];
      return l + "]";
    };
    // Now and then a row one to three numbers longer than the others, which
    // the matrix reading must stop at rather than write past.
    const std::size_t longer = doc % 5 == 4 ? pick(rows) : rows;
    std::string matrix = "[";
    for (std::size_t r = 0; r < rows; ++r) {
      std::string row = list(r * cols, cols);
      for (std::size_t extra = r == longer ? 1 + pick(3) : 0; extra != 0; --extra) row.insert(1, number(false) + ",");
      matrix += (r ? comma() : "") + row;
    }
    matrix += "]";
    const std::string data = list(0, numbers.size()), size = std::to_string(numbers.size());
    const std::string documents[] = {
        matrix,
        R"({"tntype":"int32","tnsize":[1,)" + size + R"(],"tndata":)" + data + "}",
        R"({"tntype":"double","tnsize":[)" + size + R"(,1],"tndata":)" + data + "}",
    };
    for (const std::string& text : documents) {
      SCOPED_TRACE(text);
      const std::u16string units = host_units(text);
      const owned_array general = general_document(units);
      const std::optional<owned_array> direct = ixtal_json::read_document(units);
      if (longer != rows && text == matrix) {
        ASSERT_FALSE(direct.has_value() && !general) << "read a text the general path refuses";
        if (!direct) continue;
      }
      ASSERT_EQ(direct.has_value(), bool(general)) << "both read it, or neither";
      if (!general) continue;
      ++read;
      expect_same_reading(direct->get(), general.get());
      if (ixGetClassID(general.get()) != ixDOUBLE_CLASS) continue;
      const auto* d = static_cast<const std::uint64_t*>(ixGetData(direct->get()));
      const auto* g = static_cast<const std::uint64_t*>(ixGetData(general.get()));
      for (ixSize k = 0; k < ixGetNumberOfElements(general.get()); ++k) ASSERT_EQ(d[k], g[k]) << "element " << k;
    }
  }
  EXPECT_GT(read, 1300);
}

}  // namespace
}  // namespace dovra_test
