# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""Has CMake build what the Python package needs of C++. The rest stands in pyproject.toml."""

import os
import re
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent
VERSION = re.search(r"project\(xapel2_ext_sc VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text()).group(1)


class CMakeBuild(build_ext):
    """The module and its libraries, which find one another in the package's folder."""

    def build_extension(self, extension):
        folder = Path(self.get_ext_fullpath(extension.name)).resolve().parent
        build = Path(self.build_temp).resolve()
        options = [
            f"-DPython_EXECUTABLE={sys.executable}",
            f"-DXAPEL2_PYTHON_BUNDLE={folder}",
            "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
            "-DXAPEL2_BUILD_PYTHON=ON",
            "-DXAPEL2_BUILD_APPS=OFF",
            "-DXAPEL2_BUILD_TESTS=OFF",
        ]
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL", str(os.cpu_count()))
        subprocess.run(["cmake", "-S", ROOT, "-B", build, *options], check=True)
        subprocess.run(["cmake", "--build", build, "--target", "python_bundle", "--parallel", jobs], check=True)


setup(version=VERSION, ext_modules=[Extension("xapel2_shading._core", sources=[])], cmdclass={"build_ext": CMakeBuild})
