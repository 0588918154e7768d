#!/usr/bin/env bash
# Builds the libFuzzer targets with clang in build-fuzz and runs each one for
# a while, starting from its seed corpus in fuzz/corpus/<name>.
#   scripts/fuzz.sh [seconds per target, default 60]
# Exits non-zero when a target finds a crash, a leak or a sanitizer report;
# the input that did it is left in build-fuzz/findings/.
set -euo pipefail

seconds="${1:-60}"
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="$root/build-fuzz"
jobs="${DOVRA_FUZZ_JOBS:-2}"

if ! command -v clang++ >/dev/null; then
  echo "fuzz.sh: clang++ is missing (apt-get install -y clang libclang-rt-14-dev)" >&2
  exit 2
fi

CXX=clang++ cmake -S "$root" -B "$build" -DDOVRA_BUILD_FUZZ=ON -DDOVRA_BUILD_TESTS=OFF >/dev/null

targets=()
for src in "$root"/fuzz/fuzz_*.cpp; do
  targets+=("$(basename "$src" .cpp)")
done
make -C "$build" -j"$jobs" "${targets[@]}" >/dev/null

mkdir -p "$build/findings"
status=0
for target in "${targets[@]}"; do
  name="${target#fuzz_}"
  work="$root/fuzz/corpus-run/$name"  # grows across runs; never committed
  mkdir -p "$work"
  seeds=()
  [ -d "$root/fuzz/corpus/$name" ] && seeds=("$root/fuzz/corpus/$name")
  echo "fuzz.sh: $target for ${seconds}s"
  if ! "$build/bin/$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
      -artifact_prefix="$build/findings/$target-" "$work" "${seeds[@]}" 2>"$build/findings/$target.log"; then
    echo "fuzz.sh: $target failed; see $build/findings/$target.log" >&2
    tail -n 40 "$build/findings/$target.log" >&2
    status=1
  else
    grep -E "stat::number_of_executed_units|stat::new_units_added" "$build/findings/$target.log" || true
  fi
done
exit "$status"
