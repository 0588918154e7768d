#!/usr/bin/env bash
# Builds the project and runs the command-line host on the examples: a
# matrix, a response with mixed outputs, a structure array, a conversion to
# small notation, and a document with a syntax error.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh libfast-float-dev python3-dev python3-numpy python3-pybind11 pybind11-dev python3-pytest python3-hypothesis
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release -DDOVRA_BUILD_TESTS=OFF >/dev/null
cmake --build build -j2 >/dev/null

session() {
  echo "\$ dovra-json $*"
  local status=0
  build/bin/dovra-json "$@" 2>&1 || status=$?
  [ "$status" -eq 0 ] || echo "(exit status $status)"
  echo
}
session decode examples/matrix.json
session decode --lhs examples/response.json
session decode examples/stations.json
session encode --format small examples/matrix.json
session decode examples/broken.json
session decode --error-format json examples/broken.json
