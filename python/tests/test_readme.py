"""The README's Python session prints what the README says it prints."""

import os
import re
import subprocess
from pathlib import Path

import pytest

import dovra_json

SOURCE = os.environ.get("DOVRA_SOURCE_DIR", os.path.join(os.path.dirname(__file__), "..", ".."))


def test_python_session():
    readme = open(os.path.join(SOURCE, "README.md"), encoding="utf-8").read()
    blocks = re.findall(r"```pycon\n(.*?)```", readme, re.S)
    assert blocks, "the README has no Python session"
    # Run as written, from the source directory, so on its build/python.
    if Path(SOURCE, "build", "python", "dovra_json").resolve() != Path(dovra_json.__file__).parent.resolve():
        pytest.skip("the module under test is not the one in the source's build/python")
    env = {k: v for k, v in os.environ.items() if k not in ("PYTHONPATH", "DOVRA_JSON_BUILTINS")}
    for block in blocks:
        command, *expected = block.splitlines()
        out = subprocess.run(["bash", "-c", command.removeprefix("$ ")], cwd=SOURCE, env=env, check=True,
                             capture_output=True, text=True).stdout
        assert out.splitlines() == expected
