"""Decode a directory of request or response bodies on a Dask cluster and
sum up what they hold.

    /usr/bin/python3 dask_decode.py BODIES                    # a local cluster of 2 worker processes
    /usr/bin/python3 dask_decode.py BODIES --workers 8
    /usr/bin/python3 dask_decode.py BODIES --scheduler tcp://HOST:8786
    /usr/bin/python3 dask_decode.py BODIES --serial           # this process alone, no Dask
    /usr/bin/python3 dask_decode.py BODIES --responses        # bodies are {"lhs": [...]}

Every *.json file in BODIES is one body. A task decodes a batch of files and
reduces what they decode to, per class: how many arrays, how many elements
and their sum. Tasks' summaries are merged into one, which does not depend
on how the files were batched, so every run over the same files prints the
same report. Bodies that fail are listed with their error's identifier,
arguments and position. On a real cluster every worker needs dovra_json
installed and BODIES at the same path.
"""

import argparse
import math
import sys
from dataclasses import dataclass, field
from pathlib import Path

import numpy as np

import dovra_json

# NumPy's dtype names where the host's class names differ.
_CLASS_NAMES = {"float64": "double", "float32": "single", "bool": "logical",
                "complex128": "double complex", "complex64": "single complex"}


class ExactSum:
    """A sum of floats that is the same whatever order they are added in:
    the exact sum is kept as non-overlapping partials (Shewchuk's method),
    rounded once at the end."""

    def __init__(self):
        self.partials = []
        self.special = 0.0  # Inf and NaN, whose sum has no order either

    def add(self, x):
        if not math.isfinite(x):
            self.special += x
            return
        i = 0
        for y in self.partials:
            if abs(x) < abs(y):
                x, y = y, x
            high = x + y
            low = y - (high - x)
            if low:
                self.partials[i] = low
                i += 1
            x = high
        self.partials[i:] = [x]

    def merge(self, other):
        for x in other.partials:
            self.add(x)
        self.special += other.special

    def value(self):
        return math.fsum(self.partials) + self.special


@dataclass
class Totals:
    arrays: int = 0
    elements: int = 0
    integer: int = 0  # integer and logical classes: exact
    real: ExactSum = field(default_factory=ExactSum)
    imag: ExactSum = field(default_factory=ExactSum)

    def merge(self, other):
        self.arrays += other.arrays
        self.elements += other.elements
        self.integer += other.integer
        self.real.merge(other.real)
        self.imag.merge(other.imag)

    def sum(self):
        if self.real.partials or self.real.special or self.imag.partials or self.imag.special:
            real, imag = self.real.value(), self.imag.value()
            return complex(real, imag) if imag else real
        return self.integer


@dataclass
class Summary:
    bodies: int = 0
    classes: dict = field(default_factory=dict)  # class name -> Totals
    failures: list = field(default_factory=list)  # (file name, dovra_json.Error)
    not_responses: list = field(default_factory=list)  # file names

    def totals(self, name):
        return self.classes.setdefault(name, Totals())

    def tally(self, value):
        """Adds one decoded value, and everything inside it."""
        if isinstance(value, dict):
            self.totals("struct").arrays += 1
            self.totals("struct").elements += 1
            for inner in value.values():
                self.tally(inner)
        elif isinstance(value, list):  # the outputs of a response
            for inner in value:
                self.tally(inner)
        elif isinstance(value, str):
            self.totals("char").arrays += 1
            self.totals("char").elements += len(value)
        elif isinstance(value, (bool, int, float, complex)):  # a 1x1 array of the class Python's type names
            self.tally(np.asarray(value))
        elif value.dtype == object:  # a cell, a structure array, or strings (None where one is missing)
            if value.size and all(v is None or isinstance(v, str) for v in value.flat):
                self.totals("string").arrays += 1
                self.totals("string").elements += value.size
                return
            kind = "struct" if value.size and all(isinstance(v, dict) for v in value.flat) else "cell"
            self.totals(kind).arrays += 1
            self.totals(kind).elements += value.size
            for inner in value.flat:
                if kind == "cell" and inner is not None:
                    self.tally(inner)
                elif kind == "struct":
                    for field_value in inner.values():
                        self.tally(field_value)
        else:
            name = "string" if value.dtype.kind == "U" else _CLASS_NAMES.get(value.dtype.name, value.dtype.name)
            totals = self.totals(name)
            totals.arrays += 1
            totals.elements += value.size
            if value.dtype.kind in "iu":
                totals.integer += sum(value.ravel().tolist())
            elif value.dtype.kind == "b":
                totals.integer += int(np.count_nonzero(value))
            elif value.dtype.kind == "f":
                totals.real.add(float(value.sum(dtype=np.float64)))
            elif value.dtype.kind == "c":
                total = complex(value.sum(dtype=np.complex128))
                totals.real.add(total.real)
                totals.imag.add(total.imag)

    def merge(self, other):
        self.bodies += other.bodies
        for name, totals in other.classes.items():
            self.totals(name).merge(totals)
        self.failures += other.failures
        self.not_responses += other.not_responses
        return self


def summarize(paths, responses=False):
    """Decodes the files and reduces them to a Summary (a task's work)."""
    summary = Summary()
    for path in paths:
        summary.bodies += 1
        text = Path(path).read_bytes()
        try:
            value = dovra_json.decode_response(text) if responses else dovra_json.decode(text)
        except dovra_json.Error as error:
            summary.failures.append((Path(path).name, error))
            continue
        if value is False:
            summary.not_responses.append(Path(path).name)
        else:
            summary.tally(value)
    return summary


def merge_all(summaries):
    total = Summary()
    for summary in summaries:
        total.merge(summary)
    return total


def run_on_cluster(paths, responses, batch):
    """Runs on the cluster of the Client made last."""
    import dask.bag

    bag = dask.bag.from_sequence(paths, partition_size=batch)
    return bag.reduction(lambda part: summarize(part, responses), merge_all, split_every=8).compute()


def report(summary, out=sys.stdout):
    print(f"bodies: {summary.bodies}, failed: {len(summary.failures)}", file=out)
    print(f"{'class':<16}{'arrays':>10}{'elements':>12}  sum", file=out)
    for name in sorted(summary.classes):
        totals = summary.classes[name]
        has_sum = name not in ("cell", "struct", "char", "string")
        print(f"{name:<16}{totals.arrays:>10}{totals.elements:>12}  {totals.sum()!r}" if has_sum else
              f"{name:<16}{totals.arrays:>10}{totals.elements:>12}", file=out)
    for name, error in sorted(summary.failures, key=lambda f: f[0]):
        where = f" at line {error.line}, column {error.column} (byte offset {error.offset})" if error.line else ""
        print(f"failed {name}: {error.identifier}{where} {error.arguments!r}", file=out)
    for name in sorted(summary.not_responses):
        print(f"not a response: {name}", file=out)


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("bodies", type=Path, help="directory of *.json bodies")
    parser.add_argument("--scheduler", help="address of a running Dask scheduler, e.g. tcp://host:8786")
    parser.add_argument("--workers", type=int, default=2, help="worker processes of the local cluster (default 2)")
    parser.add_argument("--batch", type=int, default=64, help="files per task (default 64)")
    parser.add_argument("--responses", action="store_true", help="decode response bodies, {\"lhs\": [...]}")
    parser.add_argument("--serial", action="store_true", help="decode in this process, without Dask")
    args = parser.parse_args(argv)
    paths = sorted(str(p) for p in args.bodies.glob("*.json"))
    if args.serial:
        summary = summarize(paths, args.responses)
    else:
        from dask.distributed import Client, LocalCluster

        if args.scheduler:
            with Client(args.scheduler):
                summary = run_on_cluster(paths, args.responses, args.batch)
        else:
            with LocalCluster(n_workers=args.workers, threads_per_worker=1, processes=True,
                              dashboard_address=None) as cluster, Client(cluster):
                summary = run_on_cluster(paths, args.responses, args.batch)
    report(summary)


if __name__ == "__main__":
    main()
