// Whatever a caller sends, the builtins answer with a result or a
// catalogued error and leave the host as they found it: deep nesting, sizes
// no memory could hold, ill-formed text, allocation failures at every
// point, and huge documents.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <functional>

#include "ixtal/testing.hpp"
#include "json/limits.hpp"
#include "support/host.hpp"

namespace {

using dovra_test::owned_array;
using resource_core::MsgArg;

std::string nested_arrays(std::size_t depth) { return std::string(depth, '[') + "1" + std::string(depth, ']'); }

std::string nested_objects(std::size_t depth) {
  std::string s;
  for (std::size_t i = 0; i < depth; ++i) s += "{\"a\":";
  return s + "1" + std::string(depth, '}');
}

// Large-notation cells or structures nested to depth levels (two a
// container), the data before or after their class: the deepest calls a
// level of the reader makes.
std::string nested_containers(std::size_t depth, bool cells, bool data_first) {
  const std::string head = cells ? R"("tndata":[)" : R"("tndata":{"a":[)";
  const std::string tail = cells ? "]" : "]}";
  const std::string keys = R"("tnsize":[1,1],"tntype":")" + std::string(cells ? "cell" : "struct") + "\"";
  const std::size_t levels = cells ? depth / 2 : depth / 3;
  std::string s;
  for (std::size_t i = 0; i < levels; ++i) s += data_first ? "{" + head : "{" + keys + "," + head;
  s += "1";
  for (std::size_t i = 0; i < levels; ++i) s += data_first ? tail + "," + keys + "}" : tail + "}";
  return s;
}

std::string text_of(const MsgArg& a) {
  if (auto* s = boost::get<std::string>(&a)) return *s;
  if (auto* u = boost::get<std::u16string>(&a)) return std::string(u->begin(), u->end());
  return std::to_string(boost::get<long>(a));
}

constexpr std::size_t kLimit = dovra_json::kMaxNestingDepth;

TEST(Reliability, DecodingAtTheNestingLimitWorksAndOneLevelMoreIsRefused) {
  dovra_test::library();
  dovra_test::LeakCheck leaks;
  dovra_test::on_worker_stack([] {
    EXPECT_NO_THROW(dovra_test::decode(nested_arrays(kLimit)));
    EXPECT_NO_THROW(dovra_test::decode(nested_objects(kLimit)));
    for (bool cells : {true, false})
      for (bool data_first : {true, false})
        EXPECT_NO_THROW(dovra_test::decode(nested_containers(kLimit, cells, data_first))) << cells << data_first;
    for (const std::string& deeper : {nested_arrays(kLimit + 1), nested_objects(kLimit + 1)}) {
      auto failure = dovra_test::failure_of([&] { dovra_test::decode(deeper); });
      ASSERT_TRUE(failure);
      EXPECT_EQ(failure->identifier, "DOVRA:IXTAL:JSON:DecodeNestingTooDeep");
      ASSERT_EQ(failure->arguments.size(), 2u);
      // The position is that of the bracket one level too deep.
      const std::size_t at = deeper[0] == '[' ? kLimit : 5 * kLimit;
      EXPECT_NE(text_of(failure->arguments[0]).find("offset " + std::to_string(at)), std::string::npos)
          << text_of(failure->arguments[0]);
    }
    // Far deeper than any stack could recurse.
    auto failure = dovra_test::failure_of([] { dovra_test::decode(std::string(1000000, '[')); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->identifier, "DOVRA:IXTAL:JSON:DecodeNestingTooDeep");
  });
}

TEST(Reliability, IllFormedTextIsReadNeverTrusted) {
  dovra_test::library();
  dovra_test::LeakCheck leaks;
  // Unpaired surrogates in the host's UTF-16 text and in escapes read as U+FFFD.
  const std::u16string lone = u"\"a" + std::u16string(1, char16_t(0xD800)) + u"b\"";
  owned_array arg(ixCreateStringFromUtf16(lone));
  auto out = dovra_test::call(ixtal::kJsonDecodeName, 1, {arg.get()});
  EXPECT_EQ(dovra_test::utf8_of(out[0].get()), "a\xEF\xBF\xBD" "b");
  EXPECT_EQ(dovra_test::utf8_of(dovra_test::decode(R"("\udc00x\ud800\u0041")").get()), "\xEF\xBF\xBDx\xEF\xBF\xBD" "A");
  // NUL: escaped inside a string it is a character; bare in the text it is a syntax error.
  auto nul = dovra_test::decode(R"("a\u0000b")");
  EXPECT_EQ(ixGetNumberOfElements(nul.get()), 3u);
  dovra_test::expect_failure([] { dovra_test::decode(std::string("[1,\0 2]", 7)); },
                             "DOVRA:IXTAL:JSON:DecodeUnexpectedValue",
                             {std::u16string(u"JSON syntax error at line 1, column 3 (byte offset 3)"),
                              std::u16string(u"    [1,\0 2]\n       ^", 20)});
  // A long string is just long.
  const std::string big(8u << 20, 'x');
  EXPECT_EQ(ixGetNumberOfElements(dovra_test::decode("\"" + big + "\"").get()), big.size());
  // Format and placeholder characters in a value are printed, never interpreted.
  auto failure = dovra_test::failure_of(
      [] { dovra_test::decode(R"({"tntype":"{1}%s%n{0}","tnsize":[1,1],"tndata":[1]})"); });
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->identifier, "DOVRA:IXTAL:JSON:DecodeInvalidTNType");
  EXPECT_NE(failure->message.find("{1}%s%n{0}"), std::string::npos) << failure->message;
}

// Sweeps the point at which array creation fails over one call: every
// failure must be the host's out-of-memory error with nothing left behind,
// and the next call must work.
// Only the call runs while the hook is armed; show turns its result into
// text afterwards.
void sweep(const std::function<owned_array()>& call, const std::function<std::string(const ixArray*)>& show,
           const std::string& expected, std::int64_t creations = 2) {
  std::int64_t n = 0;
  for (;; ++n) {
    SCOPED_TRACE("failing creation " + std::to_string(n));
    const auto before = ixtal::testing::live_arrays();
    ixtal::testing::fail_allocations_after(n);
    auto failure = dovra_test::failure_of([&] { call(); });
    ixtal::testing::fail_allocations_after(-1);
    ASSERT_EQ(ixtal::testing::live_arrays(), before);
    if (!failure) break;
    ASSERT_EQ(failure->identifier, "IXTAL:nomem") << failure->message;
    ASSERT_LT(n, 10000);
  }
  EXPECT_GE(n, creations) << "the call should create more arrays";
  EXPECT_EQ(show(call().get()), expected);
}

TEST(Reliability, EveryAllocationFailureIsAnOutOfMemoryErrorAndLeavesNothing) {
  dovra_test::library();
  const std::string doc =
      R"({"tntype":"cell","tnsize":[1,3],"tndata":[)"
      R"({"tntype":"struct","tnsize":[1,2],"tndata":{"a":[[1,2],"x"],"b":[true,{"c":{"tndata":"NaN"}}]}},)"
      R"([[1,2],[3,4]],{"lhs":{"tntype":"int32","tnsize":[1,2],"tndata":[5,6],"tncomplex":false}}]})";
  owned_array text = dovra_test::text(doc);
  owned_array response = dovra_test::text("{\"lhs\":[" + doc + ",\"s\",[true]]}");
  auto as_json = [](const ixArray* a) { return dovra_test::encode(a); };
  sweep([&] { return std::move(ixtal::call(ixtal::kJsonDecodeName, 1, {text.get()})[0]); }, as_json,
        dovra_test::encode(dovra_test::decode(doc).get()));
  sweep([&] { return std::move(ixtal::call(ixtal::kJsonDecodeResponseName, 1, {response.get()})[0]); }, as_json,
        dovra_test::encode(dovra_test::decode_response("{\"lhs\":[" + doc + ",\"s\",[true]]}").get()));

  // Encoding through the tree (pretty): the result row and the stand-ins
  // for unset cells are created; compact text written straight from the
  // arrays creates only the row.
  std::vector<owned_array> parts;
  parts.push_back(dovra_test::decode(doc));
  parts.push_back(nullptr);
  auto with_unset = dovra_test::make_cell(std::move(parts), {2, 1});
  owned_array large = dovra_test::text("large"), str = dovra_test::text("string");
  for (const bool pretty : {true, false}) {
    owned_array flag(ixCreateLogicalScalar(pretty));
    sweep([&] { return std::move(ixtal::call(ixtal::kJsonEncodeName, 1, {with_unset.get(), large.get(), str.get(), flag.get()})[0]); },
          dovra_test::utf8_of, dovra_test::encode(with_unset.get(), "large", "string", pretty), pretty ? 2 : 1);
  }
}

TEST(Reliability, AHugeDocumentDecodesWithinASmallFactorOfItsSize) {
  if (dovra_test::sanitized()) GTEST_SKIP() << "memory is measured without sanitizers";
  dovra_test::library();
  // About 200 MB of measured values in small notation, 10 to a row.
  std::string doc = "[";
  const std::string row =
      "[0.8444218515250481,-7.579544029403025e-3,420.25818117515,0.25891675029296335,5.112747213686085e+21,"
      "-0.4049341374504143,78.3818785416,0.30331272607892745,-0.4765969541523558,0.5833820394550312]";
  const std::size_t rows = (200u << 20) / (row.size() + 1);
  doc.reserve(rows * (row.size() + 1) + 2);
  for (std::size_t i = 0; i < rows; ++i) {
    if (i) doc += ',';
    doc += row;
  }
  doc += ']';
  owned_array arg = dovra_test::text(doc);
  const std::size_t text_bytes = doc.size();
  std::string().swap(doc);

  rusage before{};
  getrusage(RUSAGE_SELF, &before);
  auto out = dovra_test::call(ixtal::kJsonDecodeName, 1, {arg.get()});
  rusage after{};
  getrusage(RUSAGE_SELF, &after);
  ASSERT_EQ(ixGetNumberOfElements(out[0].get()), rows * 10);
  const double peak_mb = double(after.ru_maxrss - before.ru_maxrss) / 1024.0;
  const double text_mb = double(text_bytes) / (1u << 20);
  RecordProperty("peak_mb_above_baseline", std::to_string(peak_mb));
  std::printf("decoded %.0f MB of JSON; peak memory rose by %.0f MB (%.2f per input MB)\n", text_mb, peak_mb,
              peak_mb / text_mb);
  EXPECT_LT(peak_mb, 4.0 * text_mb);
}

}  // namespace
