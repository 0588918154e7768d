#!/usr/bin/env bash
# Runs the benchmark suite in one go: installs Google Benchmark and the peer
# libraries, writes the data sets (fixed seed, into bench/data/), builds the
# benchmark in build-bench, runs every case five times, measures the peak
# memory of decoding the double matrix, and prints the summary: our MB/s per
# workload and the ratio to each peer. Last, dovra-json and its peer program
# run as whole processes on the matrix file (bench/process_bench.py). The summary is also left in
# build-bench/bench-results/summary.md.
#
# Every case runs in a process of its own: what one case leaves in the heap
# (the allocator's thresholds, free lists) moved another case's figures by
# up to 20%, so a case's figure would have depended on the cases before it.
#
# With --shapes it runs the shape suite instead (bench/shapes.cpp): every
# payload shape decoded and encoded next to yyjson (built from
# ../shared/peers/yyjson) in one process, 7 repetitions interleaved at
# random, then every target printed as met or NOT met
# (build-bench/bench-results/shapes.md). A few minutes.
#
# Usage: scripts/bench.sh [Google Benchmark flags, e.g. --benchmark_filter=decode
#                          or --benchmark_repetitions=3]
#        scripts/bench.sh --shapes [Google Benchmark flags]
set -euo pipefail
cd "$(dirname "$0")/.."
if [[ "${1:-}" == "--shapes" ]]; then
  shift
  bash scripts/setup.sh libfast-float-dev libbenchmark-dev libsimdjson-dev rapidjson-dev python3
  python3 bench/gen_data.py
  cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DDOVRA_BUILD_TESTS=OFF -DDOVRA_BUILD_BENCH=ON >/dev/null
  cmake --build build-bench -j2 --target dovra_bench >/dev/null
  out=build-bench/bench-results
  mkdir -p "$out"
  echo "shape suite: load average $(cut -d' ' -f1-3 /proc/loadavg) at the start"
  # Interleaving the repetitions at random spreads the shared machine's
  # load over every case instead of letting it fall on a few.
  build-bench/bin/dovra_bench --shapes --benchmark_repetitions=7 --benchmark_enable_random_interleaving=true \
    --benchmark_min_time=0.1 --benchmark_display_aggregates_only=true "$@" \
    --benchmark_out="$out/shapes.json" --benchmark_out_format=json 2>"$out/shapes-stderr.log" | grep -E "_median|ERROR" || true
  echo
  python3 bench/shapes_summary.py "$out/shapes.json" | tee "$out/shapes.md"
  exit 0
fi
bash scripts/setup.sh libfast-float-dev libbenchmark-dev libsimdjson-dev rapidjson-dev python3 time python3-dev python3-numpy \
  python3-pybind11 pybind11-dev python3-ujson python3-rapidjson
python3 bench/gen_data.py
cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DDOVRA_BUILD_TESTS=OFF -DDOVRA_BUILD_BENCH=ON >/dev/null
cmake --build build-bench -j2 --target dovra_bench dovra_process_peer dovra-json dovra_json_native >/dev/null

bin=build-bench/bin/dovra_bench
out=build-bench/bench-results
mkdir -p "$out"
rm -f "$out"/case-*.json "$out/stderr.log"

mapfile -t cases < <("$bin" --benchmark_list_tests "$@")
echo "${#cases[@]} cases, 5 repetitions each (medians shown; CPU time is the one that counts)"
i=0
for c in "${cases[@]}"; do
  i=$((i + 1))
  "$bin" --benchmark_repetitions=5 --benchmark_display_aggregates_only=true "$@" \
    --benchmark_filter="^${c}\$" --benchmark_out="$out/case-$(printf %03d "$i").json" \
    --benchmark_out_format=json 2>>"$out/stderr.log" | grep -E "_median|ERROR" | uniq || true
done

: >"$out/peak_rss.jsonl"
for impl in ours simdjson rapidjson; do
  "$bin" --peak-rss="$impl" >>"$out/peak_rss.jsonl"
done
echo
python3 bench/summarize.py --peak "$out/peak_rss.jsonl" "$out"/case-*.json | tee "$out/summary.md"
echo
/usr/bin/python3 bench/process_bench.py build-bench bench/data/doubles_1000x1000.json | tee -a "$out/summary.md"

echo
echo "Python: dovra_json against json, ujson and rapidjson with NumPy"
PYTHONPATH=build-bench/python /usr/bin/python3 bench/python_bench.py bench/data | tee "$out/python.md"
