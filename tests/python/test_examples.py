# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""The examples, as a user runs them, and the lines of README.md."""

import re
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest
import tifffile

import xapel2_shading as xs

ROOT = Path(__file__).resolve().parents[2]
EXAMPLES = ROOT / "python" / "examples"


def run(example, *arguments, code=0):
    command = [sys.executable, str(EXAMPLES / example), *map(str, arguments)]
    ended = subprocess.run(command, capture_output=True, text=True, timeout=200)
    assert ended.returncode == code, ended.stdout + ended.stderr
    return ended.stdout + ended.stderr


@pytest.fixture(scope="module")
def folder(tmp_path_factory):
    """References, and raw frames as arrays and as TIFF files."""
    path = tmp_path_factory.mktemp("frames")
    with xs.open_camera("sim:5?width=160&height=120&format=Mono12") as camera:
        for kind in ("dark", "light"):
            xs.write_reference(path / f"{kind}.tif", xs.record(camera, kind))
        camera.StandInScene = "Scene"
        (path / "raw").mkdir()
        for frame in camera.frames(8):
            np.save(path / "raw" / f"frame_{frame.number}.npy", frame.array)
            tifffile.imwrite(path / "raw" / f"frame_{frame.number}.tif", frame.array)
    return path


def corrected(folder):
    """Name and frame, corrected in this process."""
    corrector = xs.Corrector(folder / "dark.tif", folder / "light.tif")
    for file in sorted((folder / "raw").glob("*.npy")):
        yield file.stem, corrector(np.load(file))


def test_five_lines_are_those_of_the_readme_and_even_the_field():
    example = (EXAMPLES / "five_lines.py").read_text().split('"""\n\n')[1]
    readme = re.search(r"```python\n(.*?)```", (ROOT / "README.md").read_text(), re.DOTALL).group(1)
    assert readme == example.replace("\n\nwith", "\nwith")
    before, after = map(float, re.findall(r"0\.\d+", run("five_lines.py")))
    assert after < before / 3


def test_live():
    assert "100 of 100 frames corrected" in run("live.py", "sim:1?width=64&height=48")


def test_a_folder_of_tiff_files(folder, tmp_path):
    run("folder_of_tiff.py", folder / "dark.tif", folder / "light.tif", folder / "raw", tmp_path)
    for name, frame in corrected(folder):
        np.testing.assert_array_equal(tifffile.imread(tmp_path / f"{name}.tif"), frame)
    tifffile.imwrite(tmp_path / "frame_9.tif", np.zeros((5, 5), np.uint16))
    told = run("folder_of_tiff.py", folder / "dark.tif", folder / "light.tif", tmp_path, tmp_path / "out", code=1)
    assert "frame_9.tif" in told and "got shape (5, 5)" in told and "8 frames corrected" in told


def test_two_processes_yield_the_bytes_of_one(folder, tmp_path):
    told = run("dask_folder.py", folder / "dark.tif", folder / "light.tif", folder / "raw", tmp_path)
    assert "8 frames corrected by" in told
    for name, frame in corrected(folder):
        assert np.load(tmp_path / f"{name}.npy").tobytes() == frame.tobytes()


def test_a_plot(tmp_path):
    run("before_and_after.py", tmp_path / "plot.png")
    assert (tmp_path / "plot.png").read_bytes().startswith(b"\x89PNG")
