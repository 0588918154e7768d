// The library as the host sees it: exported symbols, the builtin table, the
// registration of dovra.json.decode, and the arity checks of all three
// functions.

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cctype>
#include <cstdio>

#include "ixtal/host.hpp"
#include "ixtal/testing.hpp"
#include "support/host.hpp"

namespace {

std::string run(const std::string& command) {
  std::string out;
  FILE* p = popen(command.c_str(), "r");
  if (!p) return out;
  char buf[4096];
  while (std::size_t n = fread(buf, 1, sizeof buf, p)) out.append(buf, n);
  pclose(p);
  return out;
}

TEST(Entry, ExportsExactlyTheThreeEntryPoints) {
  const std::string symbols = run(std::string("nm -D --defined-only ") + DOVRA_JSON_BUILTINS_PATH +
                                  " | awk '$2 ~ /^[TDBRVWuiG]$/ {print $3}' | sort");
  EXPECT_EQ(symbols,
            "ILInitialize_dovra_json_builtins\nILTerminate_dovra_json_builtins\nQueryILFcnTable_dovra_json_builtins\n");
}

TEST(Entry, TableHasTwoBuiltinsAndAFreshIdentifier) {
  auto& lib = dovra_test::library();
  const BuiltinFunctionTable& t = lib.table();
  EXPECT_EQ(t.count, 2u);
  EXPECT_EQ(t.reserved, nullptr);
  // A UUID in lower-case hex with underscores: 8_4_4_4_12.
  const std::string id = t.identifier;
  ASSERT_EQ(id.size(), 36u) << id;
  for (std::size_t i = 0; i < id.size(); ++i) {
    const bool separator = i == 8 || i == 13 || i == 18 || i == 23;
    EXPECT_TRUE(separator ? id[i] == '_' : std::isxdigit(id[i]) && !std::isupper(id[i])) << id << " at " << i;
  }
  EXPECT_EQ(ixtal::find_function(ixtal::kJsonEncodeName), t.functions[0]);
  EXPECT_EQ(ixtal::find_function(ixtal::kJsonDecodeResponseName), t.functions[1]);
  EXPECT_NE(ixtal::find_function(ixtal::kJsonDecodeName), nullptr);
}

TEST(Entry, EntryPointsBehaveWhenCalledAgainOrOutOfOrder) {
  void* h = dlopen(DOVRA_JSON_BUILTINS_PATH, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(h, nullptr);
  auto query = reinterpret_cast<const BuiltinFunctionTable* (*)()>(dlsym(h, "QueryILFcnTable_dovra_json_builtins"));
  auto terminate = reinterpret_cast<void (*)()>(dlsym(h, "ILTerminate_dovra_json_builtins"));
  ASSERT_TRUE(query && terminate);
  EXPECT_EQ(query(), query());
  terminate();  // without initialisation: nothing happens
  dlclose(h);
}

struct ArityRow {
  const char* function;
  int nlhs;
  int nrhs;
  const char* identifier;
};

TEST(Entry, ArityIsCheckedFirstAndInOrder) {
  dovra_test::library();
  const std::vector<ArityRow> rows = {
      // too many results beats too many or too few arguments
      {ixtal::kJsonDecodeName, 2, 5, "IXTAL:TooManyOutputs"},
      {ixtal::kJsonDecodeName, 2, 0, "IXTAL:TooManyOutputs"},
      {ixtal::kJsonDecodeName, 1, 2, "IXTAL:TooManyInputs"},
      {ixtal::kJsonDecodeName, 0, 0, "IXTAL:NotEnoughInputs"},
      {ixtal::kJsonDecodeResponseName, 3, 1, "IXTAL:TooManyOutputs"},
      {ixtal::kJsonDecodeResponseName, 1, 2, "IXTAL:TooManyInputs"},
      {ixtal::kJsonDecodeResponseName, 1, 0, "IXTAL:NotEnoughInputs"},
      {ixtal::kJsonEncodeName, 2, 3, "IXTAL:TooManyOutputs"},
      {ixtal::kJsonEncodeName, 1, 5, "IXTAL:TooManyInputs"},
      {ixtal::kJsonEncodeName, 1, 3, "IXTAL:NotEnoughInputs"},
      {ixtal::kJsonEncodeName, 0, 0, "IXTAL:NotEnoughInputs"},
  };
  // Arguments the functions would reject on content: only the counts may decide.
  matrix::owned_array junk(ixCreateFunctionHandle("junk"));
  dovra_test::LeakCheck leaks;
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.function) + " nlhs=" + std::to_string(row.nlhs) + " nrhs=" + std::to_string(row.nrhs));
    std::vector<const ixArray*> args(std::size_t(row.nrhs), junk.get());
    dovra_test::expect_failure([&] { ixtal::call(row.function, row.nlhs, args); }, row.identifier);
  }
}

TEST(Entry, HostErrorsUnwindThroughTheLibraryWithoutLeaks) {
  dovra_test::library();
  dovra_test::LeakCheck leaks;
  matrix::owned_array junk(ixCreateFunctionHandle("junk"));
  for (int i = 0; i < 100; ++i) {
    auto failure = dovra_test::failure_of([&] { ixtal::call(ixtal::kJsonDecodeName, 1, {junk.get()}); });
    ASSERT_TRUE(failure);
  }
}

}  // namespace
