# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""References: files and objects."""

import gc

import numpy as np
import pytest

import images
import xapel2_shading as xs


@pytest.mark.parametrize("pixel_format", ["Mono8", "BayerRG12p", "RGB8"])
def test_what_is_written_is_read(tmp_path, pixel_format):
    shape = images.samples_shape(pixel_format, 5, 3)
    samples = np.random.default_rng(1).uniform(0, 200, shape).astype(np.float32)
    defects = np.zeros((3, 5), np.uint8)
    defects[1, 4] = 2
    camera = {"ExposureTime": 2500.0, "ReverseX": True}
    written = xs.Reference(samples, "light", pixel_format, 7, 0.25, 1.5, camera, defects)
    xs.write_reference(tmp_path / "light.tif", written)
    read = xs.read_reference(tmp_path / "light.tif")
    np.testing.assert_array_equal(read.samples, samples)
    np.testing.assert_array_equal(read.defects, defects)
    assert read.metadata == {
        "kind": "light",
        "pixel_format": pixel_format,
        "width": 5,
        "height": 3,
        "images": 7,
        "mean": pytest.approx(float(samples.mean()), rel=1e-6),
        "saturated_share": 0.25,
        "temporal_noise": 1.5,
        "output": {"target": "mean", "pedestal": 0.0},
        "camera": camera,
    }


def test_samples_outlive_the_reference():
    samples = xs.Reference(np.full((50, 40), 3.0), "dark", "Mono8").samples
    gc.collect()
    assert not samples.flags.writeable and (samples == 3.0).all()


def test_what_is_no_reference_is_refused(tmp_path):
    good = np.ones((2, 3))
    for arguments, text in (
        ((good, "grey", "Mono8"), "'dark' or 'light'"),
        ((good, "dark", "Mono9"), "Mono9"),
        ((good, "dark", "RGB8"), "(height, width, 3)"),
        ((good[0], "dark", "Mono8"), "(height, width)"),
        ((good * 256, "dark", "Mono8"), "0 to 255"),
        ((good * np.nan, "dark", "Mono8"), "0 to 255"),
        ((-good, "dark", "Mono8"), "0 to 255"),
        ((good, "dark", "Mono8", 0), "1 image"),
        ((good[:0], "dark", "Mono8"), "pixels a side"),
        ((good, "light", "Mono8", 1, 0.0, 0.0, None, good[0]), "defects"),
    ):
        with pytest.raises(ValueError) as refused:
            xs.Reference(*arguments)
        assert text in str(refused.value)
    with pytest.raises(xs.InputOutputError, match="no-folder"):
        xs.write_reference(tmp_path / "no-folder" / "dark.tif", xs.Reference(good, "dark", "Mono8"))
    with pytest.raises(IsADirectoryError):
        xs.read_reference(tmp_path)
