// Thread scaling of the runtime's arrays and of decoding records: the same
// work on one thread, then on two at once, side by side in one run.
//
//   arrays   what decoding 20,000 flat records makes and destroys, made
//            through the runtime directly: per record two 1x1 doubles, a
//            logical scalar, a short char row and a 1x1 structure made with
//            ixCreateStructArrayLike holding them, and a cell of the records.
//   decode   the response-decode builtin on {"lhs":[{"id":1,"name":"ab",
//            "score":1.5,"ok":true},...]} of 20,000 records, the result
//            destroyed, as a host calls it.
//
// Each trial runs a workload on one thread, then on two threads at once,
// each doing the same number of rounds. It prints the throughput ratio by
// wall clock (2 threads / 1 thread; 2.0 is perfect scaling), the CPU time
// of a round on one thread and on two, and their ratio (1.0: a round costs
// the same CPU on two threads as on one). On a
// machine shared with other work the wall ratio also counts whatever else
// ran; the CPU ratio counts what the two threads cost each other (a shared
// counter or lock, cache lines moving between cores).
//
//   dovra_thread_scaling [trials [workload]]       both workloads (or one), medians
//   dovra_thread_scaling --run arrays|decode THREADS ROUNDS
//                                                  one workload, for a profiler
//
// Under callgrind, `--run decode 1 1` with --toggle-collect=one_round gives
// the instructions of one decode alone.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "ixtal/array.hpp"
#include "ixtal/json_host.hpp"
#include "ixtal/matrix.hpp"

namespace {

constexpr std::size_t kRecords = 20000;

std::string records_response() {
  std::string json = "{\"lhs\":[";
  for (std::size_t i = 0; i < kRecords; ++i) {
    if (i) json += ',';
    json += "{\"id\":" + std::to_string(i + 1) + ",\"name\":\"ab\",\"score\":1.5,\"ok\":true}";
  }
  return json + "]}";
}

// One round of a workload on the calling thread. Each thread makes its own
// state, as each decode does.
struct Workload {
  const char* name;
  std::function<std::function<void()>()> make;
};

std::function<void()> arrays_round() {
  const char* names[] = {"id", "name", "score", "ok"};
  auto model = std::make_shared<matrix::owned_array>(ixCreateStructMatrix(1, 1, 4, names));
  return [model] {
    const ixSize one[2] = {1, 1};
    matrix::owned_array cell(ixCreateCellMatrix(kRecords, 1));
    for (std::size_t i = 0; i < kRecords; ++i) {
      ixArray* r = ixCreateStructArrayLike(2, one, model->get());
      ixSetCell(cell.get(), i, r);
      ixSetFieldByNumber(r, 0, 0, ixCreateDoubleScalar(double(i + 1)));
      ixSetFieldByNumber(r, 0, 1, ixCreateStringFromUtf16(u"ab"));
      ixSetFieldByNumber(r, 0, 2, ixCreateDoubleScalar(1.5));
      ixSetFieldByNumber(r, 0, 3, ixCreateLogicalScalar(true));
    }
  };
}

std::function<void()> decode_round() {
  static const matrix::owned_array text = ixtal::json_host::text(records_response());
  return [] {
    if (ixGetNumberOfElements(ixtal::json_host::decode_response(text.get()).get()) != kRecords) std::abort();
  };
}

// Kept out of line so that a profiler can be pointed at one round alone.
[[gnu::noinline]] void one_round(const std::function<void()>& round) { round(); }

double thread_cpu_seconds() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

struct Timing {
  double wall = 0;  // seconds, first start to last finish
  double cpu = 0;   // seconds, all threads
};

Timing run(const Workload& w, int threads, int rounds) {
  std::atomic<int> ready{0};
  std::atomic<bool> go{false};
  std::vector<double> cpu(std::size_t(threads), 0.0);
  std::vector<std::thread> pool;
  for (int t = 0; t < threads; ++t)
    pool.emplace_back([&, t] {
      const std::function<void()> round = w.make();
      one_round(round);  // warm: first-use costs stay out of the timing
      ++ready;
      while (!go.load()) std::this_thread::yield();
      const double start = thread_cpu_seconds();
      for (int r = 0; r < rounds; ++r) one_round(round);
      cpu[std::size_t(t)] = thread_cpu_seconds() - start;
    });
  while (ready.load() < threads) std::this_thread::yield();
  const auto start = std::chrono::steady_clock::now();
  go = true;
  for (auto& th : pool) th.join();
  Timing out;
  out.wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  for (double c : cpu) out.cpu += c;
  return out;
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

const std::vector<Workload>& workloads() {
  static const std::vector<Workload> w = {{"arrays", arrays_round}, {"decode", decode_round}};
  return w;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 5 && std::strcmp(argv[1], "--run") == 0) {
    for (const Workload& w : workloads())
      if (w.name == std::string(argv[2])) {
        const Timing t = run(w, std::atoi(argv[3]), std::atoi(argv[4]));
        std::printf("%s: %.3f s wall, %.3f s CPU\n", w.name, t.wall, t.cpu);
        return 0;
      }
    std::fprintf(stderr, "no workload %s\n", argv[2]);
    return 2;
  }
  const int trials = argc > 1 ? std::max(1, std::atoi(argv[1])) : 7;
  constexpr int kRounds = 20;
  std::printf("%zu records a round, %d rounds a thread, %d trials; medians\n", kRecords, kRounds, trials);
  std::printf("%-8s %12s %12s %8s %14s %14s %10s\n", "workload", "1 thread/s", "2 threads/s", "wall x",
              "CPU ms/round 1", "CPU ms/round 2", "CPU ratio");
  for (const Workload& w : workloads()) {
    if (argc > 2 && w.name != std::string(argv[2])) continue;
    std::vector<double> one, two, wall_ratio, cpu_one, cpu_two, cpu_ratio;
    for (int i = 0; i < trials; ++i) {
      const Timing a = run(w, 1, kRounds);
      const Timing b = run(w, 2, kRounds);
      one.push_back(kRounds / a.wall);
      two.push_back(2 * kRounds / b.wall);
      wall_ratio.push_back(two.back() / one.back());
      cpu_one.push_back(1e3 * a.cpu / kRounds);
      cpu_two.push_back(1e3 * b.cpu / (2 * kRounds));
      cpu_ratio.push_back(cpu_two.back() / cpu_one.back());
    }
    std::printf("%-8s %12.1f %12.1f %8.2f %14.2f %14.2f %10.2f\n", w.name, median(one), median(two),
                median(wall_ratio), median(cpu_one), median(cpu_two), median(cpu_ratio));
  }
  return 0;
}
