"""pip's way into the project's CMake build (metadata is in pyproject.toml).

The one extension, dovra_json._native, stands for everything compiled: CMake
builds the module and the two shared libraries it needs, and installs them
into the package directory as the "python" component, laid out for a wheel
(the module and both libraries side by side, finding each other through
$ORIGIN). The interpreter that runs the build is the one the module is built
for.
"""

import os
import re
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent


def project_version():
    text = (ROOT / "CMakeLists.txt").read_text(encoding="utf-8")
    found = re.search(r"project\(\s*dovra_json\s+VERSION\s+([0-9][0-9.]*)", text)
    if not found:
        sys.exit("setup.py: no version on the project() line of CMakeLists.txt")
    return found.group(1)


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        build = Path(self.build_temp).resolve() / "cmake"
        # The directory that holds the package: build_lib, or the source's
        # python/ for an in-place build.
        target = Path(self.get_ext_fullpath(ext.name)).resolve().parent.parent
        configure = [
            "cmake", "-S", str(ROOT), "-B", str(build),
            "-DCMAKE_BUILD_TYPE=Release",
            "-DDOVRA_BUILD_TESTS=OFF",
            "-DDOVRA_BUILD_PYTHON=ON",
            "-DDOVRA_PYTHON_WHEEL=ON",
            f"-DPython_EXECUTABLE={sys.executable}",
        ]
        compile_ = ["cmake", "--build", str(build), "--target", "dovra_json_native_installed"]
        # CMake reads CMAKE_BUILD_PARALLEL_LEVEL itself when it is set.
        if not os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL"):
            compile_ += ["--parallel", str(os.cpu_count() or 1)]
        install = ["cmake", "--install", str(build), "--component", "python", "--prefix", str(target)]
        for command in (configure, compile_, install):
            subprocess.run(command, check=True)


# setuptools' own files go inside the CMake build's usual directory, so that
# a pip install leaves the tree as it found it but for build/.
BUILD_BASE = "build/pip"
os.makedirs(BUILD_BASE, exist_ok=True)

setup(
    version=project_version(),
    options={"build": {"build_base": BUILD_BASE}, "egg_info": {"egg_base": BUILD_BASE}},
    ext_modules=[Extension("dovra_json._native", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
)
