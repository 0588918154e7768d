#pragma once

// What every case shares: a preparation (loading, the check against the
// reference) that runs once per case before its first timing loop, the
// reporting of bytes, and the untimed disposal of our results.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <ctime>
#include <exception>
#include <map>
#include <string>

#include "ixtal/array.hpp"
#include "ixtal/packages.hpp"

namespace dovra_bench {

// Runs prepare() the first time a case is run; Google Benchmark calls a case
// again for every estimate and repetition, and a check of a 20 MB result
// once is enough. A failed preparation is remembered: this call and every
// later one skip the case with its reason, and the caller returns false
// from its case at once.
template <class Prepare>
bool prepared(benchmark::State& state, const std::string& case_name, Prepare prepare) {
  static std::map<std::string, std::string> failures;  // "" for a case that passed
  auto it = failures.find(case_name);
  if (it == failures.end()) {
    std::string failure;
    try {
      prepare();
    } catch (const std::exception& e) {
      failure = *e.what() ? e.what() : "preparation failed";
    } catch (...) {
      failure = "preparation failed with an unknown exception";
    }
    it = failures.emplace(case_name, failure).first;
  }
  if (it->second.empty()) return true;
  state.SkipWithError(it->second.c_str());
  for (auto _ : state) {
  }  // not entered after SkipWithError; keeps the state's bookkeeping complete
  return false;
}

// Throughput in bytes of JSON text, the same count for every implementation
// of a workload, so that ratios of MB/s are ratios of time.
inline void report_bytes(benchmark::State& state, std::size_t text_bytes) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(text_bytes));
  state.counters["text_MB"] = benchmark::Counter(double(text_bytes) / 1e6);
}

// Destroys what a builtin returned, as the host eventually does, outside the
// timed region: freeing is the host runtime's work, and the peers free
// nothing per iteration either. Its CPU time is kept apart and reported as
// the counter destroy_ms, because the shape of a result (one array or
// 140,000) decides it.
class ResultDisposal {
 public:
  template <class Destroy>
  void operator()(benchmark::State& state, Destroy destroy) {
    state.PauseTiming();
    const double start = thread_seconds();
    destroy();
    seconds_ += thread_seconds() - start;
    state.ResumeTiming();
  }
  void report(benchmark::State& state) const {
    state.counters["destroy_ms"] = benchmark::Counter(1e3 * seconds_, benchmark::Counter::kAvgIterations);
  }

 private:
  static double thread_seconds() {
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + 1e-9 * double(ts.tv_nsec);
  }
  double seconds_ = 0;
};

// Times a builtin on prepared arguments as a host calls it, one result a
// call; destroying each result is measured apart.
inline void time_builtin(benchmark::State& state, BuiltinFunction fn, const ixArray** prhs, int nrhs) {
  ResultDisposal dispose;
  for (auto _ : state) {
    ixArray* plhs[1] = {nullptr};
    try {
      fn(1, plhs, nrhs, prhs);
    } catch (const std::exception& e) {
      state.SkipWithError(e.what());
      break;
    }
    dispose(state, [&] { ixDestroyArray(plhs[0]); });
  }
  dispose.report(state);
}

void register_decode_benchmarks();
void register_encode_benchmarks();
void register_shape_benchmarks();
int peak_rss_main(const std::string& implementation);

}  // namespace dovra_bench
