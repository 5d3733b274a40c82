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
