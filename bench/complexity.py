#!/usr/bin/python3
"""Growth of time and peak memory with input size, one adversarial shape at a time.

Each shape is written at n, 4n and 16n and run through `dovra-json decode`
(and `encode` where the shape is a value encode can write back). The factor
printed is how much faster than the input the cost grew from n to 16n:
(cost(16n) / cost(n)) / 16, so 1.00 is linear and a quadratic path shows as
about 16. Memory is peak RSS above that of decoding a trivial document, so
the process's fixed cost does not hide growth. Every factor should stay
within 1.3 (n log n shows as about 1.2 over this range).

Not part of CI: the machine is shared, and timings want a quiet one.

    /usr/bin/python3 bench/complexity.py [--cli build/bin/dovra-json] [--scale 1.0] [--shape NAME]
"""

import argparse
import os
import subprocess
import sys
import tempfile


def keys(n):
    return "{" + ",".join('"k%d":%d' % (i, i % 10) for i in range(n)) + "}"


def fields(n):
    return ('{"tntype":"struct","tnsize":[1,1],"tndata":{'
            + ",".join('"k%d":[%d]' % (i, i % 10) for i in range(n)) + "}}")


def duplicate_keys(n):
    return "{" + ",".join('"k%d":%d' % (i % 16, i % 10) for i in range(n)) + "}"


def scalar_cell(n):
    return ('{"tntype":"cell","tnsize":[%d,1],"tndata":[' % n
            + ",".join(str(i % 10) for i in range(n)) + "]}")


def struct_array(n):
    return "[" + ",".join('{"a":%d,"b":"x"}' % (i % 10) for i in range(n)) + "]"


def response(n):
    return '{"lhs":[' + ",".join(str(i % 10) for i in range(n)) + "]}"


def escapes(n):
    return '"' + "\\n\\u00e9\\\"" * n + '"'


def long_number(n):
    return "1" + "2" * n + "e-%d" % n


def white_space(n):
    return " \n\t\r" * n + "[1]" + " " * n


def deep_side_by_side(n):
    # The outer bracket plus 999 inside: the deepest nesting decode accepts.
    deep = "[" * 999 + "1" + "]" * 999
    return "[" + ",".join([deep] * n) + "]"


def huge_tnsize(n):
    # A size vector of n ones around a single element.
    return '{"tntype":"double","tnsize":[' + ",".join(["1"] * n) + '],"tndata":[5]}'


def error_at_end(n):
    return "[" + "1," * n + "]"


# name, generator, n, run encode too, decode options
SHAPES = [
    ("many keys", keys, 60000, True, []),
    ("many fields", fields, 60000, True, []),
    ("many duplicate keys", duplicate_keys, 500000, True, []),
    ("cell of n scalars", scalar_cell, 60000, True, []),
    ("struct array", struct_array, 60000, True, []),
    ("n outputs in a response", response, 60000, False, ["--lhs"]),
    ("long string of escapes", escapes, 200000, True, []),
    ("very long number", long_number, 4000000, True, []),
    ("white space", white_space, 1000000, True, []),
    ("deepest nesting side by side", deep_side_by_side, 250, True, []),
    ("huge tnsize, one element", huge_tnsize, 500000, False, []),
    ("error at the end of a long line", error_at_end, 1000000, False, []),
]


def run(cli, argv, path):
    """CPU seconds (user + system) and peak RSS (KiB) of one run of the CLI on path."""
    # GNU time reports the CLI alone (a child forked from this interpreter
    # would carry the interpreter's own peak across exec), and CPU time is
    # less disturbed than wall time by whatever else the machine runs.
    report = path + ".time"
    with open(os.devnull, "wb") as sink:
        code = subprocess.call(["/usr/bin/time", "-o", report, "-f", "%U %S %M", cli] + argv + [path],
                               stdout=sink, stderr=sink)
    if code not in (0, 1):
        sys.exit("%s %s: exit %d" % (" ".join(argv), path, code))
    with open(report) as f:
        user, system, rss = f.read().split()[-3:]
    return float(user) + float(system), int(rss)


def best(cli, argv, path, repeats):
    runs = [run(cli, argv, path) for _ in range(repeats)]
    return min(r[0] for r in runs), min(r[1] for r in runs)


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--cli", default=os.path.join(here, "..", "build", "bin", "dovra-json"))
    parser.add_argument("--scale", type=float, default=1.0, help="multiply every n")
    parser.add_argument("--repeats", type=int, default=3, help="runs per point; the best is kept")
    parser.add_argument("--shape", action="append", help="only shapes whose name contains this")
    args = parser.parse_args()

    with tempfile.TemporaryDirectory() as tmp:
        trivial = os.path.join(tmp, "trivial.json")
        with open(trivial, "w") as f:
            f.write("[1]")
        base_time, base_rss = best(args.cli, ["decode"], trivial, args.repeats)

        print("%-33s %-7s %9s %9s  %-26s %-22s %6s %6s" % (
            "shape", "step", "n", "bytes", "CPU s n/4n/16n", "peak MiB n/4n/16n", "time", "memory"))
        worst = 1.0
        for name, make, n, encode, options in SHAPES:
            if args.shape and not any(s in name for s in args.shape):
                continue
            n = max(1, int(n * args.scale))
            paths = []
            for k in (1, 4, 16):
                path = os.path.join(tmp, "%s-%d.json" % (make.__name__, k))
                with open(path, "w") as f:
                    f.write(make(n * k))
                paths.append(path)
            for step in ["decode"] + (["encode"] if encode else []):
                points = [best(args.cli, [step] + options, p, args.repeats) for p in paths]
                t = [max(p[0] - base_time, 1e-4) for p in points]
                m = [max(p[1] - base_rss, 1) for p in points]
                tf, mf = t[2] / t[0] / 16, m[2] / m[0] / 16
                worst = max(worst, tf, mf)
                print("%-33s %-7s %9d %9d  %-26s %-22s %6.2f %6.2f" % (
                    name, step, n, os.path.getsize(paths[2]),
                    "/".join("%.3f" % x for x in t), "/".join("%.1f" % (x / 1024) for x in m), tf, mf),
                    flush=True)
        print("worst factor %.2f (linear 1.00, limit 1.30)" % worst)
        return 0 if worst <= 1.3 else 1


if __name__ == "__main__":
    sys.exit(main())
