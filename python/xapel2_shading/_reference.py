# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""References: the mean of a recording, with what is known about it."""

from __future__ import annotations

import contextlib
import json
import os
import shutil
import tempfile
import weakref
from typing import Any, Iterator, Mapping, Optional, Union

import numpy as np
import numpy.typing as npt

from . import _core

PathLike = Union[str, "os.PathLike[str]"]


# What the description in a file has room for.
_CAMERA_BYTES = 63 << 10
_CAMERA_DEPTH = 7
_DEFECT_BITS = 15


def _depth(value: object) -> int:
    if isinstance(value, dict):
        return 1 + max(map(_depth, value.values()), default=0)
    return 1 + max(map(_depth, value), default=0) if isinstance(value, (list, tuple)) else 0


def _camera_text(camera: Mapping[str, Any]) -> str:
    """The settings as JSON that a file can carry."""
    settings = dict(camera)
    text = json.dumps(settings, allow_nan=False, ensure_ascii=False)
    size, depth = len(text.encode()), _depth(settings)
    if size > _CAMERA_BYTES or depth > _CAMERA_DEPTH:
        raise ValueError(
            f"expected settings of the camera of up to {_CAMERA_BYTES} bytes of JSON, nested up to {_CAMERA_DEPTH} deep, "
            f"got {size} bytes, {depth} deep"
        )
    return text


def _defects(defects: npt.ArrayLike, shape: tuple[int, ...]) -> npt.NDArray[np.uint8]:
    marks = np.asarray(defects)
    if marks.shape != shape:
        raise ValueError(f"expected defects of shape {shape}, got {marks.shape}")
    if marks.dtype.kind not in "biu" or (marks < 0).any() or (marks > _DEFECT_BITS).any():
        raise ValueError(f"expected defects of 0 to {_DEFECT_BITS}, whole numbers")
    return marks.astype(np.uint8)


class Reference(_core.Reference):
    """The mean of the frames of one recording, DN.

    Parameters
    ----------
    samples : array_like of float32, shape (height, width), or (height, width, 3) for RGB8 and BGR8
        Mean of each sample, DN, 0 to the full scale of the format. Copied.
    kind : {"dark", "light"}
        Recorded with the lens covered, or of an even, lit field.
    pixel_format : str
        PFNC name of the frames, one of ``PIXEL_FORMATS``.
    images : int, optional
        Number of frames that were averaged, 1 or more.
    saturated_share : float, optional
        Share of samples at full scale over all frames, 0 to 1.
    temporal_noise : float, optional
        Temporal standard deviation of a sample in one frame, DN.
    camera : mapping, optional
        Settings of the camera by their SFNC names, what JSON can say: up to 63 KiB, nested up to 7 deep.
    defects : array_like of uint8, shape (height, width), optional
        Of a light reference: 0, or what is wrong with a pixel, as bits. It marks 64 pixels at most, or one of 32.
    geometry : mapping, optional
        Where on the sensor the frames lay, pixels, by SFNC names: SensorWidth and SensorHeight; OffsetX, OffsetY,
        BinningHorizontal, BinningVertical, their BinningHorizontalMode and BinningVerticalMode ("Sum", "Average"),
        ReverseX, ReverseY where they are not 0, 1, unknown, False. Without it nothing is known of that, and the
        reference corrects frames of its own size.

    Raises
    ------
    ValueError
        A shape, a kind, a format, a sample, a number or the geometry is not what was expected.

    Examples
    --------
    >>> import numpy as np
    >>> dark = Reference(np.full((4, 6), 16.0), "dark", "Mono12", images=32)
    >>> dark
    <Reference: dark, Mono12, 6 x 4, mean of 32 frames 16.00 DN>
    >>> dark.samples.shape, dark.samples.dtype
    ((4, 6), dtype('float32'))
    """

    def __init__(
        self,
        samples: npt.ArrayLike,
        kind: str,
        pixel_format: str,
        images: int = 1,
        saturated_share: float = 0.0,
        temporal_noise: float = 0.0,
        camera: Optional[Mapping[str, Any]] = None,
        defects: Optional[npt.ArrayLike] = None,
        geometry: Optional[Mapping[str, Any]] = None,
    ) -> None:
        array = np.asarray(samples)
        if array.dtype.kind not in "biuf":
            raise ValueError(f"expected samples that are real numbers, got dtype {array.dtype}")
        if images < 1:
            raise ValueError(f"expected 1 image or more, got {images}")
        marks = None if defects is None else _defects(defects, array.shape[:2])
        text = _camera_text(camera) if camera else ""
        place = dict(geometry) if geometry else {}
        with np.errstate(over="ignore"):
            array = array.astype(np.float32)
        super().__init__(array, kind, pixel_format, images, saturated_share, temporal_noise, text, marks, place)

    def __repr__(self) -> str:
        return (
            f"<Reference: {self.kind}, {self.pixel_format}, {self.width} x {self.height}, "
            f"mean of {self.images} frames {self.mean:.2f} DN>"
        )

    @property
    def metadata(self) -> dict[str, Any]:
        """All but the samples and the defects, by name.

        ``geometry`` has the SFNC names of the constructor, and is empty where it is not known; ``outliers`` counts the
        frames and samples that left the others of the recording and those that are not in the mean, and has ``places``:
        what it was, the frame's number from 1 on, the rectangle in pixels, samples, deviation in DN, left out or not.
        """
        names = ("kind", "pixel_format", "width", "height", "images", "mean", "saturated_share", "temporal_noise")
        return {name: getattr(self, name) for name in (*names, "output", "camera", "geometry", "outliers")}


def read_reference(file: PathLike) -> Reference:
    """Read a reference file, and check all of it.

    Parameters
    ----------
    file : path
        A file that ``write_reference``, a recording or the command line has written.

    Returns
    -------
    Reference
        With ``samples``, a read-only float32 array in DN, and ``metadata``.

    Raises
    ------
    OSError
        The file cannot be read, or is no reference; names it.
    """
    path = os.fspath(file)
    # Python's own exceptions for a file that is not there, or may not be read.
    with open(path, "rb"):
        pass
    reference = Reference.__new__(Reference)
    _core.Reference.__init__(reference, path)
    return reference


def write_reference(file: PathLike, reference: Reference) -> None:
    """Write a reference file; it appears whole or not at all.

    Parameters
    ----------
    file : path
        Replaced where it exists.
    reference : Reference
        What to write.

    Raises
    ------
    OSError
        The file cannot be written; an older one of this name is as it was.
    TypeError
        It is no Reference; nothing is written.

    Examples
    --------
    >>> import os, tempfile
    >>> dark = Reference([[1.0, 2.0]], "dark", "Mono8")
    >>> with tempfile.TemporaryDirectory() as folder:
    ...     write_reference(os.path.join(folder, "dark.tif"), dark)
    ...     read_reference(os.path.join(folder, "dark.tif")).samples
    array([[1., 2.]], dtype=float32)
    """
    if not isinstance(reference, Reference):
        raise TypeError(f"expected a Reference, got {type(reference).__name__}; Reference(array, kind, format) makes one")
    reference._write(os.fspath(file))


def _remove(folder: str, owner: int) -> None:
    if os.getpid() == owner:
        shutil.rmtree(folder, ignore_errors=True)


class OwnFolder:
    """A temporary folder, as a context; taken away by the process that made it, not by its forks."""

    def __init__(self) -> None:
        self._path = tempfile.mkdtemp(prefix="xapel2-shading-")
        self._remove = weakref.finalize(self, _remove, self._path, os.getpid())

    def __enter__(self) -> str:
        return self._path

    def __exit__(self, *details: object) -> None:
        self._remove()


@contextlib.contextmanager
def as_files(
    dark: Union[PathLike, Reference, None], light: Union[PathLike, Reference, None]
) -> Iterator[tuple[str, str]]:
    """The names of files with both references, "" for none; files of our own are gone afterwards."""
    with contextlib.ExitStack() as stack:
        names = []
        for reference, name in ((dark, "dark.tif"), (light, "light.tif")):
            if isinstance(reference, Reference):
                folder = stack.enter_context(OwnFolder())
                path = os.path.join(folder, name)
                write_reference(path, reference)
                names.append(path)
            elif reference is None:
                names.append("")
            else:
                path = os.fspath(reference)
                with open(path, "rb"):
                    pass
                names.append(path)
        yield names[0], names[1]
