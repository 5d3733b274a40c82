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
        Settings of the camera by their SFNC names.
    defects : array_like of uint8, shape (height, width), optional
        Of a light reference: 0, or what is wrong with a pixel, as bits.

    Raises
    ------
    ValueError
        A shape, a kind, a format or a sample is not what was expected.

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
    ) -> None:
        marks = None if defects is None else np.asarray(defects, dtype=np.uint8)
        array = np.asarray(samples, dtype=np.float32)
        if marks is not None and marks.shape != array.shape[:2]:
            raise ValueError(f"expected defects of shape {array.shape[:2]}, got {marks.shape}")
        text = json.dumps(dict(camera)) if camera else ""
        super().__init__(array, kind, pixel_format, images, saturated_share, temporal_noise, text, marks)

    def __repr__(self) -> str:
        return (
            f"<Reference: {self.kind}, {self.pixel_format}, {self.width} x {self.height}, "
            f"mean of {self.images} frames {self.mean:.2f} DN>"
        )

    @property
    def metadata(self) -> dict[str, Any]:
        """All but the samples and the defects, by name."""
        names = ("kind", "pixel_format", "width", "height", "images", "mean", "saturated_share", "temporal_noise")
        return {name: getattr(self, name) for name in (*names, "output", "camera")}


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

    Examples
    --------
    >>> import os, tempfile
    >>> dark = Reference([[1.0, 2.0]], "dark", "Mono8")
    >>> with tempfile.TemporaryDirectory() as folder:
    ...     write_reference(os.path.join(folder, "dark.tif"), dark)
    ...     read_reference(os.path.join(folder, "dark.tif")).samples
    array([[1., 2.]], dtype=float32)
    """
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
