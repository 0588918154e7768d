#!/usr/bin/python3
"""Decode and encode the 1000x1000 double matrix from Python: dovra_json
against json, ujson and rapidjson with NumPy, side by side in one run.

Each case runs in a fresh interpreter of its own (so one case's heap does not
move another's figures), five times; the median wall time and the peak memory
above the interpreter's state before the call are reported.

Usage: PYTHONPATH=<build>/python /usr/bin/python3 bench/python_bench.py [data dir]
"""

import json
import os
import statistics
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
RUNS = 5

SETUP = {
    "dovra_json": "import dovra_json as m",
    "json": "import json as m",
    "ujson": "import ujson as m",
    "rapidjson": "import rapidjson as m",
}
DECODE = {
    "dovra_json": "r = m.decode(t)",
    "json": "r = numpy.array(m.loads(t))",
    "ujson": "r = numpy.array(m.loads(t))",
    "rapidjson": "r = numpy.array(m.loads(t))",
}
ENCODE = {
    "dovra_json": "r = m.encode(a, 'small')",
    "json": "r = m.dumps(a.tolist())",
    "ujson": "r = m.dumps(a.tolist())",
    "rapidjson": "r = m.dumps(a.tolist())",
}

CHILD = """
import json, resource, sys, time, numpy
{setup}
t = open(sys.argv[1]).read()
{prepare}
base = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
start = time.perf_counter()
{op}
seconds = time.perf_counter() - start
peak = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
print(seconds, (peak - base) / 1024)
"""


def run(setup, op, path):
    # The encode cases need the array; the decode cases must not have parsed
    # the text before their high-water mark is taken.
    prepare = "a = numpy.asfortranarray(numpy.array(json.loads(t)))" if "a" in op.split("(")[1] else ""
    out = subprocess.run([sys.executable, "-c", CHILD.format(setup=setup, op=op, prepare=prepare), path],
                         check=True, capture_output=True, text=True).stdout.split()
    return float(out[0]), float(out[1])


def main():
    data = sys.argv[1] if len(sys.argv) > 1 else os.path.join(HERE, "data")
    path = os.path.join(data, "doubles_1000x1000.json")
    mb = os.path.getsize(path) / 1e6
    print(f"| operation | implementation | median s | MB/s | peak MB above start | speed-up of dovra_json |")
    print("|---|---|---|---|---|---|")
    for name, ops in (("decode", DECODE), ("encode", ENCODE)):
        rows = {}
        for impl, op in ops.items():
            runs = [run(SETUP[impl], op, path) for _ in range(RUNS)]
            rows[impl] = (statistics.median(r[0] for r in runs), max(r[1] for r in runs))
        ours = rows["dovra_json"][0]
        for impl, (s, peak) in rows.items():
            print(f"| {name} | {impl} | {s:.3f} | {mb / s:.0f} | {peak:.0f} | {s / ours:.1f}x |")
        fastest = min(v[0] for k, v in rows.items() if k != "dovra_json")
        lowest = min(v[1] for k, v in rows.items() if k != "dovra_json")
        target = 8 if name == "decode" else 5
        print(f"| {name} | target | {fastest / ours:.1f}x the fastest peer (>= {target}x: "
              f"{'met' if fastest / ours >= target else 'NOT met'}); peak {rows['dovra_json'][1]:.0f} MB "
              f"vs lowest peer {lowest:.0f} MB ({'met' if rows['dovra_json'][1] < lowest else 'NOT met'}) | | | | |")


if __name__ == "__main__":
    main()
