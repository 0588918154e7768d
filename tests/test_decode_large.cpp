// Large notation: the object reader, "tnsize", and the numeric, logical and
// char classes with their element rules.

#include <cstdio>
#include <cstring>
#include <limits>
#include <random>

#include "decode/driver.hpp"
#include "decode/large_numeric.hpp"
#include "ixtal/text.hpp"
#include "json/parser.hpp"
#include "json/parser_exception.hpp"

#include "decode_rows.hpp"
#include "host/class_traits.hpp"
#include "ixtal/testing.hpp"

namespace dovra_test {
namespace {

std::string large(const std::string& type, const std::string& size, const std::string& data,
                  const std::string& extra = "") {
  return R"({"tntype":")" + type + R"(","tnsize":)" + size + R"(,"tndata":)" + data + extra + "}";
}
const std::string cx = R"(,"tncomplex":true)";

std::string number(double x) {
  char buf[40];
  std::snprintf(buf, sizeof buf, "%.17g", x);
  return buf;
}

// The integral double next to an exclusive bound, on the inside: bound -+ 1
// where that is a double, else the nearest double (int64, uint64).
double inside(double bound) {
  const double step = bound < 0 ? bound + 1 : bound - 1;
  return step != bound ? step : std::nextafter(bound, 0.0);
}

TEST(DecodeLarge, IntegerClassBounds) {
  using namespace ixtal_json::detail;
  for_each_type(integer_types{}, [](auto tag) {
    using T = typename decltype(tag)::type;
    const std::string name = element_traits<T>::name;
    const double lo = integer_lower<T>, hi = integer_upper<T>;
    expect_decodes({
        {large(name, "[1,3]", "[" + number(inside(lo)) + "," + number(inside(hi)) + ",1e0]"),
         numeric<T>({T(inside(lo)), T(inside(hi)), 1}, {1, 3})},
        {large(name, "[1,1]", "[-0,7.0]", cx), numeric<std::complex<T>>({{0, 7}}, {1, 1})},
    });
    std::vector<failure_row> rows;
    for (const std::string& bad : {number(lo), number(hi), std::string("1.5"), std::string("true"), std::string(R"({"tndata":"NaN"})")})
      rows.push_back({large(name, "[1,1]", "[" + bad + "]"), "DecodeInvalidIntegralElem", {name}});
    expect_failures(rows);
  });
}

TEST(DecodeLarge, FloatingAndLogicalClasses) {
  const float big = std::numeric_limits<float>::max();
  const std::string above = number(std::nextafter(double(big), kInf));  // would round to big, still out
  expect_decodes({
      {large("double", "[1,2]", R"([1e999,{"tndata":"NaN"}])"), doubles({kInf, kNaN}, {1, 2})},
      {large("single", "[1,4]", "[" + number(big) + ",-" + number(big) + R"(,1e-50,{"tndata":"-Inf"}])"),
       numeric<float>({big, -big, 0, -INFINITY}, {1, 4})},
      {large("logical", "[2,1]", "[true,false]", cx), logicals({true, false}, {2, 1})},  // logical has no complex form
  });
  expect_failures({
      {large("double", "[1,2]", R"([1,"Inf"])"), "DecodeInvalidFloatingElem", {std::string("double")}},
      {large("single", "[1,1]", "[" + above + "]"), "DecodeInvalidFloatingElem", {std::string("single")}},
      {large("single", "[1,1]", "[-" + above + "]"), "DecodeInvalidFloatingElem", {std::string("single")}},
      {large("single", "[1,1]", R"([{"tndata":"inf"}])"), "DecodeInvalidFloatingElem", {std::string("single")}},
      {large("logical", "[1,1]", "[1]"), "DecodeInvalidLogicalElem"},
  });
}

// The fill stops when the array is full or the data end; an element error
// met before that point wins.
TEST(DecodeLarge, DataCountAndComplexData) {
  expect_decodes({{large("double", "[2,1]", R"([1,2,{"tndata":"NaN"},-0])", cx),
                   numeric<std::complex<double>>({{1, 2}, {kNaN, -0.0}}, {2, 1})}});
  expect_failures({
      {large("double", "[1,2]", "[1]"), "DecodeMismatchedTNSize"},
      {large("double", "[1,1]", R"([1,"x"])"), "DecodeMismatchedTNSize"},
      {large("double", "[1,3]", R"(["x"])"), "DecodeInvalidFloatingElem", {std::string("double")}},
      {large("double", "[0,5]", "[1]"), "DecodeMismatchedTNSize"},
      {large("double", "[1,1]", "[1]", cx), "DecodeIncompleteComplexData"},
      {large("double", "[1,1]", "[1,2,3]", cx), "DecodeMismatchedTNSize"},  // full after one pair
      {large("double", "[1,2]", "[1,2,3]", cx), "DecodeIncompleteComplexData"},
      {large("double", "[1,1]", "[]", cx), "DecodeMismatchedTNSize"},
      {large("double", "[1,1]", R"(["x"])", cx), "DecodeInvalidFloatingElem", {std::string("double")}},
      {large("double", "[1,1]", R"([1,2,"x"])", cx), "DecodeMismatchedTNSize"},
      {large("double", "[1,1]", "[1,2]", R"(,"tncomplex":"yes")"), "DecodeInvalidPropertyType",
       {std::string("tncomplex"), std::string("boolean")}},
      {large("double", "[1,1]", "1", R"(,"tncomplex":"yes")"), "DecodeInvalidTNDataType", {std::string("double"), std::string("array")}},
  });
}

// Which check speaks first, and what a "tnsize" may hold.
TEST(DecodeLarge, ObjectReaderAndTnsize) {
  expect_decodes({
      {large("double", "[1,1,2,1,1]", "[1,2]"), doubles({1, 2}, {1, 1, 2})},
      {large("double", "[-0,0]", "[]"), doubles({}, {0, 0})},
      {R"({"tndata":"NaN"})", doubles({kNaN}, {1, 1})},
      {R"({"tnsize":[1,1],"tndata":"-Inf"})", doubles({-kInf}, {1, 1})},
  });
  expect_failures({
      {R"({"tntype":"double","tndata":[1]})", "DecodeMissingTNSizeOrTNData"},
      {R"({"tntype":"double","tnsize":[1,1]})", "DecodeMissingTNSizeOrTNData"},
      {R"({"tntype":5,"tnsize":5,"tndata":[]})", "DecodeInvalidPropertyType", {std::string("tnsize"), std::string("array")}},
      {R"({"tntype":5,"tnsize":[1,1],"tndata":[]})", "DecodeInvalidPropertyType", {std::string("tntype"), std::string("string")}},
      {large("Double", "[1]", "[1]"), "DecodeInvalidTNType", {std::string("Double")}},
      {large("double", "[3]", "5"), "DecodeInvalidTNSize"},
      {large("double", "[1,3.5]", "[]"), "DecodeInvalidTNSize"},
      {large("double", R"([1,"3"])", "[]"), "DecodeInvalidTNSize"},
      {large("double", "[-1,1]", "[]"), "DecodeInvalidTNSize"},
      {large("double", "[18446744073709551616,0]", "[]"), "DecodeInvalidTNSize"},
      {large("int8", "[1,1]", "5"), "DecodeInvalidTNDataType", {std::string("int8"), std::string("array")}},
      {R"({"tndata":"nan"})", "DecodeMissingTNTypeOrTNSize"},
      {R"({"tndata":1})", "DecodeMissingTNTypeOrTNSize"},
  });
}

TEST(DecodeLarge, CharData) {
  expect_decodes({
      {large("char", "[2,3]", R"(["adbecf"])"), chars(u"adbecf", {2, 3})},  // rows "abc" and "def"
      {large("char", "[0,0]", R"([""])"), chars(u"", {0, 0})},
      {large("char", "[1,3]", R"(["é😀"])"), chars(u"é😀", {1, 3})},
  });
  expect_failures({
      {large("char", "[1,5]", R"("hello")"), "DecodeInvalidTNDataType", {std::string("char"), std::string("array")}},
      {large("char", "[1,5]", R"(["he","llo"])"), "DecodeInvalidCharArrayTNData"},
      {large("char", "[1,1]", "[5]"), "DecodeInvalidCharArrayTNData"},
      {large("char", "[1,4]", R"(["hello"])"), "DecodeMismatchedTNSize"},
      {large("char", "[1,1]", R"(["😀"])"), "DecodeMismatchedTNSize"},
  });
}

// A size the data cannot back is refused before anything is made, with the
// error the fill would have met.
TEST(DecodeLarge, HugeSizesAllocateNothing) {
  const failure_row rows[] = {
      {large("double", "[100000,100000,100000]", "[1,2,3]"), "DecodeMismatchedTNSize"},
      {large("uint16", "[100000,100000,100000]", "[1,-2,3]"), "DecodeInvalidIntegralElem", {std::string("uint16")}},
      {large("int32", "[100000,100000,1]", "[1,2,3]", cx), "DecodeIncompleteComplexData"},
      {large("double", "[4294967296,4294967296,2]", "[1]"), "DecodeMismatchedTNSize"},  // 2^65 elements
      {large("char", "[100000,100000]", R"(["ab"])"), "DecodeMismatchedTNSize"},
      {large("cell", "[100000,100000]", "[1]"), "DecodeMismatchedTNSize"},
      {large("string", "[100000,100000]", "[null]"), "DecodeMismatchedTNSize"},
      {large("struct", "[4294967296,4294967296,2]", "{}"), "DecodeMismatchedTNSize"},
      {large("logical", "[18446744073709549568,2]", "[true]"), "DecodeMismatchedTNSize"},
      {large("double", "[100000,100000,100000]", "[1,true]"), "DecodeInvalidFloatingElem", {std::string("double")}},
      {large("int8", "[100000,100000,100000]", "[1,1000]"), "DecodeInvalidIntegralElem", {std::string("int8")}},
  };
  for (const failure_row& row : rows) {
    SCOPED_TRACE(row.json);
    auto t = text(row.json);
    ixtal::testing::fail_allocations_after(0);  // any creation would raise "IXTAL:nomem"
    expect_failure([&] { call(ixtal::kJsonDecodeName, 1, {t.get()}); }, "DOVRA:IXTAL:JSON:" + row.key, row.args);
    ixtal::testing::fail_allocations_after(-1);
  }
}


// One class's data are read straight from the text; the tree path is the
// reference. Objects of every class name, sizes right and wrong, data that
// pass or fail each rule, members in every order, doubled or added: wherever
// the reader answers, the tree gives the same array bit for bit, and the
// reader answers for every well-formed numeric or logical object.
TEST(DecodeLarge, ReaderAgreesWithTheTree) {
  static const char* const kTypes[] = {"double", "single", "int8", "uint8", "int16", "uint16", "int32",
                                       "uint32", "int64", "uint64", "logical", "char", "cell", "bogus"};
  static const char* const kNumbers[] = {"0", "-0", "1", "-1", "127", "128", "-129", "255", "256", "65535",
                                         "2.5", "-7e2", "1e400", "4294967295", "9223372036854775807", "3.4e39"};
  static const char* const kSpace[] = {"", "", " ", "\n"};
  std::mt19937 rng(17);
  const auto pick = [&](const auto& list) { return std::string(list[rng() % std::size(list)]); };
  const fl::i18n::codecvt_string_to_ustring to_utf16("UTF-8");
  int taken = 0;
  for (int i = 0; i < 5000; ++i) {
    const std::string type = pick(kTypes);
    // Half the objects hold integers only, as many as the quick reading
    // of integers meets in a row.
    const bool integers = rng() % 2 == 0;
    const std::size_t rows = rng() % 3, cols = rng() % (integers ? 12 : 4);
    const bool logical = type == "logical";
    std::string data = "[";
    for (std::size_t k = 0, n = rows * cols + (rng() % 8 == 0); k < n; ++k) {
      const bool boolean = logical != (rng() % 16 == 0);
      data += (k ? "," + pick(kSpace) : "") +
              (boolean ? (rng() % 2 ? "true" : "false") : integers ? generated_integer(rng) : pick(kNumbers));
    }
    data += "]";
    std::vector<std::string> members = {R"("tntype":")" + type + "\"",
                                        "\"tnsize\":[" + std::to_string(rows) + "," + std::to_string(cols) +
                                            (rng() % 8 == 0 ? ",1.5" : "") + "]",
                                        "\"tndata\":" + data};
    if (rng() % 8 == 0) members.push_back(rng() % 2 ? R"("tncomplex":false)" : R"("tntype":"double")");
    std::shuffle(members.begin(), members.end(), rng);
    std::string text = "{";
    for (std::size_t k = 0; k < members.size(); ++k) text += (k ? "," : "") + pick(kSpace) + members[k] + pick(kSpace);
    text += "}";
    SCOPED_TRACE(text);

    owned_array tree;
    try {
      const auto root = dovra_json::parse(text);
      if (failure_of([&] { tree = ixtal_json::decode_value(root); })) tree.reset();
    } catch (const foundation::json::ParserException&) {
    }
    auto direct = ixtal_json::read_large_numeric(std::u16string_view(to_utf16(text)));
    if (!direct) {
      EXPECT_FALSE(tree && members.size() == 3 && ixGetClassID(tree.get()) != ixCHAR_CLASS &&
                   ixGetClassID(tree.get()) != ixCELL_CLASS)
          << "a plain object left to the tree";
      continue;
    }
    ++taken;
    ASSERT_TRUE(tree) << "read a text the tree refuses";
    const ixArray *a = direct->get(), *b = tree.get();
    const std::size_t bytes = ixGetNumberOfElements(a) * ixGetElementSize(a);  // an empty array has no data
    EXPECT_TRUE(ixGetClassID(a) == ixGetClassID(b) && dims_of(a) == dims_of(b) &&
                (bytes == 0 || std::memcmp(ixGetData(a), ixGetData(b), bytes) == 0))
        << "reader " << shape_of(a) << ", tree " << shape_of(b);
  }
  EXPECT_GT(taken, 1000);
}

// A cell's elements (strings, numbers, booleans and records) are read
// straight from the text too. Cells of the elements the reader takes and
// of those it leaves, sizes right and wrong, members in every order: wherever
// the reader answers, the tree gives the same cell, field order included,
// and the reader answers for every well-formed cell of taken elements. The
// same holds when the runtime runs out of memory part way through.
TEST(DecodeLarge, CellReaderAgreesWithTheTree) {
  LeakCheck leaks;
  static const char16_t* const kSpace[] = {u"", u"", u" ", u"\n"};
  std::mt19937 rng(29);
  const auto pick = [&](const auto& list) { return std::u16string(list[rng() % std::size(list)]); };
  const fl::i18n::codecvt_ustring_to_string to_utf8("UTF-8");
  int taken = 0;
  for (int i = 0; i < 3000; ++i) {
    const bool plain = i % 2 == 0;
    const std::size_t count = rng() % 5, listed = count + (rng() % 8 == 0);
    std::u16string data = u"[";
    for (std::size_t k = 0; k < listed; ++k)
      data += (k ? u"," + pick(kSpace) : u"") + (plain || rng() % 4 ? pick(kReaderTaken) : pick(kReaderLeft));
    data += u"]";
    std::vector<std::u16string> members = {u"\"tntype\":\"cell\"",
                                           u"\"tnsize\":[" + std::u16string(1, char16_t(u'0' + count)) + u",1]",
                                           u"\"tndata\":" + data};
    std::shuffle(members.begin(), members.end(), rng);
    std::u16string text = u"{";
    for (std::size_t k = 0; k < members.size(); ++k) text += (k ? u"," : u"") + pick(kSpace) + members[k];
    text += u"}";
    SCOPED_TRACE(to_utf8(text));
    const std::int64_t fail_after = i % 10 == 9 ? std::int64_t(rng() % 8) : -1;

    owned_array tree;
    try {
      const auto root = dovra_json::parse(to_utf8(text));
      ixtal::testing::fail_allocations_after(fail_after);
      if (failure_of([&] { tree = ixtal_json::decode_value(root); })) tree.reset();
    } catch (const foundation::json::ParserException&) {
    } catch (const std::bad_alloc&) {
    }
    ixtal::testing::fail_allocations_after(fail_after);
    auto direct = ixtal_json::read_large_numeric(std::u16string_view(text));
    ixtal::testing::fail_allocations_after(-1);
    if (!direct) {
      EXPECT_FALSE(plain && listed == count && fail_after < 0) << "a cell of taken elements left to the tree";
      continue;
    }
    ++taken;
    ASSERT_TRUE(tree) << "read a text the tree refuses";
    expect_same_reading(direct->get(), tree.get());
  }
  EXPECT_GT(taken, 1000);
}

}  // namespace
}  // namespace dovra_test
