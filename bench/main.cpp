// dovra_bench: the benchmark suite; with --shapes the shape suite instead
// (shapes.cpp); with --peak-rss=IMPL a single decode of the double matrix
// that reports its peak memory as one JSON line.

#include <benchmark/benchmark.h>

#include <string_view>

#include "harness.hpp"
#include "peers/simdjson_peer.hpp"

int main(int argc, char** argv) {
  constexpr std::string_view peak_flag = "--peak-rss=";
  if (argc == 2 && std::string_view(argv[1]).substr(0, peak_flag.size()) == peak_flag)
    return dovra_bench::peak_rss_main(std::string(std::string_view(argv[1]).substr(peak_flag.size())));

  bool shapes = false;
  for (int i = 1; i < argc; ++i) {
    if (std::string_view(argv[i]) != "--shapes") continue;
    shapes = true;
    for (int j = i; j + 1 < argc; ++j) argv[j] = argv[j + 1];
    --argc;
    break;
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::AddCustomContext("simdjson_implementation", dovra_bench::peers::SimdjsonDecoder::implementation());
  if (shapes) {
    dovra_bench::register_shape_benchmarks();
  } else {
    dovra_bench::register_decode_benchmarks();
    dovra_bench::register_encode_benchmarks();
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
