# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""What pip is given: the wheel, around a package that is built already."""

import base64
import csv
import hashlib
import importlib.util
import shutil
import subprocess
import sys
import zipfile
from pathlib import Path

import xapel2_shading as xs

ROOT = Path(__file__).resolve().parents[2]


def test_a_wheel_is_whole_and_works(tmp_path, monkeypatch):
    spec = importlib.util.spec_from_file_location("wheel", ROOT / "python" / "packaging" / "wheel.py")
    backend = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(backend)
    package = tmp_path / "package"
    package.mkdir()
    for file in Path(xs.__file__).parent.iterdir():
        if file.is_file():
            shutil.copy(file, package)
    monkeypatch.setattr(backend, "build_package", lambda: package)
    info = backend.prepare_metadata_for_build_wheel(tmp_path)
    name = backend.build_wheel(tmp_path)
    assert info == f"xapel2_shading-{xs.__version__}.dist-info"
    assert name.startswith(f"xapel2_shading-{xs.__version__}-cp3") and name.endswith(".whl")

    with zipfile.ZipFile(tmp_path / name) as wheel:
        files = {file: wheel.read(file) for file in wheel.namelist()}
        wheel.extractall(tmp_path / "site")
    recorded = {row[0]: row[1:] for row in csv.reader(files[f"{info}/RECORD"].decode().splitlines())}
    assert recorded.keys() == files.keys() and recorded.pop(f"{info}/RECORD") == ["", ""]
    for file, (digest, size) in recorded.items():
        sha = base64.urlsafe_b64encode(hashlib.sha256(files[file]).digest()).decode().rstrip("=")
        assert (digest, int(size)) == (f"sha256={sha}", len(files[file]))
    for file in (tmp_path / info).iterdir():
        assert file.read_bytes() == files[f"{info}/{file.name}"]

    program = f"import sys; sys.path.insert(0, {str(tmp_path / 'site')!r}); import xapel2_shading as xs; print(xs.__file__)"
    program += "; from importlib.metadata import metadata; told = metadata('xapel2-shading')"
    program += "; assert (told['Name'], told['Version']) == ('xapel2-shading', xs.__version__)"
    ended = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True)
    assert ended.returncode == 0 and ended.stdout.startswith(str(tmp_path / "site")), ended.stderr
