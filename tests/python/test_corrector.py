# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""Corrector: bytes, refusals, counts, threads."""

import threading

import numpy as np
import pytest

import images
import xapel2_shading as xs
from cpp_path import CppPath


@pytest.fixture
def files(tmp_path):
    """Writes a pair, and yields the names of its files."""

    def write(pixel_format, width=38, height=21):
        names = []
        for reference in images.pair(pixel_format, width, height):
            names.append(tmp_path / f"{reference.kind}.tif")
            xs.write_reference(names[-1], reference)
        return names

    return write


@pytest.mark.parametrize("pixel_format", xs.PIXEL_FORMATS)
def test_bytes_are_those_of_cpp(files, pixel_format):
    dark, light = files(pixel_format)
    corrector = xs.Corrector(dark, light)
    source = images.frame(corrector)
    expected = source.copy()
    with CppPath(dark, light, pixel_format, corrector.width, corrector.height) as cpp:
        cpp.correct(expected)
    assert (expected != source).any()

    kept, out = source.copy(), np.zeros_like(source)
    assert corrector(kept, out=out) is out
    np.testing.assert_array_equal(kept, source)
    np.testing.assert_array_equal(out, expected)

    assert corrector(kept) is kept
    np.testing.assert_array_equal(kept, expected)
    assert (corrector.corrected, corrector.untouched) == (2, {})


def test_packed_frames_take_references_of_the_unpacked_format(files):
    dark, light = files("Mono12")
    corrector = xs.Corrector(dark=dark, light=light, pixel_format="Mono12p")
    frame = images.frame(corrector)
    expected = frame.copy()
    with CppPath(dark, light, "Mono12p", 38, 21) as cpp:
        cpp.correct(expected)
    np.testing.assert_array_equal(corrector(frame), expected)


def test_references_come_as_files_or_objects_with_filters(files):
    dark, light = files("Mono12")
    objects = [xs.read_reference(file) for file in (dark, light)]
    source = images.frame(xs.Corrector(*objects))
    results = [
        xs.Corrector(*pair, **filters)(source.copy())
        for filters in ({}, {"box_light": 1}, {"median_light": 1}, {"box_dark": 2}, {"median_dark": 1})
        for pair in ((dark, light), objects)
    ]
    for from_files, from_objects in zip(results[::2], results[1::2]):
        np.testing.assert_array_equal(from_files, from_objects)
    assert len({result.tobytes() for result in results}) == 5


def test_each_filter_is_on_its_reference():
    spot = np.full((9, 9), 10.0)
    spot[4, 4] = 100.0
    frame = np.full((9, 9), 110, np.uint8)
    for kind, other in (("dark", "light"), ("light", "dark")):
        reference = {kind: xs.Reference(spot, kind, "Mono8")}

        def corrected(**filters):
            return xs.Corrector(**reference, **filters)(frame.copy())

        # Only the median takes a spot away whole; only the box spreads it.
        assert len(np.unique(corrected(**{f"median_{kind}": 1}))) == 1
        assert corrected(**{f"box_{kind}": 1})[3, 3] != corrected()[3, 3]
        for name in (f"median_{other}", f"box_{other}"):
            np.testing.assert_array_equal(corrected(**{name: 1}), corrected())


def readonly(array):
    array.flags.writeable = False
    return array


def unaligned(array):
    memory = np.zeros(array.nbytes + 1, np.uint8)
    return memory[1:].view(array.dtype).reshape(array.shape)


# What becomes of a good array, the reason that is counted, and what the message tells.
REFUSALS = {
    "read-only": (readonly, "read-only", "writable array of uint16 and shape (21, 38) for Mono12 of 38 x 21 pixels"),
    "every second column": (lambda a: np.zeros((21, 76), np.uint16)[:, ::2], "not contiguous", "C-contiguous"),
    "transposed memory": (np.asfortranarray, "not contiguous", "C-contiguous"),
    "float": (lambda a: a.astype(float), "wrong dtype", "got dtype float64"),
    "signed": (lambda a: a.astype(np.int16), "wrong dtype", "got dtype int16"),
    "big endian": (lambda a: a.astype(">u2"), "wrong dtype", "got dtype >u2"),
    "too narrow": (lambda a: a.astype(np.uint8), "wrong dtype", "array of uint16"),
    "one row less": (lambda a: a[1:], "wrong shape", "got shape (20, 38)"),
    "one dimension": (np.ravel, "wrong shape", "got shape (798,)"),
    "three dimensions": (lambda a: a[..., np.newaxis], "wrong shape", "got shape (21, 38, 1)"),
    "odd address": (unaligned, "not aligned", "not aligned"),
}


@pytest.mark.parametrize("name", REFUSALS)
@pytest.mark.parametrize("as_out", [False, True])
def test_unfit_arrays_are_refused(name, as_out):
    change, reason, text = REFUSALS[name]
    corrector = xs.Corrector(*images.pair("Mono12"))
    good = images.frame(corrector)
    bad = change(good.copy())
    before = bad.copy()
    with pytest.raises(xs.ArgumentError) as refused:
        corrector(good, out=bad) if as_out else corrector(bad)
    assert isinstance(refused.value, ValueError) and refused.value.code == -1009
    assert text in str(refused.value)
    np.testing.assert_array_equal(bad, before)
    assert (corrector.corrected, corrector.untouched) == (0, {reason: 1})


def test_other_refusals():
    corrector = xs.Corrector(*images.pair("Mono10p"))
    frame = images.frame(corrector)
    with pytest.raises(xs.ArgumentError, match=r"uint8 and shape \(998,\) for Mono10p.*got shape \(997,\)"):
        corrector(frame[:-1])
    with pytest.raises(TypeError, match="expected a C-contiguous.*got list"):
        corrector(frame.tolist())
    memory = np.zeros(frame.size + 5, np.uint8)
    with pytest.raises(xs.ArgumentError, match="shares no memory"):
        corrector(memory[:-5], out=memory[5:])
    assert corrector.untouched == {"wrong length": 1, "no array": 1, "overlap": 1}
    # What cannot be written to can be read from.
    assert corrector(readonly(frame.copy()), out=frame) is frame
    assert corrector(frame, out=frame) is frame


def test_references_that_do_not_fit_are_refused(files, tmp_path):
    dark, light = files("Mono12")
    (tmp_path / "text.tif").write_text("no reference")
    for arguments, error, text in (
        ({}, ValueError, "expected a dark reference"),
        ({"light": tmp_path / "none.tif"}, FileNotFoundError, "none.tif"),
        ({"light": tmp_path / "text.tif"}, xs.InputOutputError, "text.tif"),
        ({"light": dark, "pixel_format": "Mono12", "width": 38, "height": 21}, xs.InputOutputError, "dark reference"),
        ({"light": light, "pixel_format": "Mono99"}, ValueError, "Mono99"),
        ({"light": light, "pixel_format": "Mono8"}, xs.InputOutputError, "a reference is of Mono12 38x21"),
        ({"light": light, "width": 40}, xs.InputOutputError, "Mono12 40x21; a reference is of Mono12 38x21"),
        ({"light": light, "height": 0}, ValueError, "38 x 0"),
        ({"light": light, "width": 1 << 40}, ValueError, "pixels"),
        ({"light": light, "box_light": 32}, ValueError, "0 to 31"),
    ):
        with pytest.raises(error) as refused:
            xs.Corrector(**arguments)
        assert text in str(refused.value), arguments


def test_description_is_the_tables():
    for pixel_format in ("Mono8", "Mono16"):
        description = xs.Corrector(*images.pair(pixel_format)).description
        assert description not in ("", "none")


def test_threads_share_a_corrector_and_have_their_own():
    shared = xs.Corrector(*images.pair("Mono12", 300, 200))
    own = [xs.Corrector(*images.pair("Mono12", 300, 200)) for _ in range(3)]
    source = images.frame(shared)
    expected = shared(source.copy())
    wrong = []

    def work(correctors):
        out = np.empty_like(source)
        for i in range(200):
            if not np.array_equal(correctors[i % len(correctors)](source, out=out), expected):
                wrong.append(i)

    threads = [threading.Thread(target=work, args=([shared, corrector],)) for corrector in own]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not wrong
    assert shared.corrected == 301 and shared.untouched == {}
