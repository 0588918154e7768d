"""The stubs type every public name: mypy --strict accepts a client that
uses each of them, and rejects the misuses the stubs are there to catch."""

import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

import dovra_json

pytest.importorskip("mypy")

HERE = Path(__file__).resolve().parent

MISUSES = {
    "format_name": 'dovra_json.encode(1, format="medium")',
    "nan_inf_name": 'dovra_json.encode(1, nan_inf="nan")',
    "options_positional": 'dovra_json.encode(1, "small")',
    "text_by_keyword": 'dovra_json.decode(text="[1]")',
    "text_not_text": "dovra_json.decode(1)",
    "str_is_not_bytes": "b: bytes = dovra_json.encode(1)",
    "bytes_is_not_str": "s: str = dovra_json.encode(1, as_bytes=True)",
    "response_may_be_false": "n = len(dovra_json.decode_response('[]'))",
    "line_may_be_none": "def f(e: dovra_json.Error) -> int: return e.line + 1",
    "arguments_are_a_tuple": "def f(e: dovra_json.Error) -> list[int]: return e.arguments",
    "dump_to_a_path": 'dovra_json.dump(1, "out.json")',
    "load_a_path": 'dovra_json.load("in.json")',
    "version_is_str": "v: int = dovra_json.__version__",
    "no_such_name": "dovra_json.loads('[]')",
}


def test_mypy_strict(tmp_path):
    for name, line in MISUSES.items():
        (tmp_path / f"misuse_{name}.py").write_text(f"import dovra_json\n{line}\n")
    # The stubs of the package under test, wherever it was imported from.
    env = dict(os.environ, MYPYPATH=str(Path(dovra_json.__file__).parents[1]))
    done = subprocess.run(
        [sys.executable, "-m", "mypy", "--strict", "--no-error-summary", "--cache-dir", str(tmp_path / "cache"),
         str(HERE / "typed_client.py"), *sorted(str(p) for p in tmp_path.glob("misuse_*.py"))],
        capture_output=True, text=True, env=env, cwd=tmp_path)
    errors = [l for l in done.stdout.splitlines() if ": error:" in l]
    assert not [l for l in errors if "typed_client.py" in l], done.stdout
    flagged = {m.group(1) for m in (re.search(r"misuse_(\w+)\.py:2:", l) for l in errors) if m}
    assert flagged == set(MISUSES), done.stdout + done.stderr
