// The embedded host runtime: array creation and its failures, comparison,
// text conversion, and the package registry.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <random>
#include <thread>

#include "ixtal/memory.hpp"
#include "ixtal/errors.hpp"
#include "ixtal/host.hpp"
#include "ixtal/matrix.hpp"
#include "ixtal/packages.hpp"
#include "ixtal/string_array.hpp"
#include "ixtal/testing.hpp"
#include "ixtal/text.hpp"
#include "support/host.hpp"

namespace {

using matrix::owned_array;
using dovra_test::dims_of;

struct ClassRow {
  std::function<ixArray*()> make;
  ixClassID id;
  const char* name;
  std::vector<ixSize> dims;
};

TEST(Runtime, CreatesEveryClass) {
  const ixSize d234[3] = {2, 3, 4};
  const ixSize d2311[4] = {2, 3, 1, 1};
  const std::vector<ClassRow> rows = {
      {[] { return ixCreateCellMatrix(2, 3); }, ixCELL_CLASS, "cell", {2, 3}},
      {[] { return ixCreateStructMatrix(1, 1, 0, nullptr); }, ixSTRUCT_CLASS, "struct", {1, 1}},
      {[] { return ixCreateLogicalScalar(true); }, ixLOGICAL_CLASS, "logical", {1, 1}},
      {[] { return ixCreateString("h\xC3\xA9llo"); }, ixCHAR_CLASS, "char", {1, 5}},
      {[] { return ixCreateString(""); }, ixCHAR_CLASS, "char", {0, 0}},
      {[&] { return ixCreateNumericArray(3, d234, ixDOUBLE_CLASS, ixCOMPLEX); }, ixDOUBLE_CLASS, "double", {2, 3, 4}},
      {[&] { return ixCreateNumericArray(4, d2311, ixSINGLE_CLASS, ixREAL); }, ixSINGLE_CLASS, "single", {2, 3}},
      {[] { return ixCreateNumericMatrix(1, 0, ixINT8_CLASS, ixREAL); }, ixINT8_CLASS, "int8", {1, 0}},
      {[] { return ixCreateNumericMatrix(1, 1, ixUINT8_CLASS, ixREAL); }, ixUINT8_CLASS, "uint8", {1, 1}},
      {[] { return ixCreateNumericMatrix(1, 1, ixINT16_CLASS, ixREAL); }, ixINT16_CLASS, "int16", {1, 1}},
      {[] { return ixCreateNumericMatrix(1, 1, ixUINT16_CLASS, ixREAL); }, ixUINT16_CLASS, "uint16", {1, 1}},
      {[] { return ixCreateNumericMatrix(1, 1, ixINT32_CLASS, ixREAL); }, ixINT32_CLASS, "int32", {1, 1}},
      {[] { return ixCreateNumericMatrix(1, 1, ixUINT32_CLASS, ixREAL); }, ixUINT32_CLASS, "uint32", {1, 1}},
      {[] { return ixCreateNumericMatrix(1, 1, ixINT64_CLASS, ixCOMPLEX); }, ixINT64_CLASS, "int64", {1, 1}},
      {[] { return ixCreateNumericMatrix(1, 1, ixUINT64_CLASS, ixREAL); }, ixUINT64_CLASS, "uint64", {1, 1}},
      {[] { return ixCreateFunctionHandle("sin"); }, ixFUNCTION_CLASS, "function_handle", {1, 1}},
      {[] { return ixCreateOpaque("java.lang.Object"); }, ixOPAQUE_CLASS, "java.lang.Object", {1, 1}},
      {[] { return ixCreateClassObject("containers.Map"); }, ixOBJECT_CLASS, "containers.Map", {1, 1}},
      {[&] { return ixCreateStringArray(3, d234); }, ixOBJECT_CLASS, "string", {2, 3, 4}},
      {[] { return ixCreateSparse(3, 3, ixDOUBLE_CLASS, ixREAL); }, ixDOUBLE_CLASS, "double", {3, 3}},
      {[] { return ixtal::testing::make_array_with_class_id(5); }, ixVOID_CLASS, "void", {1, 1}},
      {[] { return ixtal::testing::make_array_with_class_id(42); }, ixClassID(42), "unknown", {1, 1}},
  };
  dovra_test::LeakCheck leaks;
  for (const auto& row : rows) {
    owned_array a(row.make());
    SCOPED_TRACE(row.name);
    EXPECT_EQ(ixGetClassID(a.get()), row.id);
    EXPECT_STREQ(ixGetClassName(a.get()), row.name);
    EXPECT_EQ(dims_of(a.get()), row.dims);
  }
}

TEST(Runtime, ImpossibleSizesRaiseOutOfMemory) {
  dovra_test::LeakCheck leaks;
  const ixSize overflow[3] = {ixSize(1) << 32, ixSize(1) << 32, 2};  // product is 2^65
  const ixSize huge[3] = {100000, 100000, 100000};                    // 8 PB of doubles
  EXPECT_THROW(ixCreateNumericArray(3, overflow, ixDOUBLE_CLASS, ixREAL), foundation::core::except::bad_alloc);
  EXPECT_THROW(ixCreateNumericArray(3, huge, ixDOUBLE_CLASS, ixREAL), foundation::core::except::bad_alloc);
  EXPECT_THROW(ixCreateCellArray(3, huge), foundation::core::except::bad_alloc);
  EXPECT_THROW(ixCreateStringArray(3, overflow), foundation::core::except::bad_alloc);
  EXPECT_THROW(ixCreateDoubleMatrix(ixSize(1) << 32, ixSize(1) << 32, ixREAL), foundation::core::except::bad_alloc);
  EXPECT_THROW(ixCreateStructMatrix(1, ~ixSize(0), 0, nullptr), foundation::core::except::bad_alloc);
  // A zero dimension makes any product empty, however large the others.
  const ixSize empty[3] = {0, ~ixSize(0), ~ixSize(0)};
  owned_array e(ixCreateNumericArray(3, empty, ixDOUBLE_CLASS, ixREAL));
  EXPECT_EQ(ixGetNumberOfElements(e.get()), 0u);
}

TEST(Runtime, FailureHookFailsTheNthCreationAndResets) {
  dovra_test::LeakCheck leaks;
  ixtal::testing::fail_allocations_after(2);
  owned_array a(ixCreateDoubleScalar(1));
  owned_array b(ixCreateDoubleScalar(2));
  EXPECT_THROW(ixCreateDoubleScalar(3), foundation::core::except::bad_alloc);
  EXPECT_THROW(ixCreateCellMatrix(1, 1), foundation::core::except::bad_alloc);
  ixtal::testing::fail_allocations_after(-1);
  owned_array c(ixCreateDoubleScalar(4));
}

// A large block released is handed out again for a request of about its
// size, so a host converting one document after another reuses pages the
// kernel has already mapped and zeroed: on the thread that released it, or
// on a later one once that thread has ended. A zeroed request never sees
// what the block held before.
TEST(Runtime, LargeBlocksAreReused) {
  constexpr std::size_t kKiB = std::size_t(1) << 10, kMiB = kKiB << 10;
  struct Row {
    std::size_t first, then;
    bool zeroed, other_thread;
  };
  for (const Row& row : {Row{8 * kMiB, 5 * kMiB, false, false}, Row{40 * kMiB, 40 * kMiB, false, false},
                         Row{300 * kKiB, 300 * kKiB, false, false}, Row{3 * kMiB, 2 * kMiB, true, false},
                         Row{800 * kKiB, 800 * kKiB, true, true}, Row{6 * kMiB, 6 * kMiB, false, true}}) {
    void* a = ixtal::allocate_large(row.first);
    ASSERT_NE(a, nullptr);
    std::memset(a, 0x5a, row.first);
    if (row.other_thread) std::thread([a] { ixtal::release_large(a); }).join();
    else ixtal::release_large(a);
    void* b = nullptr;
    auto take = [&] { b = row.zeroed ? ixtal::allocate_zeroed(row.then / 8, 8) : ixtal::allocate_large(row.then); };
    if (row.other_thread) std::thread(take).join();
    else take();
    EXPECT_EQ(b, a) << row.first << " then " << row.then;
    if (row.zeroed) {
      const auto* bytes = static_cast<const unsigned char*>(b);
      EXPECT_EQ(std::count(bytes, bytes + row.then, 0), std::ptrdiff_t(row.then)) << row.first;
    }
    ixtal::release_large(b);
  }
}

// An array and its small data share one block, sized by the data: every
// size up to the largest kept in the record, and past it, keeps all of its
// data apart from its neighbours', in fresh blocks and in reused ones (a
// block one size too small would let an array's data run into the next).
TEST(Runtime, SmallArraysKeepTheirDataApart) {
  dovra_test::LeakCheck leaks;
  for (int round = 0; round < 2; ++round) {
    std::vector<owned_array> arrays;
    for (ixSize n = 0; n <= 40; ++n)  // 0 to 320 bytes of doubles
      for (int copy = 0; copy < 40; ++copy) {
        arrays.emplace_back(ixCreateDoubleMatrix(1, n, ixREAL));
        auto* x = static_cast<double*>(ixGetData(arrays.back().get()));
        for (ixSize i = 0; i < n; ++i) x[i] = double(n * 1000 + i);
        const char* names[] = {"a", "b", "c"};
        arrays.emplace_back(ixCreateStructMatrix(1, 1, 3, names));  // and its field names beside the record
      }
    std::size_t bad = 0;
    for (std::size_t k = 0; k < arrays.size(); k += 2) {
      const ixArray* a = arrays[k].get();
      const auto* x = static_cast<const double*>(ixGetData(a));
      for (ixSize i = 0; i < ixGetN(a); ++i) bad += x[i] != double(ixGetN(a) * 1000 + i);
      bad += ixGetNumberOfFields(arrays[k + 1].get()) != 3 || ixGetFieldName(arrays[k + 1].get(), 2) != "c";
    }
    EXPECT_EQ(bad, 0u);
  }
}

TEST(Runtime, CheckedViewsRejectWithTheirReason) {
  owned_array d(ixCreateDoubleMatrix(1, 1, ixREAL));
  owned_array z(ixCreateDoubleMatrix(1, 1, ixCOMPLEX));
  owned_array s(ixCreateSparse(2, 2, ixDOUBLE_CLASS, ixREAL));
  owned_array u(ixtal::testing::make_array_with_class_id(0));
  EXPECT_NO_THROW(matrix::typed_array<double>{d.get()});
  EXPECT_THROW(matrix::typed_array<float>{d.get()}, std::invalid_argument);
  EXPECT_THROW(matrix::typed_array<double>{z.get()}, std::invalid_argument);
  EXPECT_THROW(matrix::typed_array<std::complex<double>>{d.get()}, std::invalid_argument);
  EXPECT_THROW(matrix::typed_array<double>{s.get()}, std::invalid_argument);
  EXPECT_THROW(matrix::typed_array<double>{u.get()}, std::invalid_argument);
}

TEST(Runtime, CellsAndStructuresOwnWhatTheyHold) {
  dovra_test::LeakCheck leaks;
  owned_array c(ixCreateCellMatrix(1, 2));
  ixSetCell(c.get(), 0, ixCreateDoubleScalar(1));
  ixSetCell(c.get(), 0, ixCreateDoubleScalar(2));  // replaces and frees the first
  EXPECT_EQ(ixGetCell(c.get(), 1), nullptr);
  EXPECT_THROW(ixSetCell(c.get(), 2, nullptr), std::out_of_range);

  const std::string names[] = {"", "with blank", "\xC3\xA9t\xC3\xA9"};
  const ixSize one[2] = {1, 1};
  owned_array s(ixCreateStructArray(2, one, 3, names));
  EXPECT_EQ(ixGetFieldNumber(s.get(), "with blank"), 1);
  ixSetFieldByNumber(s.get(), 0, 2, ixCreateString("x"));
  EXPECT_EQ(ixAddField(s.get(), "later"), 3);
  EXPECT_NE(ixGetFieldByNumber(s.get(), 0, 2), nullptr);  // kept its place when the field was added
  const std::string twice[] = {"a", "a"};
  EXPECT_THROW(ixCreateStructArray(2, one, 2, twice), std::invalid_argument);

  // Structures made alike share their names until one of them adds a field.
  owned_array like(ixCreateStructArrayLike(2, one, s.get()));
  const ixSize many[2] = {40, 3};  // slots beyond what lives in the record
  owned_array wide(ixCreateStructArrayLike(2, many, like.get()));
  ixSetFieldByNumber(like.get(), 0, 3, ixCreateDoubleScalar(1));
  EXPECT_EQ(ixAddField(like.get(), "own"), 4);
  EXPECT_EQ(ixGetFieldByNumber(like.get(), 0, 4), nullptr);
  for (const ixArray* other : {s.get(), wide.get()}) {
    EXPECT_EQ(ixGetNumberOfFields(other), 4);
    EXPECT_EQ(ixGetFieldNumber(other, "own"), -1);
    EXPECT_EQ(ixGetFieldName(other, 3), "later");
  }
  EXPECT_EQ(ixGetNumberOfElements(wide.get()), 120u);
  EXPECT_NE(ixGetFieldByNumber(like.get(), 0, 3), nullptr);
}

// Destruction takes a tree apart without recursion, its work list on the
// stack until the tree is deep or wide; a structure's names go with the
// last structure that shares them. Every shape must leave no array alive.
TEST(Runtime, DestructionReleasesEveryArrayOfAnyShape) {
  dovra_test::LeakCheck leaks;
  const std::string names[] = {"a", "b"};
  const ixSize one[2] = {1, 1};
  struct Tree {
    const char* what;
    std::function<ixArray*()> make;
  };
  const std::vector<Tree> trees = {
      {"a chain of cells deeper than the list on the stack",
       [] {
         ixArray* top = ixCreateDoubleScalar(0);
         for (int depth = 0; depth < 300; ++depth) {
           ixArray* c = ixCreateCellMatrix(1, 2);
           ixSetCell(c, 0, top);
           ixSetCell(c, 1, ixCreateString("leaf"));
           top = c;
         }
         return top;
       }},
      {"a cell of more containers than the list holds, each with leaves",
       [&] {
         ixArray* c = ixCreateCellMatrix(1, 200);
         for (ixSize i = 0; i < 200; ++i) {
           ixArray* s = ixCreateStructArray(2, one, 2, names);
           ixSetFieldByNumber(s, 0, 0, ixCreateDoubleScalar(double(i)));
           ixSetFieldByNumber(s, 0, 1, ixCreateCellMatrix(0, 0));
           ixSetCell(c, i, s);
         }
         return c;
       }},
      {"records made alike, the model destroyed first",
       [&] {
         owned_array model(ixCreateStructArray(2, one, 2, names));
         ixArray* values[2] = {ixCreateLogicalScalar(true), ixCreateDoubleScalar(2)};
         owned_array record(ixCreateStructScalarLike(model.get(), values));
         owned_array copy(ixDuplicateArray(record.get()));
         model.reset();
         record.reset();
         EXPECT_EQ(ixGetFieldName(copy.get(), 1), "b");
         return copy.release();
       }},
  };
  for (const Tree& t : trees) {
    SCOPED_TRACE(t.what);
    const std::int64_t before = ixtal::testing::live_arrays();
    ixArray* tree = t.make();
    EXPECT_GT(ixtal::testing::live_arrays(), before);
    ixDestroyArray(tree);
    EXPECT_EQ(ixtal::testing::live_arrays(), before);
  }
}

// Refuses every block the runtime takes once blocks_left are taken.
std::atomic<int> blocks_left{0};
bool block_refused() noexcept { return blocks_left.fetch_sub(1) <= 0; }

TEST(Runtime, AStructureMadeWithItsValuesHoldsThemOrLeavesThemToTheCaller) {
  dovra_test::LeakCheck leaks;
  for (const int nfields : {0, 3, 40}) {  // no slots, slots in the record, slots beyond it
    SCOPED_TRACE(nfields);
    std::vector<std::string> names;
    for (int f = 0; f < nfields; ++f) names.push_back("f" + std::to_string(f));
    const ixSize none[2] = {0, 0};
    const owned_array model(ixCreateStructArray(2, none, nfields, names.data()));
    std::vector<owned_array> values;
    std::vector<ixArray*> given;
    for (int f = 0; f < nfields; ++f) given.push_back(values.emplace_back(ixCreateDoubleScalar(f)).get());
    // Each block it takes fails in turn (the record, its slots): the values
    // stay the caller's, until it is made.
    owned_array s;
    for (int blocks = 0; !s; ++blocks) {
      ASSERT_LT(blocks, 4);
      blocks_left = blocks;
      ixtal::testing::set_allocation_hook(block_refused);
      try {
        s.reset(ixCreateStructScalarLike(model.get(), given.data()));
      } catch (const foundation::core::except::bad_alloc&) {
      }
      ixtal::testing::set_allocation_hook(nullptr);
    }
    for (owned_array& v : values) v.release();  // the structure holds them
    EXPECT_EQ(ixGetNumberOfElements(s.get()), 1u);
    ASSERT_EQ(ixGetNumberOfFields(s.get()), nfields);
    for (int f = 0; f < nfields; ++f) {
      EXPECT_EQ(ixGetFieldName(s.get(), f), names[std::size_t(f)]);
      EXPECT_EQ(ixGetFieldByNumber(s.get(), 0, f), given[std::size_t(f)]);
    }
  }
  const owned_array scalar(ixCreateDoubleScalar(1));
  EXPECT_THROW(ixCreateStructScalarLike(scalar.get(), nullptr), std::invalid_argument);
}

TEST(Runtime, EqualityFollowsValuesNotRepresentation) {
  using dovra_test::make_double;
  const double nan1 = std::nan("1"), nan2 = std::nan("2");
  EXPECT_TRUE(ixIsEqualN(make_double({nan1}, {1, 1}).get(), make_double({nan2}, {1, 1}).get()));
  EXPECT_FALSE(ixIsEqualN(make_double({0.0}, {1, 1}).get(), make_double({-0.0}, {1, 1}).get()));
  EXPECT_FALSE(ixIsEqualN(make_double({1, 2}, {1, 2}).get(), make_double({1, 2}, {2, 1}).get()));
  // An unset cell reads as the empty double.
  std::vector<owned_array> with_empty;
  with_empty.push_back(make_double({}, {0, 0}));
  EXPECT_TRUE(ixIsEqualN(dovra_test::make_cell({}, {1, 1}).get(), dovra_test::make_cell(std::move(with_empty), {1, 1}).get()));
  // Field order is not part of a structure's value.
  std::vector<owned_array> ab, ba;
  ab.push_back(make_double({1}, {1, 1}));
  ab.push_back(make_double({2}, {1, 1}));
  ba.push_back(make_double({2}, {1, 1}));
  ba.push_back(make_double({1}, {1, 1}));
  EXPECT_TRUE(ixIsEqualN(dovra_test::make_struct({"a", "b"}, std::move(ab), {1, 1}).get(),
                         dovra_test::make_struct({"b", "a"}, std::move(ba), {1, 1}).get()));
}

// --- text conversion -----------------------------------------------------------

struct TextRow {
  std::string utf8;
  std::u16string utf16;
};

TEST(Text, ConvertsBothWaysAndReplacesWhatIsIllFormed) {
  const std::vector<TextRow> rows = {
      {"", u""},
      {"plain ascii text, longer than eight", u"plain ascii text, longer than eight"},
      {std::string("nul\0byte", 8), std::u16string(u"nul\0byte", 8)},
      {"\xC3\xA9", u"\u00E9"},
      {"\xE2\x82\xAC", u"\u20AC"},
      {"\xF0\x9F\x98\x80", u"\U0001F600"},
      {"a\xFF" "b", u"a\uFFFDb"},                     // a byte that never starts a sequence
      {"\xC0\xAF", u"\uFFFD\uFFFD"},                  // overlong form
      {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},        // an encoded surrogate
      {"\xE2\x82", u"\uFFFD"},                        // truncated: one maximal subpart
      {"\xF0\x9F\x98", u"\uFFFD"},
  };
  fl::i18n::codecvt_string_to_ustring to16("UTF-8");
  fl::i18n::codecvt_ustring_to_string to8("UTF-8");
  for (const auto& row : rows) {
    SCOPED_TRACE(row.utf8);
    EXPECT_EQ(to16(row.utf8), row.utf16);
    if (row.utf16.find(u'\uFFFD') == std::u16string::npos) {
      EXPECT_EQ(to8(row.utf16), row.utf8);
    }
  }
  // Unpaired surrogates in UTF-16 become U+FFFD; pairs are joined.
  EXPECT_EQ(to8(std::u16string{0xD800, u'a'}), "\xEF\xBF\xBD" "a");
  EXPECT_EQ(to8(std::u16string{u'a', 0xDC00}), "a\xEF\xBF\xBD");
  EXPECT_EQ(to8(std::u16string{0xDBFF, 0xDFFF}), "\xF4\x8F\xBF\xBF");
  EXPECT_THROW(fl::i18n::codecvt_string_to_ustring("latin1"), std::invalid_argument);
}

TEST(Text, MeasureAgreesWithConversionOnAnyBytes) {
  std::mt19937 rng(7);
  fl::i18n::codecvt_string_to_ustring to16("UTF-8");
  fl::i18n::codecvt_ustring_to_string to8("UTF-8");
  for (int round = 0; round < 2000; ++round) {
    std::string bytes(rng() % 40, '\0');
    for (char& b : bytes) b = char(rng() % 4 == 0 ? 'a' + rng() % 26 : rng() % 256);
    const std::u16string units = to16(bytes);
    ASSERT_EQ(units.size(), to16.measure(bytes.data(), bytes.size()));
    // Whatever came out is valid UTF-16, so it survives a round trip.
    ASSERT_EQ(to16(to8(units)), units);
  }
}

// The long ASCII runs of real text take a block path; what breaks a run may
// sit anywhere in or after a block.
TEST(Text, BlockPathsAgreeWithUnitByUnitConversion) {
  auto reference_utf8 = [](const std::u16string& units) {
    std::string out;
    for (std::size_t i = 0; i < units.size(); ++i) {
      char32_t cp = units[i];
      if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < units.size() && units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF)
        cp = 0x10000 + ((cp - 0xD800) << 10) + (units[++i] - 0xDC00);
      else if (cp >= 0xD800 && cp <= 0xDFFF)
        cp = 0xFFFD;
      const int n = cp < 0x80 ? 1 : cp < 0x800 ? 2 : cp < 0x10000 ? 3 : 4;
      const unsigned char lead[] = {0, 0x00, 0xC0, 0xE0, 0xF0};
      out += char(lead[n] | (cp >> (6 * (n - 1))));
      for (int k = n - 2; k >= 0; --k) out += char(0x80 | ((cp >> (6 * k)) & 0x3F));
    }
    return out;
  };
  const char16_t breakers[] = {0x7F, 0x80, 0x7FF, 0x800, 0xD800, 0xDC00, 0xFFFF};
  std::mt19937 rng(11);
  fl::i18n::codecvt_string_to_ustring to16("UTF-8");
  fl::i18n::codecvt_ustring_to_string to8("UTF-8");
  for (int round = 0; round < 3000; ++round) {
    std::u16string units(rng() % 70, u'x');
    for (char16_t& u : units) u = char16_t(' ' + rng() % 90);
    for (int k = rng() % 3; k > 0 && !units.empty(); --k) units[rng() % units.size()] = breakers[rng() % 7];
    if (units.size() > 1 && rng() % 4 == 0) units.replace(rng() % (units.size() - 1), 2, u"\U0001F600");
    const std::string expected = reference_utf8(units);
    ASSERT_EQ(to8(units), expected);
    std::size_t size = 0;
    const auto exact = to8.convert_once(units.data(), units.size(), size);
    ASSERT_EQ(std::string(exact.get(), size), expected);
    std::string room(3 * units.size(), '\0');
    room.resize(to8.convert_bounded(units.data(), units.size(), room.data()));
    ASSERT_EQ(room, expected);
    std::u16string back(expected.size(), u'\0');
    back.resize(to16.convert_bounded(expected.data(), expected.size(), back.data()));
    ASSERT_EQ(back, to16(expected));
    ASSERT_EQ(back.size(), to16.measure(expected.data(), expected.size()));
  }
}

// --- packages and calls --------------------------------------------------------

void answer(std::int32_t, ixArray* plhs[], std::int32_t, const ixArray*[]) { plhs[0] = ixCreateDoubleScalar(42); }
void half_done(std::int32_t, ixArray* plhs[], std::int32_t, const ixArray*[]) {
  plhs[0] = ixCreateCellMatrix(1, 1);
  throw std::runtime_error("broke after storing a result");
}
void exhausted(std::int32_t, ixArray*[], std::int32_t, const ixArray*[]) {
  const ixSize huge[2] = {~ixSize(0) / 2, 4};
  ixCreateNumericArray(2, huge, ixDOUBLE_CLASS, ixREAL);
}

void register_test_package() {
  icos::COSPackage* pkg = icos::omGetSubPackage(icos::omGetGlobalPackage("runtime_test"), "inner");
  EXPECT_EQ(icos::omGetSubPackage(icos::omGetGlobalPackage("runtime_test"), "inner"), pkg);
  pkg->addFunction(icos::COSNameID("answer"), &answer);
  pkg->addFunction(icos::COSNameID("half_done"), &half_done);
  pkg->addFunction(icos::COSNameID("exhausted"), &exhausted);
}

TEST(Packages, RegisteredFunctionsAreCalledByQualifiedName) {
  register_test_package();
  auto out = ixtal::call("runtime_test.inner.answer", 1, {});
  ASSERT_EQ(out.size(), 1u);
  EXPECT_EQ(*static_cast<double*>(ixGetData(out[0].get())), 42.0);
  EXPECT_EQ(icos::omFindFunction("runtime_test.answer"), nullptr);
  EXPECT_EQ(icos::omFindFunction("runtime_test"), nullptr);
}

TEST(Packages, FailedCallsBecomeHostErrorsAndLeaveNothing) {
  register_test_package();
  dovra_test::LeakCheck leaks;
  dovra_test::expect_failure([] { ixtal::call("runtime_test.inner.half_done", 1, {}); }, "IXTAL:UnexpectedException",
                             {std::string("broke after storing a result")});
  dovra_test::expect_failure([] { ixtal::call("runtime_test.inner.exhausted", 1, {}); }, "IXTAL:nomem");
  dovra_test::expect_failure([] { ixtal::call("no.such.function", 1, {}); }, "IXTAL:UndefinedFunction",
                             {std::string("no.such.function")});
}

}  // namespace
