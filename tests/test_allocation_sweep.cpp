// Every allocation of a call, failed in turn. This binary replaces the
// global operator new and delete, and hooks the runtime's own heap blocks,
// so that one count covers strings, vectors, the value tree, the
// serializer's buffers, text conversions and array records and data. The
// n-th allocation of the call fails; the call must end in success or the
// host's out-of-memory error (or, for a bad document, its parse error),
// leave no array and no heap byte behind, and the next call must work.
//
// Its own executable: the replacement would otherwise reach every test. It
// is not built under sanitizers, which bring their own allocator.

#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "ixtal/testing.hpp"
#include "support/host.hpp"

namespace {

std::atomic<std::int64_t> g_count{0};      // allocations so far
std::atomic<std::int64_t> g_fail_at{-1};   // the one that fails; -1: none
std::atomic<std::int64_t> g_live_bytes{0};

bool refuse() noexcept {
  const std::int64_t n = g_count.fetch_add(1, std::memory_order_relaxed) + 1;
  return n == g_fail_at.load(std::memory_order_relaxed);
}

void* counted(void* p) noexcept {
  if (p) g_live_bytes.fetch_add(std::int64_t(malloc_usable_size(p)), std::memory_order_relaxed);
  return p;
}

void* allocate(std::size_t size, std::size_t align, bool nothrow) {
  void* p = refuse() ? nullptr
            : align <= alignof(std::max_align_t)
                ? std::malloc(size ? size : 1)
                : std::aligned_alloc(align, (size + align - 1) / align * align);
  if (!p && !nothrow) throw std::bad_alloc();
  return counted(p);
}

void release(void* p) noexcept {
  if (!p) return;
  g_live_bytes.fetch_sub(std::int64_t(malloc_usable_size(p)), std::memory_order_relaxed);
  std::free(p);
}

}  // namespace

void* operator new(std::size_t n) { return allocate(n, 0, false); }
void* operator new[](std::size_t n) { return allocate(n, 0, false); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept { return allocate(n, 0, true); }
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept { return allocate(n, 0, true); }
void* operator new(std::size_t n, std::align_val_t a) { return allocate(n, std::size_t(a), false); }
void* operator new[](std::size_t n, std::align_val_t a) { return allocate(n, std::size_t(a), false); }
void* operator new(std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept {
  return allocate(n, std::size_t(a), true);
}
void* operator new[](std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept {
  return allocate(n, std::size_t(a), true);
}
void operator delete(void* p) noexcept { release(p); }
void operator delete[](void* p) noexcept { release(p); }
void operator delete(void* p, std::size_t) noexcept { release(p); }
void operator delete[](void* p, std::size_t) noexcept { release(p); }
void operator delete(void* p, std::align_val_t) noexcept { release(p); }
void operator delete[](void* p, std::align_val_t) noexcept { release(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { release(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { release(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { release(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { release(p); }

namespace {

using dovra_test::owned_array;

// The runtime's heap blocks are not counted as live bytes (it frees them
// with free(3)); live arrays cover them.
bool runtime_block_refused() noexcept { return refuse(); }

// One call through the host gateway; its arguments are made beforehand,
// and its result is shown as text afterwards, outside the sweep.
struct Call {
  const char* name;
  std::function<owned_array()> run;  // throws a host error
  const char* expected_error;        // besides out-of-memory; null for none
};

// The result as text, or the identifier of the error the call raised.
std::string outcome_of(const Call& call) {
  owned_array result;
  auto failure = dovra_test::failure_of([&] { result = call.run(); });
  return failure ? failure->identifier : dovra_test::encode(result.get());
}

void sweep(const Call& call) {
  SCOPED_TRACE(call.name);
  const std::string expected = outcome_of(call);
  std::int64_t n = 1;
  for (;; ++n) {
    SCOPED_TRACE("failing allocation " + std::to_string(n));
    const std::int64_t arrays = ixtal::testing::live_arrays();
    const std::int64_t bytes = g_live_bytes.load();
    {
      owned_array result;
      std::optional<dovra_test::HostFailure> failure;
      g_count = 0;
      g_fail_at = n;
      try {
        result = call.run();
      } catch (const ixtal::HostError& e) {
        g_fail_at = -1;  // before the copy below, which is the test's
        failure = dovra_test::HostFailure{e.identifier(), e.arguments(), e.what()};
      }
      g_fail_at = -1;
      const bool through = g_count < n;  // no allocation was refused
      if (failure) {
        const bool expected_failure = failure->identifier == "IXTAL:nomem" ||
                                      (call.expected_error && failure->identifier == call.expected_error);
        EXPECT_TRUE(expected_failure && !(through && failure->identifier == "IXTAL:nomem"))
            << failure->identifier << ": " << failure->message;
      } else {
        // Either nothing failed, or the call could bear the loss.
        EXPECT_EQ(dovra_test::encode(result.get()), expected);
      }
      if (through) break;
    }
    ASSERT_EQ(ixtal::testing::live_arrays(), arrays);
    ASSERT_EQ(g_live_bytes.load(), bytes);
    ASSERT_LT(n, 200000) << "the sweep does not end";
  }
  EXPECT_EQ(outcome_of(call), expected) << "the next call";
  EXPECT_GT(n, 10) << "the call should allocate many times";
}

TEST(AllocationSweep, EveryAllocationOfEachCallFailsCleanly) {
  dovra_test::library();
  ixtal::testing::set_allocation_hook(runtime_block_refused);

  const std::string doc =
      R"({"tntype":"cell","tnsize":[1,4],"tndata":[)"
      R"({"tntype":"struct","tnsize":[1,2],"tndata":{"a":[[1,2],"x\u00e9"],"b":[true,{"c":{"tndata":"NaN"}}]}},)"
      R"([[1.5,2],[3,4e10]],{"tntype":"int32","tnsize":[1,2],"tndata":[5,-6]},)"
      R"({"tntype":"single","tnsize":[2,1],"tndata":[1,2,3,4],"tncomplex":true}]})";
  const std::string small =
      R"({"name":"caf\u00e9 \ud83d\ude00","m":[[1,2,3],[4,5,6]],"flags":[true,false],"s":{"t":[]}})";
  const std::string response = "{\"lhs\":[" + doc + "," + small + ",\"s\",[true]]}";
  const owned_array doc_text = dovra_test::text(doc), small_text = dovra_test::text(small),
                    response_text = dovra_test::text(response),
                    bad_text = dovra_test::text("{\"a\": [1, 2,\n  \"b\" 3]}");
  const owned_array value = dovra_test::decode(doc), other = dovra_test::decode(small);
  const owned_array large = dovra_test::text("large"), small_notation = dovra_test::text("small"),
                    object = dovra_test::text("object"), compact(ixCreateLogicalScalar(false)),
                    pretty(ixCreateLogicalScalar(true));

  const auto call = [](const char* name, std::vector<const ixArray*> args) {
    return [name, args] { return std::move(ixtal::call(name, 1, args).at(0)); };
  };
  const auto encode = [&](const ixArray* v, const ixArray* format, const ixArray* layout) {
    return call(ixtal::kJsonEncodeName, {v, format, object.get(), layout});
  };
  const Call calls[] = {
      {"decode, large notation", call(ixtal::kJsonDecodeName, {doc_text.get()}), nullptr},
      {"decode, small notation", call(ixtal::kJsonDecodeName, {small_text.get()}), nullptr},
      {"response decode", call(ixtal::kJsonDecodeResponseName, {response_text.get()}), nullptr},
      {"encode, large, compact", encode(value.get(), large.get(), compact.get()), nullptr},
      {"encode, large, pretty", encode(value.get(), large.get(), pretty.get()), nullptr},
      {"encode, small, compact", encode(other.get(), small_notation.get(), compact.get()), nullptr},
      {"encode, small, pretty", encode(other.get(), small_notation.get(), pretty.get()), nullptr},
      {"a parse error's report", call(ixtal::kJsonDecodeName, {bad_text.get()}),
       "DOVRA:IXTAL:JSON:DecodeUnexpectedValue"},
  };
  // What the host makes once, on its first error of each kind (the catalog,
  // the message texts), is made before the sweep measures anything.
  ixtal::testing::fail_allocations_after(0);
  EXPECT_EQ(outcome_of(calls[0]), "IXTAL:nomem");
  ixtal::testing::fail_allocations_after(-1);
  EXPECT_EQ(outcome_of(calls[7]), calls[7].expected_error);
  for (const Call& c : calls) sweep(c);
  ixtal::testing::set_allocation_hook(nullptr);
}

}  // namespace
