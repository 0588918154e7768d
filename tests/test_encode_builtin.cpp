// The encode builtin: its arguments, the classes it refuses, and how deep
// its output may nest.


#include <optional>

#include "encode_rows.hpp"
#include "ixtal/testing.hpp"

namespace dovra_test {
namespace {

using Args = std::vector<resource_core::MsgArg>;
const std::string kInvalidArgument = "IXTAL:class:InvalidArgument";
const std::string kNotText = "IXTAL:checkSyntacticWarnings:MustBeStringScalarOrCharacterVector";
const std::string kRequireLogical = "IXTAL:class:RequireLogical";
const std::string kUnsupported = "DOVRA:IXTAL:JSON:EncodeUnsupportedType";
const std::string kTooDeep = "DOVRA:IXTAL:JSON:EncodeNestingTooDeep";
const Args kFormat{std::string("format"), std::string("format")};
const Args kNanInf{std::string("nanInfType"), std::string("nanInfType")};

shared_array T(std::string_view utf8) { return share(text(utf8)); }
shared_array Str(std::optional<std::u16string> s, std::vector<ixSize> dims = {1, 1}) {
  return share(make_strings(std::vector<std::optional<std::u16string>>(dims[0] * dims[1], s), dims));
}

std::vector<owned_array> encode_with(const shared_array& format, const shared_array& nan, const shared_array& flag) {
  const auto value = doubles({1}, {1, 1});
  return call(ixtal::kJsonEncodeName, 1, {value.get(), format.get(), nan.get(), flag.get()});
}

TEST(EncodeBuiltin, OptionErrorsInOrder) {
  const auto large = T("large"), string = T("string"), yes = logicals({true}, {1, 1}), one = doubles({1}, {1, 1});
  struct row {
    const char* label;
    shared_array format, nan, flag;
    std::string identifier;
    Args arguments;
  };
  const std::vector<row> rows = {
      {"capitalised", T("Large"), string, yes, kInvalidArgument, kFormat},
      {"upper case", T("LARGE"), string, yes, kInvalidArgument, kFormat},
      {"leading blank", T(" large"), string, yes, kInvalidArgument, kFormat},
      {"0x0 char", chars(u"", {0, 0}), string, yes, kInvalidArgument, kFormat},
      {"1x0 char", chars(u"", {1, 0}), string, yes, kInvalidArgument, kFormat},
      {"2x5 char", chars(u"lsamraglel", {2, 5}), string, yes, kNotText, {}},
      {"double", one, string, yes, kNotText, {}},
      {"missing string", Str(std::nullopt), string, yes, kNotText, {}},
      {"1x2 string array", Str(u"large", {1, 2}), string, yes, kNotText, {}},
      {"unknown NaN form", Str(u"small"), T("Object"), yes, kInvalidArgument, kNanInf},
      {"empty NaN form", large, chars(u"", {0, 0}), yes, kInvalidArgument, kNanInf},
      {"NaN form not text", large, one, yes, kNotText, {}},
      {"flag not logical", large, string, one, kRequireLogical, {}},
      {"flag not scalar", large, string, logicals({true, true}, {1, 2}), kRequireLogical, {}},
      {"format before flag", T("huge"), string, one, kInvalidArgument, kFormat},
      {"NaN form before flag", large, T("nan"), one, kInvalidArgument, kNanInf},
      {"format before NaN form", one, T("nan"), one, kNotText, {}},
  };
  LeakCheck leaks;
  for (const row& r : rows) {
    SCOPED_TRACE(r.label);
    expect_failure([&] { encode_with(r.format, r.nan, r.flag); }, r.identifier, r.arguments);
  }
}

TEST(EncodeBuiltin, OptionsAndResult) {
  LeakCheck leaks;
  const auto small = Str(u"small"), object = Str(u"object"), no = logicals({false}, {1, 1}), yes = logicals({true}, {1, 1});
  EXPECT_EQ(utf8_of(encode_with(small, object, no).at(0).get()), "1") << "string scalars as options";
  const auto value = cell({doubles({1, 2}, {2, 1})}, {1, 1});
  const std::string compact = encode(value.get(), "small", "string", false);
  std::string pretty = encode(value.get(), "small", "string", true);
  EXPECT_NE(pretty.find('\n'), std::string::npos) << pretty;
  std::erase_if(pretty, [](char c) { return c == ' ' || c == '\n'; });
  EXPECT_EQ(pretty, compact);

  const auto a = doubles({1}, {1, 1}), f = T("large"), n = T("string");
  const std::vector<const ixArray*> four{a.get(), f.get(), n.get(), yes.get()};
  expect_failure([&] { call(ixtal::kJsonEncodeName, 2, four); }, "IXTAL:TooManyOutputs");
  expect_failure([&] { call(ixtal::kJsonEncodeName, 1, {a.get(), f.get(), n.get(), yes.get(), yes.get()}); },
                 "IXTAL:TooManyInputs");
  expect_failure([&] { call(ixtal::kJsonEncodeName, 1, {a.get(), f.get(), n.get()}); }, "IXTAL:NotEnoughInputs");
}

TEST(EncodeBuiltin, UnsupportedClassesAreNamed) {
  const auto handle = share(owned_array(ixCreateFunctionHandle("sin")));
  const std::vector<std::pair<shared_array, std::string>> rows = {
      {share(owned_array(ixCreateSparse(2, 2, ixDOUBLE_CLASS, ixREAL))), "double"},
      {share(owned_array(ixCreateSparse(2, 2, ixDOUBLE_CLASS, ixCOMPLEX))), "double"},
      {share(owned_array(ixCreateSparse(1, 1, ixLOGICAL_CLASS, ixREAL))), "logical"},
      {handle, "function_handle"},
      {share(owned_array(ixCreateClassObject("Widget"))), "Widget"},
      {share(owned_array(ixCreateOpaque("java.lang.Thread"))), "java.lang.Thread"},
      {Str(u"text"), "string"},
      {share(owned_array(ixtal::testing::make_array_with_class_id(0))), "unknown"},
      {share(owned_array(ixtal::testing::make_array_with_class_id(5))), "void"},
      {share(owned_array(ixtal::testing::make_array_with_class_id(19))), "unknown"},
      {cell({doubles({1}, {1, 1}), handle}, {1, 2}), "function_handle"},
      {structure({"a", "b"}, {doubles({1}, {1, 1}), Str(u"x")}, {1, 1}), "string"},
      {structure({"a"}, {cell({share(owned_array(ixCreateSparse(1, 1, ixDOUBLE_CLASS, ixREAL)))}, {1, 1})}, {1, 2}), "double"},
  };
  LeakCheck leaks;
  for (const auto& [array, name] : rows)
    for (const char* format : {"large", "small"}) {
      SCOPED_TRACE(name + " in " + format);
      expect_failure([&] { encode(array.get(), format); }, kUnsupported, {name});
    }
}

shared_array nest(std::size_t levels, shared_array inner, bool in_structs) {
  owned_array a = copy_of(inner);
  for (std::size_t i = 0; i < levels; ++i) {
    std::vector<owned_array> one;
    one.push_back(std::move(a));
    a = in_structs ? make_struct({"f"}, std::move(one), {1, 1}) : make_cell(std::move(one), {1, 1});
  }
  return share(std::move(a));
}

// The deepest text the encoder writes is 1000 levels, which the parser
// still reads.
TEST(EncodeBuiltin, NestingLimit) {
  std::vector<ixSize> deep(999, 1);
  deep.push_back(2);  // trailing ones would be dropped
  struct row {
    const char* label;
    shared_array array;
    const char* format;
    const char* nan;
    bool fits;
    bool decodes;  // no "NaN" strings, which the decoder refuses
  };
  const std::vector<row> rows = {
      {"1000 scalar structures", nest(1000, doubles({5}, {1, 1}), true), "small", "string", true, true},
      {"1001 scalar structures", nest(1001, doubles({5}, {1, 1}), true), "small", "string", false, false},
      {"499 cells, then a NaN string", nest(499, doubles({kNaN}, {1, 1}), false), "large", "string", true, false},
      {"499 cells, then a NaN object", nest(499, doubles({kNaN}, {1, 1}), false), "large", "object", false, false},
      {"499 cells, then data", nest(499, doubles({1}, {1, 1}), false), "large", "object", true, true},
      {"500 cells", nest(500, cell({}, {0, 0}), false), "large", "string", false, false},
      {"332 structures, then a cell", nest(332, cell({doubles({1}, {1, 1})}, {1, 1}), true), "large", "string", true, true},
      {"333 structures", nest(333, doubles({1}, {1, 1}), true), "large", "string", false, false},
      {"1000 dimensions", doubles({1, 2}, deep), "small", "string", true, true},
      {"1000 dimensions and a NaN object", doubles({1, kNaN}, deep), "small", "string", false, false},
      {"200000 cells: refused, not followed", nest(200000, doubles({1}, {1, 1}), false), "large", "string", false, false},
  };
  LeakCheck leaks;
  for (const row& r : rows)
    dovra_test::on_worker_stack([&] {
      SCOPED_TRACE(r.label);
      if (!r.fits) return expect_failure([&] { encode(r.array.get(), r.format, r.nan); }, kTooDeep);
      const std::string json = encode(r.array.get(), r.format, r.nan);
      if (r.decodes) {
        EXPECT_TRUE(ixIsEqualN(decode(json).get(), r.array.get()));
      }
    });
}

}  // namespace
}  // namespace dovra_test
