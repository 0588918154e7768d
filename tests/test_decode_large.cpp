// Large notation: the object reader, "tnsize", and the numeric, logical and
// char classes with their element rules.

#include <cstdio>
#include <cstring>
#include <limits>
#include <random>

#include "decode/driver.hpp"
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


}  // namespace
}  // namespace dovra_test
