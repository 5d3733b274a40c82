# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""Judgement: the object of the command line."""

import json
import os
import subprocess

import pytest

import images
import xapel2_shading as xs


@pytest.mark.parametrize("pixel_format", ["Mono12", "BayerRG8"])
@pytest.mark.parametrize("good", [True, False])
def test_it_is_what_the_command_line_says(tmp_path, pixel_format, good):
    dark, light = images.pair(pixel_format, 40, 30)
    files = [tmp_path / "dark.tif", tmp_path / ("light.tif" if good else "<b>&.tif")]
    for file, reference in zip(files, (dark, light if good else dark)):
        xs.write_reference(file, reference)
    command = [os.environ["XAPEL2_SHADING_PROGRAM"], "check", *map(str, files)]
    told = json.loads(subprocess.run([*command, "--json", "--list"], stdout=subprocess.PIPE).stdout)
    del told["command"], told["exit"]

    judgement = xs.check(*files)
    assert dict(judgement) == told and set(judgement) == {"dark", "light", "pair", "verdict"} and len(judgement) == 4
    assert judgement.verdict == told["verdict"] == repr(judgement)[len("<Judgement: ") : -1]
    assert str(judgement) == subprocess.run(command, stdout=subprocess.PIPE, text=True).stdout
    assert len(judgement.findings) == sum(len(told[part]["findings"]) for part in ("dark", "light", "pair"))
    html = judgement._repr_html_()
    assert judgement.verdict in html and "<b>" not in html


def test_objects_are_judged_as_files_are(tmp_path):
    pair = images.pair("Mono8", 40, 30)
    xs.write_reference(tmp_path / "dark.tif", pair[0])
    mixed, objects = xs.check(tmp_path / "dark.tif", pair[1]), xs.check(*pair)
    assert mixed["pair"] == objects["pair"] and mixed.verdict == objects.verdict
    with pytest.raises(FileNotFoundError):
        xs.check(tmp_path / "none.tif", pair[1])
    (tmp_path / "dark.tif").write_bytes(b"II*")
    with pytest.raises(xs.InputOutputError, match="dark.tif"):
        xs.check(tmp_path / "dark.tif", pair[1])


def test_levels_are_those_of_the_command_line(tmp_path):
    levels, dark, light = [], None, None
    for exposure in (2000, 4000, 6000, 8000):
        with xs.open_camera(f"sim:7?width=64&height=48&format=Mono12&exposure={exposure}") as camera:
            dark, light = (xs.record(camera, kind, 8) for kind in ("dark", "light"))
            levels += [dark, light]
            camera.StandInScene = "Light"
            frames = [frame.array.copy() for frame in camera.frames(3)]
    (tmp_path / "frames").mkdir()
    for i, frame in enumerate(frames):
        pixels = frame.astype(">u2").tobytes()
        (tmp_path / "frames" / f"{i}.pgm").write_bytes(b"P5 64 48 4095\n" + pixels)
    names = [tmp_path / f"level_{i}.tif" for i in range(len(levels))]
    for name, level in zip(names, levels):
        xs.write_reference(name, level)
    files = [str(names[-2]), str(names[-1])]
    command = [os.environ["XAPEL2_SHADING_PROGRAM"], "check", *files, "--json", "--list", "--levels"]
    told = json.loads(subprocess.run([*command, *map(str, names), tmp_path / "frames"], stdout=subprocess.PIPE).stdout)
    judgement = xs.check(*files, levels=[*names, tmp_path / "frames"])
    assert judgement["levels"] == told["levels"] and judgement["pair"] == told["pair"]
    assert len(told["levels"]["classes"][0]["points"]) == 5
    assert [finding["id"] for finding in judgement.findings] == [
        finding["id"] for part in ("dark", "light", "pair", "levels") for finding in told[part]["findings"]
    ]
    objects = xs.check(dark, light, iter(levels))
    assert objects["levels"]["conversionGain"] == xs.check(*files, names)["levels"]["conversionGain"]
    assert objects["levels"]["classes"][0]["points"][3]["level"].endswith("level_8.tif")
    assert "levels" not in xs.check(dark, light, [])

    (tmp_path / "empty").mkdir()
    for wrong, error, text in (
        ([dark], xs.ArgumentError, "dark references alone"),
        ([tmp_path / "empty"], xs.ArgumentError, "no image file"),
        ([tmp_path / "none.tif"], FileNotFoundError, "none.tif"),
        ([images.pair("Mono12", 40, 30)[1]], xs.InputOutputError, "another format or size"),
        (tmp_path / "frames", ValueError, "a list of levels"),
    ):
        with pytest.raises(error, match=text):
            xs.check(dark, light, wrong)
