# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""Corrector: frames in arrays."""

from __future__ import annotations

from typing import Optional, Union

from . import _core
from ._reference import PathLike, Reference, as_files, read_reference


class Corrector(_core.Corrector):
    """Corrects frames of one pixel format and size, in place or into another array.

    A frame is a C-contiguous array: ``uint8``, or ``uint16`` for unpacked formats above 8 bits; of shape
    ``(height, width)``, ``(height, width, 3)`` for RGB8 and BGR8, or ``(bytes,)`` for packed formats.

    Parameters
    ----------
    dark, light : path or Reference, optional
        The references; one of them at least. Without a dark one nothing is taken off, without a light one the gain is 1.
    pixel_format : str, optional
        PFNC name of the frames; that of the references where it is missing. A packed format takes references of the
        unpacked one of the same samples.
    width, height : int, optional
        Pixels; those of the references where they are missing.
    box_dark, box_light, median_dark, median_light : int, optional
        Radius r of a filter on a reference, pixels, 0 to 31; window (2r+1) x (2r+1), 0 is off.

    Attributes
    ----------
    description : str
        Table layout and vector target of the correction.
    corrected : int
        Frames that have been corrected.
    untouched : dict of str to int
        Reasons why frames were refused, and how often.

    Raises
    ------
    ValueError
        No reference, a format that is not known, or a reference of another format or size.
    OSError
        A file is missing, or is no reference of its kind.

    Notes
    -----
    Frames are corrected on the calling thread, with the interpreter's lock released. Two threads with a corrector each
    do not wait for each other; with one corrector they take turns.

    Examples
    --------
    >>> import numpy as np
    >>> light = Reference([[100.0, 200.0], [150.0, 150.0]], "light", "Mono8")
    >>> corrector = Corrector(light=light)
    >>> frame = np.array([[50, 100], [75, 75]], dtype=np.uint8)
    >>> corrector(frame)
    array([[75, 75],
           [75, 75]], dtype=uint8)
    >>> corrector.corrected
    1
    >>> corrector(frame.astype(float))
    Traceback (most recent call last):
    ...
    xapel2_shading._errors.ArgumentError: expected a C-contiguous, writable array of uint8 and shape (2, 2) for Mono8 \
of 2 x 2 pixels, got dtype float64
    """

    def __init__(
        self,
        dark: Union[PathLike, Reference, None] = None,
        light: Union[PathLike, Reference, None] = None,
        pixel_format: Optional[str] = None,
        width: Optional[int] = None,
        height: Optional[int] = None,
        *,
        box_dark: int = 0,
        box_light: int = 0,
        median_dark: int = 0,
        median_light: int = 0,
    ) -> None:
        source = dark if light is None else light
        if source is None:
            raise ValueError("expected a dark reference, a light one, or both")
        if pixel_format is None or width is None or height is None:
            known = source if isinstance(source, Reference) else read_reference(source)
            pixel_format = known.pixel_format if pixel_format is None else pixel_format
            width = known.width if width is None else width
            height = known.height if height is None else height
        with as_files(dark, light) as (dark_file, light_file):
            super().__init__(
                dark_file,
                light_file,
                pixel_format,
                width,
                height,
                box_dark,
                box_light,
                median_dark,
                median_light,
            )

    def __repr__(self) -> str:
        return f"<Corrector: {self.pixel_format}, {self.width} x {self.height}, {self.description}>"
