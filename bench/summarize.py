#!/usr/bin/env python3
"""Prints the summary of a benchmark run as Markdown tables.

    python3 bench/summarize.py [--peak PEAK_RSS.jsonl] RESULTS.json...

Each RESULTS.json is a --benchmark_out file of dovra_bench (JSON, with
repetitions), one per case when every case ran in a process of its own;
PEAK_RSS.jsonl holds the lines of `dovra_bench --peak-rss=IMPL`. Throughput
is the median over the repetitions of CPU-time MB/s (MB = 10^6 bytes of
JSON text); every implementation of a workload is credited with the same
text size, so a ratio of MB/s is a ratio of time.
"""

import argparse
import json
import platform
import subprocess
import sys

DECODE_PEERS = ["simdjson", "rapidjson"]
ENCODE_PEERS = ["rapidjson", "to_chars"]

# The goals of the optimisation work, as (peer or None, minimum). A peer
# means the ratio ours/peer; None means ours' own MB/s.
TARGETS = {
    "decode/doubles_1000x1000": ("simdjson", 1.0),
    "decode/integers_1000x1000": ("simdjson", 0.85),
    "decode/int32_1e6": ("simdjson", 1.0),
    "decode/strings_100k": ("rapidjson", 1.0),
    "decode/records_20k": ("rapidjson", 0.6),
    "encode/doubles_1000x1000_small": ("rapidjson", 1.5),
    "encode/doubles_1000x1000_large": ("rapidjson", 1.5),
    "encode/int32_1000x1000": ("rapidjson", 1.2),
    "encode/complex_1000x1000_small": ("rapidjson", 1.5),
    "encode/complex_1000x1000_large": ("rapidjson", 1.5),
    "encode/records_1x10000_20_fields": ("rapidjson", 1.0),
}
PEAK_TARGET = 3.0  # times the text size, above the baseline


def load_results(paths):
    """{(workload, impl): {"mbps": median MB/s, "cv": percent} or {"error": text}}"""
    context, benchmarks = None, []
    for path in paths:
        with open(path) as f:
            doc = json.load(f)
        context = context or doc["context"]
        benchmarks.extend(doc["benchmarks"])
    out, order = {}, []
    for b in benchmarks:
        op, workload, impl = b["run_name"].split("/")
        key = (op + "/" + workload, impl)
        if key[0] not in order:
            order.append(key[0])
        entry = out.setdefault(key, {})
        if b.get("error_occurred"):
            entry["error"] = b.get("error_message", "error")
        elif b.get("aggregate_name") == "median":
            entry["mbps"] = b["bytes_per_second"] / 1e6
        elif b.get("aggregate_name") == "cv":
            entry["cv"] = 100.0 * b["cpu_time"]
        elif b.get("run_type") == "iteration" and "mbps" not in entry:
            entry.setdefault("runs", []).append(b["bytes_per_second"] / 1e6)
    for entry in out.values():
        # A run with one repetition has no aggregates.
        runs = sorted(entry.pop("runs", []))
        if "mbps" not in entry and "error" not in entry and runs:
            entry["mbps"] = runs[len(runs) // 2]
    return context, order, out


def fmt_mbps(entry):
    if entry is None:
        return "-"
    if "error" in entry:
        return "error"
    return "%.0f" % entry["mbps"]


def ratio(results, workload, peer):
    ours, other = results.get((workload, "ours")), results.get((workload, peer))
    if not ours or not other or "mbps" not in ours or "mbps" not in other:
        return None
    return ours["mbps"] / other["mbps"]


def target_text(results, workload):
    if workload not in TARGETS:
        return ""
    peer, minimum = TARGETS[workload]
    if peer is None:
        ours = results.get((workload, "ours"), {})
        value, goal = ours.get("mbps"), ">= %.0f MB/s" % minimum
    else:
        value, goal = ratio(results, workload, peer), "%s >= %.2g" % (peer, minimum)
    if value is None:
        return goal + ": n/a"
    return "%s: %s" % (goal, "met" if value >= minimum else "not met")


def table(results, order, op, peers):
    head = ["workload", "ours MB/s", "ours cv %"]
    for p in peers:
        head += [p + " MB/s", "ours/" + p]
    head.append("target")
    lines = ["| " + " | ".join(head) + " |", "|" + "|".join("---" for _ in head) + "|"]
    for workload in order:
        if not workload.startswith(op + "/"):
            continue
        ours = results.get((workload, "ours"))
        row = [workload, fmt_mbps(ours), "%.1f" % ours["cv"] if ours and "cv" in ours else "-"]
        for p in peers:
            r = ratio(results, workload, p)
            row += [fmt_mbps(results.get((workload, p))), "%.2f" % r if r is not None else "-"]
        row.append(target_text(results, workload))
        lines.append("| " + " | ".join(row) + " |")
    return "\n".join(lines)


def peak_table(path):
    lines = ["| decode/doubles_1000x1000 | peak RSS above baseline | x text size | note |", "|---|---|---|---|"]
    with open(path) as f:
        for line in f:
            line = line.strip()
            if not line:
                continue
            p = json.loads(line)
            if p.get("status") != "ok" or "above_baseline" not in p:
                lines.append("| %s | error | - | %s |" % (p.get("implementation"), p.get("status")))
                continue
            times = p["above_baseline"] / p["text_bytes"]
            note = ""
            if p["implementation"] == "ours":
                note = "target <= %.0fx: %s; includes the 8 MB result" % (
                    PEAK_TARGET, "met" if times <= PEAK_TARGET else "not met")
            else:
                note = "output buffer made before the baseline"
            if not p.get("peak_was_reset"):
                note += "; high-water mark could not be reset"
            lines.append("| %s | %.1f MB | %.2f | %s |" % (p["implementation"], p["above_baseline"] / 1e6, times, note))
    return "\n".join(lines)


def machine(context):
    model = "unknown processor"
    try:
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name"):
                    model = line.split(":", 1)[1].strip()
                    break
    except OSError:
        pass
    try:
        gxx = subprocess.run(["g++", "-dumpfullversion"], capture_output=True, text=True).stdout.strip()
    except OSError:
        gxx = "?"
    load = ", ".join("%.2f" % x for x in context.get("load_avg", []))
    return ("%s; %s, %d cores at %d MHz; %s; g++ %s; simdjson kernel %s; load average at start %s" % (
        context.get("date", "?")[:16].replace("T", " "), model, context.get("num_cpus", 0),
        context.get("mhz_per_cpu", 0), platform.platform(terse=True), gxx,
        context.get("simdjson_implementation", "?"), load))


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--peak", help="the --peak-rss lines")
    ap.add_argument("results", nargs="+")
    args = ap.parse_args()
    context, order, results = load_results(args.results)
    print("Run: " + machine(context))
    print()
    print(table(results, order, "decode", DECODE_PEERS))
    print()
    print(table(results, order, "encode", ENCODE_PEERS))
    if args.peak:
        print()
        print(peak_table(args.peak))
    errors = sorted({(k, v["error"]) for k, v in results.items() if "error" in v})
    if errors:
        print()
        for (workload, impl), text in errors:
            print("- %s/%s: %s" % (workload, impl, text))
    return 0


if __name__ == "__main__":
    sys.exit(main())
