// The builtins keep no state between calls, so host threads may call them
// at once. Several threads decode, response-decode and encode different
// inputs concurrently; every result must equal the one computed alone.
// CI runs this under ThreadSanitizer.

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

#include "support/host.hpp"

namespace {

using dovra_test::owned_array;

struct Job {
  std::string json;
  enum Kind { decode, response, encode_small, encode_large, error } kind;
};

const std::vector<Job>& jobs() {
  static const std::vector<Job> j = {
      {"[[1,2,3],[4,5,6]]", Job::decode},
      {R"({"tntype":"int16","tnsize":[2,2],"tndata":[1,-2,3,-4]})", Job::decode},
      {R"({"a":"text \u00e9","b":[true,false],"c":{"tndata":"NaN"}})", Job::decode},
      {R"({"lhs":[1,"a",true,{"x":[1,2]}]})", Job::response},
      {R"({"tntype":"cell","tnsize":[1,2],"tndata":[{"tndata":[1],"tnsize":[1,1],"tntype":"double"},"s"]})", Job::encode_small},
      {R"({"tntype":"double","tnsize":[1,2],"tndata":[1,2,3,4],"tncomplex":true})", Job::encode_large},
      {"[1,2", Job::error},
      {R"({"tntype":"int8","tnsize":[1,1],"tndata":[300]})", Job::error},
  };
  return j;
}

// The outcome of one job as text: the encoded result, or the identifier.
std::string outcome(const Job& job) {
  std::string result;
  const auto failure = dovra_test::failure_of([&] {
    switch (job.kind) {
      case Job::decode: case Job::error: result = dovra_test::encode(dovra_test::decode(job.json).get()); break;
      case Job::response: result = dovra_test::encode(dovra_test::decode_response(job.json).get()); break;
      case Job::encode_small:
        result = dovra_test::encode(dovra_test::decode(job.json).get(), "small", "object", true);
        break;
      case Job::encode_large: result = dovra_test::encode(dovra_test::decode(job.json).get(), "large", "string"); break;
    }
  });
  return failure ? "error " + failure->identifier : result;
}

TEST(Concurrency, ThreadsCallingAllBuiltinsGetTheResultsOfSerialCalls) {
  dovra_test::library();
  dovra_test::LeakCheck leaks;
  std::vector<std::string> expected;
  for (const auto& job : jobs()) expected.push_back(outcome(job));
  ASSERT_EQ(expected[6].rfind("error ", 0), 0u);

  constexpr int kThreads = 4, kRounds = 150;
  std::atomic<int> mismatches{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int r = 0; r < kRounds; ++r) {
        const std::size_t i = std::size_t(t + r) % jobs().size();  // threads run different jobs at once
        if (outcome(jobs()[i]) != expected[i]) ++mismatches;
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(mismatches.load(), 0);
}

// A host may make a result on one thread and destroy it on another, with
// both threads gone by then: the live count, summed over threads, comes
// out even, and blocks freed on one thread and reused on another hold what
// was written there.
TEST(Concurrency, ArraysMadeOnOneThreadAndDestroyedOnAnother) {
  dovra_test::library();
  const std::string doc = R"({"lhs":[{"id":1,"name":"ab","score":1.5,"ok":true},[1,2,3],"text",false]})";
  const owned_array reference = dovra_test::decode_response(doc);
  dovra_test::LeakCheck leaks;
  constexpr int kPairs = 2, kRounds = 3, kResults = 400;
  std::atomic<int> mismatches{0};
  for (int round = 0; round < kRounds; ++round) {
    std::vector<std::thread> threads;
    for (int p = 0; p < kPairs; ++p) {
      auto handed = std::make_shared<std::promise<std::vector<ixArray*>>>();
      threads.emplace_back([&, handed] {
        std::vector<ixArray*> made;
        for (int i = 0; i < kResults; ++i) made.push_back(dovra_test::decode_response(doc).release());
        handed->set_value(std::move(made));
      });
      threads.emplace_back([&, handed] {
        std::vector<ixArray*> got = handed->get_future().get();
        for (ixArray* a : got) {
          if (!ixIsEqualN(a, reference.get())) ++mismatches;
          ixDestroyArray(a);
        }
        // What this thread now reuses came from the other one.
        for (int i = 0; i < kResults; ++i)
          if (!ixIsEqualN(dovra_test::decode_response(doc).get(), reference.get())) ++mismatches;
      });
    }
    for (auto& th : threads) th.join();
  }
  EXPECT_EQ(mismatches.load(), 0);
}

}  // namespace
