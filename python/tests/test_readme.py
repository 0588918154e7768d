"""The README's Python session prints what the README says it prints."""

import os
import re
import shlex
import subprocess
import sys

SOURCE = os.environ.get("DOVRA_SOURCE_DIR", os.path.join(os.path.dirname(__file__), "..", ".."))


def test_python_session():
    readme = open(os.path.join(SOURCE, "README.md"), encoding="utf-8").read()
    blocks = re.findall(r"```pycon\n(.*?)```", readme, re.S)
    assert blocks, "the README has no Python session"
    for block in blocks:
        command, *expected = block.splitlines()
        args = shlex.split(command.removeprefix("$ "))
        assert args[0].startswith("PYTHONPATH=") and args[1] == "python3"
        # The module under test is the one on this test's path, and the
        # interpreter is Debian's whatever python3 comes first on PATH.
        out = subprocess.run([sys.executable, *args[2:]], cwd=SOURCE, check=True,
                             capture_output=True, text=True).stdout
        assert out.splitlines() == expected
