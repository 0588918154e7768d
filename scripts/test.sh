#!/usr/bin/env bash
# Builds the project and runs the whole test suite: the plain build, the
# suite again under AddressSanitizer+UndefinedBehaviorSanitizer (leak
# checking on), the concurrency tests under ThreadSanitizer, and a short run
# of every fuzzer.
#   scripts/test.sh            everything (what CI runs)
#   scripts/test.sh --quick    the plain build and suite only
set -euo pipefail
cd "$(dirname "$0")/.."
quick=0
[ "${1:-}" = "--quick" ] && quick=1

stage() { printf '\n=== %s (%s)\n' "$1" "$(date +%T)"; }

# The Python module and its tests need Debian's interpreter with these; the
# package's tests also install it with pip and build a wheel, type-check a
# client of it and run the Dask example.
python_packages=(python3-dev python3-numpy python3-pybind11 pybind11-dev python3-pytest python3-hypothesis
  python3-pip python3-venv python3-setuptools python3-wheel python3-build python3-mypy
  python3-dask python3-distributed)
if ((quick)); then
  bash scripts/setup.sh libfast-float-dev "${python_packages[@]}"
else
  bash scripts/setup.sh libfast-float-dev clang libclang-rt-14-dev "${python_packages[@]}"
fi

stage "plain build and tests"
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release -DDOVRA_BUILD_TESTS=ON >/dev/null
cmake --build build -j2
ctest --test-dir build -j2 --output-on-failure
((quick)) && exit 0

stage "tests under AddressSanitizer and UndefinedBehaviorSanitizer"
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DDOVRA_SANITIZE=address -DDOVRA_BUILD_TESTS=ON >/dev/null
cmake --build build-asan -j2
ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build-asan -j2 --output-on-failure

stage "concurrency tests under ThreadSanitizer"
cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DDOVRA_SANITIZE=thread -DDOVRA_BUILD_TESTS=ON >/dev/null
cmake --build build-tsan -j2 --target test_concurrency
TSAN_OPTIONS=halt_on_error=1 ctest --test-dir build-tsan -R '^Concurrency' --output-on-failure

stage "fuzzing, ${DOVRA_FUZZ_SECONDS:-60} s per target"
bash scripts/fuzz.sh "${DOVRA_FUZZ_SECONDS:-60}"
stage "done"
