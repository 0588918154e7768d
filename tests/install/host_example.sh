#!/bin/bash
# The README's host example, built as a user builds it: against an install
# tree, from a directory outside it, once with CMake's find_package and once
# with pkg-config, then run with no hint of where the builtins library is.
# Usage: host_example.sh SOURCE_DIR BINARY_DIR
set -euo pipefail
src=$1 build=$2
work=$(mktemp -d /tmp/dovra-install-test-XXXXXX)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix project=$work/project
unset DOVRA_JSON_BUILTINS

cmake --install "$build" --prefix "$prefix" >/dev/null

# The code block under "Loading the library from a host" is the example file.
mkdir -p "$project"
awk '/^## Loading the library from a host/ {s=1} s && /^```cpp$/ {c=1; next} c && /^```$/ {exit} c' \
  "$src/README.md" >"$project/host.cpp"
if ! diff -u "$src/examples/host/decode_and_encode.cpp" "$project/host.cpp"; then
  echo "README's host example differs from examples/host/decode_and_encode.cpp" >&2
  exit 1
fi

# The README's CMake lines, as a project of their own.
cat >"$project/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.25)
project(my_host LANGUAGES CXX)
set(CMAKE_CXX_STANDARD 20)
find_package(ixtal REQUIRED)
add_executable(my_host host.cpp)
target_link_libraries(my_host PRIVATE ixtal::ixtal)
CMAKE
cmake -S "$project" -B "$project/build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$project/build" >/dev/null

libdir=$(dirname "$(find "$prefix" -name 'libixtal.so' | head -1)")
PKG_CONFIG_PATH=$libdir/pkgconfig
export PKG_CONFIG_PATH
# shellcheck disable=SC2046
g++ -std=c++20 -o "$project/pc_host" "$project/host.cpp" $(pkg-config --cflags --libs ixtal)

expected=$(awk '/^<!-- host example output -->$/ {s=1; next} s && /^```$/ {if (c) exit; c=1; next} c' "$src/README.md")
cd "$work"  # neither the build tree nor the prefix
# The CMake build finds libixtal through its RPATH; a plain g++ build needs
# the loader's path, as any program linked against a non-system prefix.
for host in "$project/build/my_host" "LD_LIBRARY_PATH=$libdir $project/pc_host"; do
  got=$(env $host)
  if [ "$got" != "$expected" ]; then
    echo "$host printed:" >&2
    echo "$got" >&2
    echo "the README shows:" >&2
    echo "$expected" >&2
    exit 1
  fi
done
echo "install tree: both builds of the README's example print what the README shows"
