#!/usr/bin/env bash
# Scale: dovra-json on documents of about 2 GB, set against the same shape
# at 20 MB. Two shapes: a matrix of numbers (decoded), and white space with
# an error near the end (refused, with the error's offset exact). Prints
# throughput and peak RSS per size; the targets are a 2 GB throughput at
# least 0.8 of the 20 MB one, and a peak RSS at most 3.5 times the text.
# Not part of CI: it needs about 4 GB of disk in $TMPDIR and 10 GB of memory.
#
#   bash bench/scale.sh [BUILD_DIR]   (default: build)
set -euo pipefail
cd "$(dirname "$0")/.."
cli="${1:-build}/bin/dovra-json"
tmp="$(mktemp -d "${TMPDIR:-/tmp}/dovra-scale-XXXXXX")"
trap 'rm -rf "$tmp"' EXIT

# A document of rows of numbers: one row written once, repeated.
numbers() {  # bytes path
  /usr/bin/python3 - "$1" "$2" <<'PY'
import sys
size, path = int(sys.argv[1]), sys.argv[2]
row = "[" + ",".join(f"{(i * 7919) % 100000 / 997:.6f}" for i in range(1000)) + "]"
n = max(1, size // (len(row) + 1))
with open(path, "w") as f:
    f.write("[")
    for i in range(n):
        f.write(row if i == 0 else "," + row)
    f.write("]")
PY
}

# White space inside an array, then an error: the offset reported must be
# the byte's own.
spaces() {  # bytes path
  /usr/bin/python3 - "$1" "$2" <<'PY'
import sys
size, path = int(sys.argv[1]), sys.argv[2]
block = " " * (1 << 20)
with open(path, "w") as f:
    f.write("[")
    for _ in range(size >> 20):
        f.write(block)
    f.write("x]")
PY
}

printf '| document | MB | s | MB/s | peak MB | peak / text | note |\n|---|---|---|---|---|---|---|\n'
for shape in numbers spaces; do
  for size in 20000000 2000000000; do
    doc="$tmp/$shape.json"
    "$shape" "$size" "$doc"
    bytes=$(stat -c %s "$doc")
    start=$(date +%s.%N)
    /usr/bin/time -f "%M" -o "$tmp/rss" "$cli" decode --error-format json "$doc" >/dev/null 2>"$tmp/err" || true
    end=$(date +%s.%N)
    note=$(grep -o '"arguments":\["[^"]*"' "$tmp/err" | sed 's/.*(byte offset \([0-9]*\)).*/offset \1/' || true)
    awk -v shape="$shape" -v b="$bytes" -v s="$start" -v e="$end" -v rss="$(tail -n 1 "$tmp/rss")" -v note="$note" \
      'BEGIN { t = e - s; printf "| %s | %.0f | %.2f | %.0f | %.0f | %.2f | %s |\n", shape, b / 1e6, t, b / 1e6 / t, rss * 1024 / 1e6, rss * 1024 / b, note }'
    rm -f "$doc"
  done
done
