"""What the build tree's binaries load from, and where cmake --install and
the .deb put the package for Debian's interpreter."""

import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

import dovra_json

BUILD = Path(dovra_json.__file__).resolve().parents[2]
MINOR = f"{sys.version_info.major}.{sys.version_info.minor}"


def shipped_binaries():
    for directory in ("bin", "lib", "python/dovra_json", "python/installed"):
        for path in sorted((BUILD / directory).iterdir()):
            if path.is_file() and not path.is_symlink() and path.read_bytes()[:4] == b"\x7fELF":
                yield path


def test_build_tree_runpaths_have_no_empty_entries():
    # An empty entry, like ".", makes the loader search the current directory.
    seen = 0
    for path in shipped_binaries():
        dynamic = subprocess.run(["readelf", "-d", str(path)], check=True, capture_output=True, text=True).stdout
        for kind, value in re.findall(r"\((RUNPATH|RPATH)\)\s+Library r\w*path: \[(.*)\]", dynamic):
            seen += 1
            entries = value.split(":")
            assert all(e.startswith(("/", "$ORIGIN")) for e in entries), (path.name, kind, value)
    assert seen >= 3, "no RUNPATH found: the module, the command and the builtins library have one"


@pytest.mark.parametrize("prefix, site", [
    ("/usr", "usr/lib/python3/dist-packages"),
    (None, f"usr/local/lib/python{MINOR}/dist-packages"),  # CMake's default prefix
])
def test_install_puts_the_package_where_debians_python_looks(tmp_path, prefix, site):
    root = tmp_path / "root"
    command = ["cmake", "--install", str(BUILD)] + (["--prefix", prefix] if prefix else [])
    subprocess.run(command, check=True, capture_output=True, env=dict(os.environ, DESTDIR=str(root)))
    assert "/" + site in debian_sys_path(), site
    package = root / site / "dovra_json"
    assert {p.name for p in package.iterdir()} >= {"__init__.py", "__init__.pyi", "py.typed", "_version.py"}
    # Moved out of its prefix, from a directory outside it, with no hint
    # of where the builtins library is: the RUNPATH and the runtime's
    # loader find the installed libraries.
    env = {k: v for k, v in os.environ.items() if k != "DOVRA_JSON_BUILTINS"}
    env["PYTHONPATH"] = str(root / site)
    out = subprocess.run([sys.executable, "-c", LOADED], cwd=tmp_path, env=env, check=True,
                         capture_output=True, text=True).stdout.split()
    assert out[0] == dovra_json.__version__
    assert all(p.startswith(str(root)) for p in out[1:]) and len(out) == 4, out


# Prints the version, then where the module and both libraries were loaded from.
LOADED = """
import dovra_json
dovra_json.decode('[1, 2]')
maps = open('/proc/self/maps').read().split()
print(dovra_json.__version__, *sorted({p for p in maps if '/_native.' in p or '/libixtal.so' in p
                                       or '/libdovra_json_builtins.so' in p}))
"""


def debian_sys_path():
    # The interpreter's path with no user site and no environment, made as
    # site.py makes it for a machine where both directories exist.
    code = "import site, sys; print('\\n'.join(site.getsitepackages(['/usr/local', '/usr'])))"
    return subprocess.run([sys.executable, "-I", "-c", code], check=True, capture_output=True,
                          text=True).stdout.split()


def test_deb_depends_on_this_python_minor_version():
    config = (BUILD / "CPackConfig.cmake").read_text()
    depends = re.search(r'set\(CPACK_DEBIAN_PACKAGE_DEPENDS "(.*)"\)', config).group(1)
    major, minor = sys.version_info[:2]
    assert f"python3 (>= {major}.{minor}), python3 (<< {major}.{minor + 1})" in depends, depends
