// Small notation: plain (nested) JSON arrays, and the scalars of the top
// level.

#include <cstring>
#include <random>

#include "decode/driver.hpp"
#include "decode/number_matrix.hpp"
#include "decode_rows.hpp"
#include "ixtal/text.hpp"
#include "json/parser.hpp"
#include "json/parser_exception.hpp"

namespace dovra_test {
namespace {

// Element (i,j,k) is json[i][j][k]; data are given in storage order.
TEST(DecodeSmall, ShapesAndStorageOrder) {
  expect_decodes({
      {"true", logicals({true}, {1, 1})},
      {R"("abc")", chars(u"abc", {1, 3})},
      {R"("")", chars(u"", {0, 0})},
      {R"("é😀")", chars(u"é😀", {1, 3})},  // UTF-16 code units: the surrogate pair counts twice
      {"[]", doubles({}, {0, 1})},
      {"[[]]", doubles({}, {1, 0})},
      {"[[],[]]", doubles({}, {2, 0})},  // an empty result has no data to fill (found by fuzzing)
      {"[1,2,3]", doubles({1, 2, 3}, {3, 1})},
      {"[[1,2,3],[4,5,6]]", doubles({1, 4, 2, 5, 3, 6}, {2, 3})},
      {"[[[1,2],[3,4]],[[5,6],[7,8]]]", doubles({1, 5, 3, 7, 2, 6, 4, 8}, {2, 2, 2})},
      {R"([1,{"tndata":"NaN"},{"tndata":"-Inf"},-0])", doubles({1, kNaN, -kInf, -0.0}, {4, 1})},
      {R"([{"tndata":"Inf"}])", doubles({kInf}, {1, 1})},
      {"[[true],[false]]", logicals({true, false}, {2, 1})},
      // A single outer element skips the shape check; the fill reads only
      // as far as the first elements promise.
      {"[[[1,2],[3,4,5]]]", doubles({1, 3, 2, 4}, {1, 2, 2})},
  });
}

TEST(DecodeSmall, ElementErrors) {
  expect_failures({
      {"null", "DecodeNullNotSupported"},
      // The first element decides the class...
      {R"(["NaN",1])", "DecodeInvalidArrayElemType"},
      {"[null,1]", "DecodeInvalidArrayElemType"},
      {R"([{"tndata":"nan"}])", "DecodeInvalidArrayElemType"},
      // ...and any other element that does not fit it is a mix of kinds.
      {R"([1,"NaN"])", "DecodeArrayInconsistentTypes", {std::string("double"), std::string("string")}},
      {"[1,null]", "DecodeArrayInconsistentTypes", {std::string("double"), std::string("undefined")}},
      {"[1,true]", "DecodeArrayInconsistentTypes", {std::string("double"), std::string("logical")}},
      {"[true,1]", "DecodeArrayInconsistentTypes", {std::string("logical"), std::string("double")}},
      {R"([1,{"tndata":"nan"}])", "DecodeArrayInconsistentTypes", {std::string("double"), std::string("object")}},
      {R"([true,{"tndata":"NaN"}])", "DecodeArrayInconsistentTypes", {std::string("logical"), std::string("object")}},
  });
}

TEST(DecodeSmall, ShapeErrorsAndTheirPrecedence) {
  expect_failures({
      {"[[1,2],[3]]", "DecodeArrayInconsistentSizes"},
      {"[[1,2],3]", "DecodeArrayInconsistentDepths"},
      {"[1,[2]]", "DecodeArrayInconsistentDepths"},
      // The shape check runs before any element is converted...
      {"[[1,true],[2]]", "DecodeArrayInconsistentSizes"},
      {R"([[1,"x"],[2,3],4])", "DecodeArrayInconsistentDepths"},
      // ...and elements are converted in storage order: json[1][0] before json[0][1].
      {R"([[1,true],["x",2]])", "DecodeArrayInconsistentTypes", {std::string("double"), std::string("string")}},
      // A single outer element: no shape check, never a read past a short
      // array, and the fault a storage-order fill meets first wins.
      {"[[[1,2],[3]]]", "DecodeArrayInconsistentSizes"},
      {"[[[1,2],3]]", "DecodeArrayInconsistentDepths"},
      {"[[1,[2]]]", "DecodeArrayInconsistentTypes", {std::string("double"), std::string("undefined")}},
      {"[[[1,true],[3]]]", "DecodeArrayInconsistentTypes", {std::string("double"), std::string("logical")}},         // (0,0,1) < (0,1,1)
      {"[[[1,2],[3],[true,5]]]", "DecodeArrayInconsistentTypes", {std::string("double"), std::string("logical")}},  // (0,2,0) < (0,1,1)
  });
}


// Rows of numbers are read straight into their array; everything else goes
// through the tree. Texts near that line, regular or spoilt in one place,
// must give the reader's array only where the tree gives the same one, bit
// for bit, and the reader must take every regular one.
class NumberMatrixTexts {
 public:
  // integers: every number a generated integer, mostly for the quick
  // reading of integers (which stops at the first other number).
  explicit NumberMatrixTexts(unsigned seed, bool integers = false) : rng_(seed), integers_(integers) {}

  // A regular matrix of 2 to 4 levels, sizes 1 to 6, with white space here
  // and there.
  std::string regular() {
    const std::size_t levels = 2 + rng_() % 3;
    std::vector<std::size_t> sizes(levels);
    for (auto& n : sizes) n = 1 + rng_() % 6;
    return nested(sizes, 0);
  }

  // One local change: an element dropped or added, a number swapped for
  // another kind, a level added, the text cut, a bracket inside a string.
  std::string spoilt(std::string text) {
    static const char* const kOthers[] = {"true", "null", "\"]]\"", R"({"tndata":"NaN"})", "[]", "[1]", "1 2", "-", "01.5"};
    std::size_t at = rng_() % text.size();
    switch (rng_() % 5) {
      case 0: {  // a number becomes something else
        while (at < text.size() && !std::isdigit(static_cast<unsigned char>(text[at]))) ++at;
        std::size_t end = at;
        while (end < text.size() && (std::isdigit(static_cast<unsigned char>(text[end])) || std::strchr(".eE+-", text[end]))) ++end;
        if (at < text.size()) text.replace(at, end - at, kOthers[rng_() % std::size(kOthers)]);
        break;
      }
      case 1: text.insert(at, ",7"); break;
      case 2: text.insert(at, "["); break;
      case 3: text.resize(at); break;
      case 4: text.insert(at, " "); text += rng_() % 2 ? " " : "]"; break;
    }
    return text;
  }

 private:
  std::string space() {
    static const char* const kSpace[] = {"", "", "", " ", "\n  ", "\t"};
    return kSpace[rng_() % std::size(kSpace)];
  }

  std::string number() {
    if (integers_) return generated_integer(rng_);
    static const char* const kNumbers[] = {"0", "-0", "7", "-12", "0123", "3.25", "-1.5e-7", "6.02E23",
                                           "12345678901234567890123", "1e400", "-1e-400", "0.1", "4.9e-324"};
    return kNumbers[rng_() % std::size(kNumbers)];
  }

  std::string nested(const std::vector<std::size_t>& sizes, std::size_t level) {
    std::string s = "[" + space();
    for (std::size_t i = 0; i < sizes[level]; ++i) {
      if (i) s += space() + "," + space();
      s += level + 1 == sizes.size() ? number() : nested(sizes, level + 1);
    }
    return s + space() + "]";
  }

  std::mt19937 rng_;
  bool integers_;
};

// The tree's array for text, or null where the tree path refuses it.
owned_array through_the_tree(const std::string& text) {
  owned_array a;
  try {
    const auto tree = dovra_json::parse(text);
    if (failure_of([&] { a = ixtal_json::decode_value(tree); })) a.reset();
  } catch (const foundation::json::ParserException&) {
  }
  return a;
}

bool same_bits(const ixArray* a, const ixArray* b) {
  return ixGetClassID(a) == ixGetClassID(b) && dims_of(a) == dims_of(b) &&
         std::memcmp(ixGetData(a), ixGetData(b), ixGetNumberOfElements(a) * sizeof(double)) == 0;
}

TEST(DecodeSmall, NumberMatrixReaderAgreesWithTheTree) {
  LeakCheck leaks;
  NumberMatrixTexts mixed(11), integers(12, true);
  const fl::i18n::codecvt_string_to_ustring to_utf16("UTF-8");
  int taken = 0, refused = 0;
  for (int i = 0; i < 6000; ++i) {
    NumberMatrixTexts& texts = i % 2 ? integers : mixed;
    const bool regular = i % 3 == 0;
    const std::string text = regular ? texts.regular() : texts.spoilt(texts.regular());
    SCOPED_TRACE(text);
    const owned_array tree = through_the_tree(text);
    const std::u16string wide = to_utf16(text);
    std::optional<owned_array> readings[] = {ixtal_json::read_number_matrix(std::string_view(text)),
                                             ixtal_json::read_number_matrix(std::u16string_view(wide))};
    for (const auto& direct : readings) {
      if (!direct) {
        EXPECT_FALSE(regular) << "a regular matrix left to the tree";
        ++refused;
        continue;
      }
      ++taken;
      ASSERT_TRUE(tree) << "read a text the tree refuses";
      EXPECT_TRUE(same_bits(direct->get(), tree.get()))
          << "reader " << shape_of(direct->get()) << ", tree " << shape_of(tree.get());
    }
  }
  EXPECT_GT(taken, 4000);
  EXPECT_GT(refused, 2000);

  // Rows enough that the brackets are counted in many blocks.
  std::string big = "[";
  for (int row = 0; row < 3000; ++row) big += std::string(row ? "," : "") + "[1,-2.5,3e-7]";
  big += "]";
  const auto direct = ixtal_json::read_number_matrix(std::u16string_view(to_utf16(big)));
  ASSERT_TRUE(direct);
  EXPECT_TRUE(same_bits(direct->get(), through_the_tree(big).get()));
}

}  // namespace
}  // namespace dovra_test
