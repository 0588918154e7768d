#!/usr/bin/env python3
"""Prints the shape suite's figures and every target as "met" or "NOT met".

    python3 bench/shapes_summary.py RESULTS.json

RESULTS.json is the --benchmark_out file (JSON) of one `dovra_bench --shapes`
run with repetitions. Decode and encode figures are medians of CPU-time MB/s
(MB = 10^6 bytes; every implementation of a case is credited with the same
text size, so a ratio of MB/s is a ratio of time); the shortest-double writer
is CPU nanoseconds per double; the thread figures are wall-clock MB/s of all
threads together, each thread decoding (or encoding) and destroying its
result in turn.
"""

import argparse
import json
import re
import statistics
import sys

sys.dont_write_bytecode = True  # no __pycache__ beside the sources
from summarize import machine  # noqa: E402

RECORD_SHAPES = ["response_flat", "response_row", "response_nested", "cell_flat", "cell_row", "cell_nested",
                 "mixed_4000"]
TYPED_SHAPES = ["doubles_1000x1000", "integers_1000x1000", "int32_1e6"]

# (minimum ratio, what it is measured against)
DECODE_TARGETS = dict({s: (0.5, "yyjson parse + walk") for s in RECORD_SHAPES},
                      strings_100k=(0.8, "yyjson parse + copy of each string"),
                      **{s: (1.2, "the faster of simdjson and yyjson") for s in TYPED_SHAPES})
ENCODE_TARGETS = dict({s: (0.7, "yyjson write") for s in RECORD_SHAPES if s.startswith("response") or s == "mixed_4000"},
                      doubles_1000x1000=(1.5, "yyjson build + write"),
                      complex_1000x1000=(1.5, "yyjson build + write"))
SHORTEST_TARGET_NS = 12.0
THREADS_TARGET = 1.8
# Below this, yyjson's parse + walk (which shares nothing between threads)
# shows that the machine did not give the run two cores.
CONTROL_MINIMUM = 1.7

NAME = re.compile(r"^shapes/(?P<op>[a-z_]+)/(?P<shape>[^/]+)/(?P<impl>[^/]+)(?:/min_time:[0-9.]+)?(?:/real_time)?(?:/threads:(?P<threads>\d+))?$")


# (op, shape): MB of text a case is credited with.
TEXT_MB = {}

# The order of the tables.
ORDER = RECORD_SHAPES + ["strings_100k"] + TYPED_SHAPES + ["complex_1000x1000"]


def in_order(shapes):
    return sorted(dict.fromkeys(shapes), key=lambda s: ORDER.index(s) if s in ORDER else len(ORDER))


def load(path):
    """The run's context and {(op, shape, impl, threads): {"rate": median, "cpu_time": median, "error": text}}."""
    with open(path) as f:
        doc = json.load(f)
    runs = {}
    for b in doc["benchmarks"]:
        m = NAME.match(b["run_name"])
        if not m:
            continue
        key = (m["op"], m["shape"], m["impl"], int(m["threads"] or 1))
        entry = runs.setdefault(key, {"runs": []})
        if b.get("error_occurred"):
            entry["error"] = b.get("error_message", "error")
        elif b.get("run_type") == "iteration":
            rate = b.get("bytes_per_second") or b.get("items_per_second")
            if rate:
                entry["runs"].append(rate)
                entry.setdefault("cpu", []).append(b["cpu_time"])
            if "text_MB" in b and m["op"] in ("decode", "encode"):
                TEXT_MB[(m["op"], m["shape"])] = b["text_MB"]
    for entry in runs.values():
        if entry["runs"]:
            entry["rate"] = statistics.median(entry["runs"])
            entry["cpu_time"] = statistics.median(entry["cpu"])
            entry["n"] = len(entry["runs"])
    return doc["context"], runs


def rate(runs, op, shape, impl, threads=1):
    e = runs.get((op, shape, impl, threads))
    return e.get("rate") if e else None


def mbps(x):
    return "-" if x is None else "%.0f" % (x / 1e6)


def verdict(value, minimum, at_most=False):
    if value is None:
        return "n/a"
    ok = value <= minimum if at_most else value >= minimum
    return "met" if ok else "NOT met"


class Targets:
    def __init__(self):
        self.rows = []

    def add(self, what, value, goal, text):
        self.rows.append((what, value, goal, text))
        return text


def ratio_cell(value, minimum, targets, what):
    if value is None:
        targets.add(what, None, minimum, "n/a")
        return "-", ">= %.2g: n/a" % minimum
    v = verdict(value, minimum)
    targets.add(what, value, minimum, v)
    return "%.2f" % value, ">= %.2g: %s" % (minimum, v)


def decode_table(runs, targets):
    lines = ["| decode | MB | ours MB/s | yyjson MB/s | simdjson MB/s | ratio | against | target |",
             "|---|---|---|---|---|---|---|---|"]
    for shape, (minimum, against) in DECODE_TARGETS.items():
        ours, yy, simd = (rate(runs, "decode", shape, i) for i in ("ours", "yyjson", "simdjson"))
        peer = max([p for p in (yy, simd) if p is not None], default=None) if shape in TYPED_SHAPES else yy
        r = ours / peer if ours and peer else None
        value, goal = ratio_cell(r, minimum, targets, "decode " + shape)
        mb = TEXT_MB.get(("decode", shape))
        lines.append("| %s | %s | %s | %s | %s | %s | %s | %s |" % (
            shape, "%.2f" % mb if mb else "-", mbps(ours), mbps(yy), mbps(simd), value, against, goal))
    return "\n".join(lines)


def encode_table(runs, targets):
    lines = ["| encode (small, compact) | ours MB/s | yyjson MB/s | ratio | against | target |",
             "|---|---|---|---|---|---|"]
    shapes = [s for (op, s, i, t) in runs if op == "encode" and i == "ours"]
    for shape in in_order(shapes):
        ours, yy = rate(runs, "encode", shape, "ours"), rate(runs, "encode", shape, "yyjson")
        r = ours / yy if ours and yy else None
        if shape in ENCODE_TARGETS:
            minimum, against = ENCODE_TARGETS[shape]
            value, goal = ratio_cell(r, minimum, targets, "encode " + shape)
        else:
            against = "yyjson write"
            value, goal = ("%.2f" % r if r else "-"), "(no target)"
        lines.append("| %s | %s | %s | %s | %s | %s |" % (shape, mbps(ours), mbps(yy), value, against, goal))
    return "\n".join(lines)


def shortest_table(runs, targets):
    lines = ["| shortest double writer | ns per double | ours / yyjson | target |", "|---|---|---|---|"]
    ns = {}
    for impl in ("ours", "yyjson"):
        r = rate(runs, "shortest", "doubles_1e6", impl)
        ns[impl] = 1e9 / r if r else None
    v = verdict(ns["ours"], SHORTEST_TARGET_NS, at_most=True)
    targets.add("shortest-double writer", ns["ours"], SHORTEST_TARGET_NS, v)
    fmt = lambda x: "%.1f" % x if x else "-"
    r = "%.2f" % (ns["ours"] / ns["yyjson"]) if ns["ours"] and ns["yyjson"] else "-"
    lines.append("| ours: the runtime's TextOutput::numbers (shortest text, comma, UTF-16) | %s | %s | <= %.0f ns: %s |" % (
        fmt(ns["ours"]), r, SHORTEST_TARGET_NS, v))
    lines.append("| yyjson: yyjson_write_number, comma | %s | | |" % fmt(ns["yyjson"]))
    enc, mb = rate(runs, "encode", "doubles_1000x1000", "ours"), TEXT_MB.get(("encode", "doubles_1000x1000"))
    if enc and mb:  # a million doubles an encode
        lines.append("| ours: the whole encode builtin on the 1000x1000 matrix, per double | %.1f | | |" % (1e9 * mb / enc))
    return "\n".join(lines)


def threads_table(runs, targets, op, controls):
    lines = ["| %s | ours 1 thread MB/s | ours 2 threads MB/s | ours ratio | target | yyjson ratio | ours, CPU time per call |" % (
        op + ", two threads against one (wall clock)"),
             "|---|---|---|---|---|---|---|"]
    name = "threads_" + op
    for shape in in_order(s for (o, s, i, t) in runs if o == name and i == "ours"):
        one, two = rate(runs, name, shape, "ours", 1), rate(runs, name, shape, "ours", 2)
        value, goal = ratio_cell(two / one if one and two else None, THREADS_TARGET, targets,
                                 "%s two threads %s" % (op, shape))
        y1, y2 = rate(runs, name, shape, "yyjson", 1), rate(runs, name, shape, "yyjson", 2)
        c1, c2 = (runs.get((name, shape, "ours", t), {}).get("cpu_time") for t in (1, 2))
        if y1 and y2:
            controls.append(y2 / y1)
        lines.append("| %s | %s | %s | %s | %s | %s | %s |" % (
            shape, mbps(one), mbps(two), value, goal, "%.2f" % (y2 / y1) if y1 and y2 else "-",
            "%.2f" % (2 * c1 / c2) if c1 and c2 else "-"))
    return "\n".join(lines)


THREADS_NOTE = """Two threads: each thread decodes (encodes) and destroys its result in turn,
the whole cycle a server pays; the ratio is the wall-clock throughput of
both together over one alone, and needs two idle cores. "yyjson ratio" is
the same for yyjson's parse + walk: what the machine gave two threads during
the run. "CPU time per call" is 2 x (CPU time per call with one thread) /
(with two): the ratio two free cores would give if the threads only slowed
each other by contention (shared cache lines, the allocator, the kernel),
not by waiting; it shows contention only when the threads did run at the
same time."""


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("results")
    args = ap.parse_args()
    context, runs = load(args.results)
    reps = max((e.get("n", 0) for e in runs.values()), default=0)
    targets = Targets()
    print("Shape suite: " + machine(context))
    print("Medians of %d repetitions; decode and encode in CPU time, threads in wall-clock time." % reps)
    print()
    print(decode_table(runs, targets))
    print()
    print(encode_table(runs, targets))
    print()
    print(shortest_table(runs, targets))
    print()
    controls = []
    print(threads_table(runs, targets, "decode", controls))
    print()
    print(threads_table(runs, targets, "encode", controls))
    print()
    print(THREADS_NOTE)
    if controls and statistics.median(controls) < CONTROL_MINIMUM:
        print()
        print("WARNING: yyjson's own two threads gave %.2f times one (median over the shapes): the machine had not "
              "two idle cores, so the thread verdicts above do not judge ours." % statistics.median(controls))
    errors = sorted({(k, v["error"]) for k, v in runs.items() if "error" in v})
    if errors:
        print()
        for (op, shape, impl, threads), text in errors:
            print("- error in %s/%s/%s (threads %d): %s" % (op, shape, impl, threads, text))
    met = sum(1 for r in targets.rows if r[3] == "met")
    print()
    print("Targets: %d met, %d NOT met, %d not measured (of %d)." % (
        met, sum(1 for r in targets.rows if r[3] == "NOT met"), sum(1 for r in targets.rows if r[3] == "n/a"),
        len(targets.rows)))
    return 0


if __name__ == "__main__":
    sys.exit(main())
