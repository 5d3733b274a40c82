# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""Shading correction (flat-field correction) of camera frames, on numpy arrays without a copy.

A dark and a light reference give each pixel an offset and a gain. Record them from a camera, or read them from files;
then correct arrays, or have a camera deliver corrected frames.

>>> import xapel2_shading as xs
>>> with xs.open_camera("sim") as camera:
...     dark, light = (xs.record(camera, kind, frames=8) for kind in ("dark", "light"))
...     camera.StandInScene = "Light"
...     frame = next(camera.frames(1)).array.copy()
>>> before = frame.std() / frame.mean()
>>> corrected = xs.Corrector(dark, light)(frame)
>>> bool(corrected.std() / corrected.mean() < before / 2)
True
"""

from ._camera import Camera, devices, open_camera, record
from ._core import PIXEL_FORMATS, VERSION as __version__, Frame
from ._corrector import Corrector
from ._errors import ArgumentError, FetchCancelled, FetchTimeout, GenTLError, InputOutputError, StreamError
from ._judgement import Judgement, check
from ._reference import Reference, read_reference, write_reference

__all__ = [
    "ArgumentError",
    "Camera",
    "Corrector",
    "FetchCancelled",
    "FetchTimeout",
    "Frame",
    "GenTLError",
    "InputOutputError",
    "Judgement",
    "PIXEL_FORMATS",
    "Reference",
    "StreamError",
    "check",
    "devices",
    "open_camera",
    "read_reference",
    "record",
    "write_reference",
]
