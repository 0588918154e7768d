#!/usr/bin/env bash
# Builds the project and runs the command-line host on an example.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release -DDOVRA_BUILD_TESTS=OFF >/dev/null
cmake --build build -j2 >/dev/null
if [ -x build/bin/dovra-json ]; then
  for f in examples/*.json; do
    echo "\$ dovra-json decode $f"
    build/bin/dovra-json decode "$f" || true
  done
else
  build/bin/dovra-demo-host
fi
