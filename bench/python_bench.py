#!/usr/bin/env python3
"""dovra_json against orjson and the standard json module, side by side in
one interpreter: decode and encode of matrices, responses of records and of
strings. Times are the best of five calls, the three implementations taking
turns; the peak memory of each decode is measured once more in a fresh
interpreter of the same kind (high-water mark above the state before the
call). Every target is printed with "met" or "NOT met".

Run it with an interpreter that sees NumPy, dovra_json and, if installed,
orjson; orjson's columns are skipped, with a message, where it is missing:

    PYTHONPATH=/usr/lib/python3/dist-packages:build/python python3 bench/python_bench.py [data dir]

The data are bench/gen_data.py's matrices and strings; the records are made
here, from a fixed seed.
"""

import gc
import json
import os
import random
import subprocess
import sys
import time

import numpy

import dovra_json

try:
    import orjson
except ImportError:
    orjson = None

HERE = os.path.dirname(os.path.abspath(__file__))
RUNS = 5
N_RECORDS = 20_000


def records_response():
    """20,000 records of five fields: an integer, a string, a double, a
    boolean and a row of three numbers, as the outputs of one response."""
    rng = random.Random(20261123)
    words = ["alpha", "Bergen", "C\u00f3rdoba", "delta \"quoted\"", "tab\there", "\u798f\u5ca1", "x" * 24]
    records = [{"id": i, "name": rng.choice(words) + str(rng.randint(0, 999)), "score": rng.gauss(50.0, 20.0),
                "active": rng.random() < 0.5, "pos": [rng.uniform(-90, 90), rng.uniform(-180, 180), rng.randint(0, 9)]}
               for i in range(N_RECORDS)]
    return json.dumps({"lhs": records}, ensure_ascii=False, separators=(",", ":"))


def read(data, name):
    with open(os.path.join(data, name), encoding="utf-8") as f:
        return f.read()


def dumps_numpy(a):
    return orjson.dumps(a, option=orjson.OPT_SERIALIZE_NUMPY)


def cases(data):
    """(name, what is measured, the input, {implementation: call})."""
    doubles = read(data, "doubles_1000x1000.json")
    integers = read(data, "integers_1000x1000.json")
    matrix = numpy.array(json.loads(doubles))
    int32 = numpy.array(json.loads(integers), dtype="int32")
    yield ("decode 1000x1000 doubles -> float64", "decode", doubles, {
        "dovra_json": dovra_json.decode,
        "orjson": orjson and (lambda t: numpy.array(orjson.loads(t))),
        "json": lambda t: numpy.array(json.loads(t))})
    yield ("decode 1000x1000 integers", "decode", integers, {
        "dovra_json": dovra_json.decode,
        "orjson": orjson and (lambda t: numpy.array(orjson.loads(t))),
        "json": lambda t: numpy.array(json.loads(t))})
    # Ours is given the Fortran-ordered array decode returns; the peers the
    # C-ordered array NumPy makes by default.
    for name, c_order in (("encode 1000x1000 float64, small notation", matrix), ("encode 1000x1000 int32", int32)):
        f_order = numpy.asfortranarray(c_order)
        yield (name, "encode", (f_order, c_order), {
            "dovra_json": lambda a: dovra_json.encode(a[0], format="small"),
            "orjson": orjson and (lambda a: dumps_numpy(a[1])),
            "json": lambda a: json.dumps(a[1].tolist())})
    for name, text in (("decode_response of 20,000 records", records_response()),
                       ("decode_response of 100,000 strings", read(data, "strings_100k.json"))):
        yield (name, "decode", text, {"dovra_json": dovra_json.decode_response,
                                      "orjson": orjson and orjson.loads, "json": json.loads})


def best_of(calls, value):
    """Best time of RUNS calls of each implementation, taking turns."""
    times = {impl: [] for impl in calls}
    for _ in range(RUNS):
        for impl, call in calls.items():
            gc.collect()
            start = time.perf_counter()
            result = call(value)
            times[impl].append(time.perf_counter() - start)
            del result
    return {impl: min(t) for impl, t in times.items()}


# Linux resets the high-water mark of the resident set when "5" is written
# to clear_refs: the peak is then the call's own, above the text it reads.
CHILD = """
import gc, json, re, sys, numpy, dovra_json
try:
    import orjson
except ImportError:
    pass
def status(key):
    with open("/proc/self/status") as f:
        return int(re.search(key + r":\\s+(\\d+)", f.read()).group(1))
t = open(sys.argv[1], encoding="utf-8").read()
call = {call}
call({warm!r})  # loads what the first call loads
gc.collect()
with open("/proc/self/clear_refs", "w") as f:
    f.write("5")
base = status("VmRSS")
r = call(t)
print((status("VmHWM") - base) / 1024)
"""
PEAK_CALLS = {"dovra_json": ("dovra_json.decode", "dovra_json.decode_response"),
              "orjson": ("lambda t: numpy.array(orjson.loads(t))", "orjson.loads"),
              "json": ("lambda t: numpy.array(json.loads(t))", "json.loads")}


def peak_mb(impl, response, text):
    """Peak memory of one decode in a fresh interpreter, MB above the state
    after reading the text."""
    path = os.path.join(os.environ.get("TMPDIR", "/tmp"), f"python_bench_{os.getpid()}.json")
    with open(path, "w", encoding="utf-8") as f:
        f.write(text)
    try:
        code = CHILD.format(call=PEAK_CALLS[impl][response], warm='{"lhs":[1]}' if response else "[1]")
        out = subprocess.run([sys.executable, "-c", code, path], check=True, capture_output=True, text=True)
        return float(out.stdout)
    finally:
        os.remove(path)


def verdict(ok):
    return "met" if ok else "NOT met"


def main():
    data = sys.argv[1] if len(sys.argv) > 1 else os.path.join(HERE, "data")
    interpreter = f"{sys.executable} (Python {sys.version.split()[0]}, NumPy {numpy.__version__})"
    print(f"dovra_json: {interpreter}, module {dovra_json.__file__}")
    print(f"orjson: {interpreter}, orjson {orjson.__version__}" if orjson else
          f"orjson: skipped, not installed for {sys.executable}; run with an interpreter that has it")
    print(f"json: {interpreter}\n")
    print("| workload | dovra_json | orjson | json | dovra_json speed vs orjson | vs json | peak MB: ours / orjson / json |")
    print("|---|---|---|---|---|---|---|")
    targets = []
    for name, kind, value, calls in cases(data):
        calls = {impl: call for impl, call in calls.items() if call}
        t = best_of(calls, value)
        ours = t["dovra_json"]
        ratio = {impl: t[impl] / ours for impl in t}
        peaks = {}
        if kind == "decode":
            peaks = {impl: peak_mb(impl, name.startswith("decode_response"), value) for impl in calls}
        cell = lambda impl, f: f(impl) if impl in t else "skipped"  # noqa: E731
        print(f"| {name} | {ours * 1e3:.1f} ms | {cell('orjson', lambda i: f'{t[i] * 1e3:.1f} ms')} | "
              f"{t['json'] * 1e3:.1f} ms | {cell('orjson', lambda i: f'{ratio[i]:.2f}x')} | {ratio['json']:.2f}x | "
              + (" / ".join(f"{peaks[i]:.1f}" if i in peaks else "skipped" for i in ("dovra_json", "orjson", "json"))
                 if peaks else "") + " |")

        def against_orjson(need, what):
            if "orjson" not in t:
                targets.append(f"{name}: {what} >= {need}x orjson: not measured (no orjson)")
            else:
                targets.append(f"{name}: {what} {ratio['orjson']:.2f}x orjson, target >= {need}x: "
                               f"{verdict(ratio['orjson'] >= need)}")
        if name.startswith("decode_response"):
            targets.append(f"{name}: {ratio['json']:.2f}x json.loads, target >= 1.5x: {verdict(ratio['json'] >= 1.5)}")
            against_orjson(0.8, "aim:")
        elif name.startswith("decode"):
            against_orjson(3 if "doubles" in name else 5, "speed")
        else:
            against_orjson(1.2, "speed")
        if peaks:
            fastest = min((i for i in t if i != "dovra_json"), key=t.get)
            targets.append(f"{name}: peak {peaks['dovra_json']:.1f} MB, fastest peer ({fastest}) "
                           f"{peaks[fastest]:.1f} MB, target at most that: "
                           f"{verdict(peaks['dovra_json'] <= peaks[fastest] + 0.5)}")
    print("\nTargets:")
    for line in targets:
        print("- " + line)


if __name__ == "__main__":
    main()
