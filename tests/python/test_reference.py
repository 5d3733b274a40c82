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
    geometry = {"SensorWidth": 40, "SensorHeight": 9, "OffsetX": 2, "OffsetY": 1, "BinningHorizontal": 2}
    geometry.update(BinningVertical=1, BinningHorizontalMode="Sum", ReverseX=True, ReverseY=False)
    written = xs.Reference(samples, "light", pixel_format, 7, 0.25, 1.5, camera, defects, geometry)
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
        "geometry": geometry,
        "outliers": {"frames": 0, "frames_left_out": 0, "samples": 0, "samples_left_out": 0, "places": []},
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
        ((good, "dark", "Mono8", 2**53 + 1), "1 image"),
        ((good * 1j, "dark", "Mono8"), "complex128"),
        ((good.astype(str), "dark", "Mono8"), "real numbers"),
        ((good * 1e300, "dark", "Mono8"), "0 to 255"),
    ):
        with pytest.raises(ValueError) as refused:
            xs.Reference(*arguments)
        assert text in str(refused.value)
    whole = {"SensorWidth": 3, "SensorHeight": 2}
    deep = {"a": [[[[[[1]]]]]]}
    marks = np.ones((2, 3), np.uint8)
    for more, text in (
        ({"saturated_share": 1.5}, "saturated share"),
        ({"saturated_share": np.nan}, "saturated share"),
        ({"temporal_noise": np.inf}, "temporal noise"),
        ({"temporal_noise": -1}, "temporal noise"),
        ({"defects": good[0]}, "defects of shape (2, 3)"),
        ({"defects": marks * 16}, "0 to 15"),
        ({"defects": marks.astype(int) + 255}, "0 to 15"),
        ({"defects": marks * 0.5}, "whole numbers"),
        ({"defects": marks, "kind": "dark"}, "light reference has them"),
        ({"samples": np.ones((9, 9)), "defects": np.ones((9, 9), int)}, "at most 64 defects"),
        ({"camera": {"Gain": np.inf}}, "JSON"),
        ({"camera": {"a": "x" * 65000}}, "64512 bytes"),
        ({"camera": {"a": deep}}, "7 deep, got"),
        ({"camera": {"a": "\udc00"}}, "surrogates"),
        ({"geometry": {"SensorWidth": 3}}, "SensorHeight"),
        ({"geometry": dict(whole, SensorWidth=3.5)}, "3.5"),
        ({"geometry": dict(whole, OffsetX=1)}, "does not lie on the sensor"),
        ({"geometry": dict(whole, BinningVertical=65)}, "1 to 64, got 65"),
        ({"geometry": dict(whole, ReverseX=2)}, "ReverseX"),
        ({"geometry": dict(whole, BinningVerticalMode="Mean")}, "'Sum' or 'Average'"),
        ({"geometry": dict(whole, Offsetx=0)}, "Offsetx"),
    ):
        with pytest.raises(ValueError) as refused:
            xs.Reference(**{"samples": good, "kind": "light", "pixel_format": "Mono8", **more})
        assert text in str(refused.value)


def test_what_is_taken_can_be_written(tmp_path):
    deepest = {"a": [[[[[[]]]]]]}
    extremes = {
        "samples": np.full((9, 9), 255, np.int64),
        "images": 2**53,
        "saturated_share": 1,
        "temporal_noise": 255,
        "camera": dict(deepest, text="\u00e4\0" + "x" * 64000),
        "defects": (np.arange(81) < 64).reshape(9, 9),
        "geometry": {"SensorWidth": 9 * 64, "SensorHeight": 32768, "BinningHorizontal": 64, "OffsetY": 32759},
    }
    written = xs.Reference(kind="light", pixel_format="Mono8", **extremes)
    xs.write_reference(tmp_path / "light.tif", written)
    assert xs.read_reference(tmp_path / "light.tif").metadata == written.metadata
    before = (tmp_path / "light.tif").read_bytes()
    for other in (extremes["samples"], "dark.tif", None):
        with pytest.raises(TypeError, match="expected a Reference"):
            xs.write_reference(tmp_path / "light.tif", other)
    with pytest.raises(xs.InputOutputError, match="no-folder"):
        xs.write_reference(tmp_path / "no-folder" / "dark.tif", written)
    assert (tmp_path / "light.tif").read_bytes() == before and len(list(tmp_path.iterdir())) == 1
    with pytest.raises(IsADirectoryError):
        xs.read_reference(tmp_path)
