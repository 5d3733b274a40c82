# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""What pip asks to make a wheel of the tree: CMake builds the module, with the libraries that it stands on beside it.

Of the standard library alone, so that pip need not fetch anything to begin with.
"""

import base64
import hashlib
import os
import re
import shutil
import subprocess
import sys
import sysconfig
import zipfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BUILD = ROOT / "build" / "pip"
NAME = "xapel2_shading"

METADATA = """Metadata-Version: 2.1
Name: xapel2-shading
Version: {version}
Summary: Shading correction for XAPEL2 cameras
License: MIT
Requires-Python: >=3.9
Requires-Dist: numpy
"""
WHEEL = """Wheel-Version: 1.0
Generator: xapel2_ext_sc ({version})
Root-Is-Purelib: false
Tag: {tag}
"""


def version():
    return re.search(r"project\(xapel2_ext_sc VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text()).group(1)


def tag():
    python = f"cp{sys.version_info.major}{sys.version_info.minor}"
    return f"{python}-{python}-{re.sub(r'[-.]', '_', sysconfig.get_platform())}"


def build_package():
    """The folder of the package, complete."""
    folder = BUILD / "package" / NAME
    shutil.rmtree(folder, ignore_errors=True)
    options = [
        f"-DPython_EXECUTABLE={sys.executable}",
        f"-DXAPEL2_PYTHON_BUNDLE={folder}",
        # As the packages are built, but without symbols, which would be most of the wheel.
        "-DCMAKE_BUILD_TYPE=Release",
        "-DCMAKE_CXX_FLAGS_RELEASE=-O2 -DNDEBUG",
        "-DXAPEL2_BUILD_PYTHON=ON",
        "-DXAPEL2_BUILD_APPS=OFF",
        "-DXAPEL2_BUILD_TESTS=OFF",
    ]
    jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL", str(os.cpu_count()))
    subprocess.run(["cmake", "-S", ROOT, "-B", BUILD, *options], check=True)
    subprocess.run(["cmake", "--build", BUILD, "--target", "python_bundle", "--parallel", jobs], check=True)
    for file in (ROOT / "python" / NAME).iterdir():
        if file.suffix in (".py", ".pyi") or file.name == "py.typed":
            shutil.copy(file, folder)
    return folder


def info_name():
    return f"{NAME}-{version()}.dist-info"


def info_files():
    return {
        "METADATA": METADATA.format(version=version()).encode(),
        "WHEEL": WHEEL.format(version=version(), tag=tag()).encode(),
    }


def prepare_metadata_for_build_wheel(metadata_directory, config_settings=None):
    """What the package is called, without building it: pip asks for that first."""
    info = Path(metadata_directory) / info_name()
    info.mkdir()
    for name, data in info_files().items():
        (info / name).write_bytes(data)
    return info.name


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    folder = build_package()
    info = info_name()
    contents = {f"{NAME}/{file.name}": file.read_bytes() for file in sorted(folder.iterdir())}
    contents.update({f"{info}/{name}": data for name, data in info_files().items()})
    record = ""
    for name, data in contents.items():
        digest = base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()
        record += f"{name},sha256={digest},{len(data)}\n"
    contents[f"{info}/RECORD"] = f"{record}{info}/RECORD,,\n".encode()
    wheel = f"{NAME}-{version()}-{tag()}.whl"
    with zipfile.ZipFile(Path(wheel_directory) / wheel, "w", zipfile.ZIP_DEFLATED) as archive:
        for name, data in contents.items():
            archive.writestr(name, data)
    return wheel
