#!/usr/bin/env python3
"""Growth of time and peak memory with input size, for hostile shapes.

Each shape is generated at n, 4n and 16n and decoded by a fresh dovra-json
process. The script prints, per shape, the CPU time and peak RSS at each
size (less those of a trivial document, so that process start-up does not
hide growth) and the growth factor of each step divided by 4: 1.0 is linear,
4.0 would be quadratic. A factor within 1.3 passes (n log n stays inside
it over these sizes).

    /usr/bin/python3 bench/complexity.py [--cli build/bin/dovra-json] [--scale K]

Not part of CI: the sizes are chosen so that the largest documents take a
second or so each.
"""

import argparse
import os
import subprocess
import sys
import tempfile


def keys(n):
    return "{" + ",".join(f'"k{i}":{i}' for i in range(n)) + "}"


def fields(n):
    body = ",".join(f'"f{i}":[{i}]' for i in range(n))
    return '{"tntype":"struct","tnsize":[1,1],"tndata":{' + body + "}}"


def duplicate_keys(n):
    return "{" + ",".join(f'"k{i % 16}":{i}' for i in range(n)) + "}"


def cell_of_scalars(n):
    return '{"tntype":"cell","tnsize":[1,%d],"tndata":[%s]}' % (n, ",".join(str(i % 10) for i in range(n)))


def struct_array(n):
    col = ",".join(str(i % 10) for i in range(n))
    return '{"tntype":"struct","tnsize":[1,%d],"tndata":{"a":[%s],"b":[%s]}}' % (n, col, col)


def response(n):
    return '{"lhs":[' + ",".join(str(i % 10) for i in range(n)) + "]}"


def escapes(n):
    return '"' + "\\n\\u00e9\\\"\\ud83d\\ude00" * (n // 5) + '"'


def long_number(n):
    return "[0." + "1234567890" * (n // 10) + "]"


def white_space(n):
    return " \n\t" * (n // 3) + "1"


def deep_side_by_side(n):
    one = "{\"a\":" * 999 + "1" + "}" * 999
    return "[" + ",".join([one] * max(1, n // 5000)) + "]"


def huge_tnsize(n):
    return '{"tntype":"double","tnsize":[%s],"tndata":[1,2]}' % ",".join(["1000000"] * max(2, n // 8))


def error_at_line_end(n):
    return "[" + "1," * (n // 2) + "x]"


# name, generator, extra arguments, base n
SHAPES = [
    ("many keys", keys, [], 40_000),
    ("many fields", fields, [], 40_000),
    ("many duplicate keys", duplicate_keys, [], 100_000),
    ("cell of n scalars", cell_of_scalars, [], 100_000),
    ("struct array 1xn", struct_array, [], 100_000),
    ("response of n outputs", response, ["--lhs"], 100_000),
    ("long string of escapes", escapes, [], 400_000),
    ("very long number", long_number, [], 1_000_000),
    ("white space", white_space, [], 2_000_000),
    ("deepest nesting side by side", deep_side_by_side, [], 200_000),
    ("huge tnsize, few elements", huge_tnsize, [], 200_000),
    ("error at the end of a long line", error_at_line_end, [], 1_000_000),
]


def run(cli, path, extra):
    """CPU seconds and peak RSS (KB) of one decode in a fresh process.

    /usr/bin/time measures it: a child forked straight from this script
    would start with the script's own peak RSS, which survives exec.
    """
    with open(os.devnull, "wb") as null:
        p = subprocess.run(["/usr/bin/time", "-f", "%U %S %M", cli, "decode", *extra, path],
                           stdout=null, stderr=subprocess.PIPE, text=True)
    if p.returncode not in (0, 1):
        sys.exit(f"{path}: exit {p.returncode}")
    user, system, peak = p.stderr.strip().splitlines()[-1].split()
    return float(user) + float(system), int(peak)


def best_of(cli, path, extra, repeats=3):
    runs = [run(cli, path, extra) for _ in range(repeats)]
    return min(t for t, _ in runs), min(m for _, m in runs)


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--cli", default="build/bin/dovra-json")
    ap.add_argument("--scale", type=float, default=1.0, help="multiplies every base n")
    args = ap.parse_args()

    with tempfile.TemporaryDirectory() as tmp:
        trivial = os.path.join(tmp, "trivial.json")
        with open(trivial, "w") as f:
            f.write("1")
        t0, m0 = best_of(args.cli, trivial, [])
        print(f"baseline: {t0 * 1000:.1f} ms, {m0} KB (subtracted below)")
        print(f"{'shape':34} {'n':>9} {'MB':>7} {'ms':>9} {'MB peak':>9}   time x/4   memory x/4")
        worst = 0.0
        for name, gen, extra, base in SHAPES:
            n0 = int(base * args.scale)
            points = []
            for n in (n0, 4 * n0, 16 * n0):
                path = os.path.join(tmp, "doc.json")
                with open(path, "w") as f:
                    f.write(gen(n))
                size = os.path.getsize(path)
                t, m = best_of(args.cli, path, extra)
                points.append((n, size, max(t - t0, 1e-4), max(m - m0, 1)))
            for i, (n, size, t, m) in enumerate(points):
                growth = ""
                if i:
                    gt, gm = t / points[i - 1][2] / 4, m / points[i - 1][3] / 4
                    worst = max(worst, gt, gm) if i == 2 else worst
                    growth = f"   {gt:8.2f}   {gm:10.2f}"
                label = name if i == 0 else ""
                print(f"{label:34} {n:>9} {size / 1e6:7.2f} {t * 1000:9.1f} {m / 1024:9.1f}{growth}")
        print(f"worst factor from 4n to 16n: {worst:.2f} ({'within' if worst <= 1.3 else 'beyond'} 1.3 of linear)")


if __name__ == "__main__":
    main()
