# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""Frames and references of any format, from a seed."""

import re

import numpy as np

import xapel2_shading as xs


def bits_of(pixel_format):
    return int(re.search(r"\d+", pixel_format).group())


def is_packed(pixel_format):
    return pixel_format.endswith(("p", "Packed"))


def samples_shape(pixel_format, width, height):
    return (height, width, 3) if pixel_format.startswith(("RGB", "BGR")) else (height, width)


def pair(pixel_format, width=38, height=21, seed=1):
    """A dark and a light reference whose gains differ from place to place."""
    random = np.random.default_rng(seed)
    full = 2 ** bits_of(pixel_format) - 1
    shape = samples_shape(pixel_format, width, height)
    dark = random.uniform(0.0, 0.05, shape) * full
    light = dark + random.uniform(0.3, 0.7, shape) * full
    return xs.Reference(dark, "dark", pixel_format, 16), xs.Reference(light, "light", pixel_format, 16)


def frame(corrector, seed=2):
    """An array of the corrector's format with whatever samples."""
    full = 2 ** (8 if is_packed(corrector.pixel_format) else bits_of(corrector.pixel_format))
    return np.random.default_rng(seed).integers(0, full, corrector.shape, dtype=corrector.dtype)
