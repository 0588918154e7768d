"""examples/python/dask_decode.py on a cluster of two worker processes
reports exactly what a serial run reports, and that is what the bodies hold."""

import json
import math
import os
import pickle
import random
import re
import subprocess
import sys
import time
from pathlib import Path

import pytest

import dovra_json

SOURCE = Path(os.environ.get("DOVRA_SOURCE_DIR", Path(__file__).resolve().parents[2]))
EXAMPLE = SOURCE / "examples" / "python" / "dask_decode.py"

# Bodies that fail, each with what its error must say after the trip back
# from a worker.
BROKEN = {
    "incomplete": ('{"lhs": [1, 2', "DOVRA:IXTAL:JSON:DecodeIncomplete", (1, 13, 13)),
    "unexpected": ('{"lhs": [1 2]}', "DOVRA:IXTAL:JSON:DecodeUnexpectedValue", (1, 11, 11)),
    "second_line": ('{"lhs": [\n  [1, 2], tru]}', "DOVRA:IXTAL:JSON:DecodeUnexpectedValue", (2, 10, 20)),
}


def write_bodies(directory, count):
    """Writes count responses and the broken bodies; returns what the
    responses hold: the int32 elements and the doubles of the matrices."""
    rng = random.Random(20240611)
    ints, doubles = [], []
    for i in range(count):
        rows, cols = rng.randint(1, 4), rng.randint(1, 4)
        matrix = [[rng.uniform(-1e3, 1e3) for _ in range(cols)] for _ in range(rows)]
        row = [rng.randint(-2**31, 2**31 - 1) for _ in range(rng.randint(1, 6))]
        ints += row
        doubles += [x for r in matrix for x in r]
        body = {"lhs": [matrix, {"tntype": "int32", "tnsize": [1, len(row)], "tndata": row},
                        f"run {i}", {"ok": True, "note": "x" * (i % 3)}]}
        (directory / f"body-{i:04d}.json").write_text(json.dumps(body))
    for name, (text, _, _) in BROKEN.items():
        (directory / f"broken-{name}.json").write_text(text)
    (directory / "not-a-response.json").write_text("[1, 2]")
    return ints, doubles


def run_example(*args):
    done = subprocess.run([sys.executable, str(EXAMPLE), *map(str, args)], capture_output=True,
                          text=True, timeout=300)
    assert done.returncode == 0, done.stderr
    return done.stdout


def test_error_pickles_with_everything_intact():
    with pytest.raises(dovra_json.Error) as caught:
        dovra_json.decode('{"lhs": [\n  [1, 2], tru]}')
    error = caught.value
    back = pickle.loads(pickle.dumps(error))
    assert type(back) is dovra_json.Error
    fields = ("identifier", "arguments", "message", "line", "column", "offset")
    assert [getattr(back, f) for f in fields] == [getattr(error, f) for f in fields]
    assert (back.line, back.column, back.offset) == (2, 10, 20)


def test_cluster_reports_what_a_serial_run_reports(tmp_path):
    ints, doubles = write_bodies(tmp_path, 300)
    serial = run_example(tmp_path, "--responses", "--serial")
    # Small batches, so that summaries are merged across both workers.
    cluster = run_example(tmp_path, "--responses", "--workers", 2, "--batch", 16)
    assert cluster == serial

    lines = serial.splitlines()
    assert lines[0] == f"bodies: {300 + len(BROKEN) + 1}, failed: {len(BROKEN)}"
    totals = {line.split()[0]: line.split()[1:] for line in lines[2:] if not line.startswith(("failed", "not a"))}
    assert totals["int32"] == ["300", str(len(ints)), str(sum(ints))]
    assert totals["double"][:2] == ["300", str(len(doubles))]
    assert math.isclose(float(totals["double"][2]), math.fsum(doubles), rel_tol=1e-12)
    assert totals["char"][0] == "600" and totals["struct"][:2] == ["300", "300"]

    for name, (_, identifier, (line, column, offset)) in BROKEN.items():
        expected = f"failed broken-{name}.json: {identifier} at line {line}, column {column} (byte offset {offset}) "
        assert any(l.startswith(expected) for l in lines), (expected, serial)
    assert "not a response: not-a-response.json" in lines


def test_a_running_scheduler(tmp_path):
    # The cluster of docs/python.md: a scheduler and a worker command with
    # two processes, and the example given the scheduler's address.
    bodies = tmp_path / "bodies"
    bodies.mkdir()
    write_bodies(bodies, 40)
    started = []
    try:
        address_file = tmp_path / "scheduler.json"
        for command in (["distributed.cli.dask_scheduler", "--host", "127.0.0.1", "--port", "0"],
                        ["distributed.cli.dask_worker", "--nworkers", "2", "--nthreads", "1"]):
            started.append(subprocess.Popen([sys.executable, "-m", *command, "--no-dashboard",
                                             "--scheduler-file", str(address_file)],
                                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL))
            for _ in range(300):
                if address_file.exists() and address_file.stat().st_size:
                    break
                time.sleep(0.1)
        address = json.loads(address_file.read_text())["address"]
        assert address.startswith("tcp://127.0.0.1:")
        report = run_example(bodies, "--responses", "--scheduler", address, "--batch", 8)
    finally:
        for process in started:
            process.terminate()
            process.wait(timeout=60)
    assert report == run_example(bodies, "--responses", "--serial")


def test_request_bodies(tmp_path):
    (tmp_path / "a.json").write_text('{"tntype": "uint8", "tnsize": [1, 3], "tndata": [1, 2, 250]}')
    (tmp_path / "b.json").write_text('{"x": [[1.5, 2.5]], "y": "text"}')
    report = run_example(tmp_path, "--serial")
    assert re.search(r"^uint8 +1 +3  253$", report, re.M), report
    assert re.search(r"^double +1 +2  4\.0$", report, re.M), report
