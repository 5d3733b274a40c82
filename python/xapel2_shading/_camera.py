# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""Cameras that stream through the shading library."""

from __future__ import annotations

import atexit
import contextlib
import os
import warnings
import weakref
from typing import Any, Callable, Iterator, Optional, Union

from . import _core as core
from ._core import Frame
from ._errors import StreamError
from ._reference import OwnFolder, PathLike, Reference, as_files, read_reference

#: Settings that cameras have, as far as ``dir(camera)`` shows them.
SETTINGS = (
    "AcquisitionFrameRate",
    "BinningHorizontal",
    "BinningVertical",
    "DeviceModelName",
    "ExposureTime",
    "Gain",
    "Height",
    "OffsetX",
    "OffsetY",
    "PixelFormat",
    "ReverseX",
    "ReverseY",
    "StandInFrame",
    "StandInFrameCount",
    "StandInScene",
    "Width",
)

# A camera has threads, which must not outlive the interpreter.
_open_cameras: "weakref.WeakSet[Camera]" = weakref.WeakSet()


@atexit.register
def _close_all() -> None:
    for camera in list(_open_cameras):
        with contextlib.suppress(Exception):
            camera.close()


class Camera:
    """An open camera. ``open_camera`` makes one.

    Settings are attributes by their SFNC names: ``camera.ExposureTime = 5000.0``, ``camera.PixelFormat``. Numbers come
    as int or float, everything else as text. Those that the size of a frame depends on are locked while the camera runs.

    Iteration starts the camera where it does not run, yields frames without end, and stops it again. All waits end with
    the exception that a signal raises (Ctrl-C), and by ``cancel()``.

    A camera belongs to the process that opened it: a child that was forked can neither use nor disturb it.

    Examples
    --------
    >>> with open_camera("sim:7?width=64&height=48", PixelFormat="Mono12") as camera:
    ...     camera.ExposureTime = 2000
    ...     for frame in camera.frames(2):
    ...         print(frame.number, frame.array.shape, frame.array.dtype, frame.complete, frame.corrected)
    0 (48, 64) uint16 True False
    1 (48, 64) uint16 True False
    """

    __slots__ = ("_core", "_files", "__weakref__")
    _core: core.Camera
    _files: contextlib.ExitStack

    def __init__(self, device: str, *, timeout: float = 10.0, buffers: int = 0, **settings: Any) -> None:
        if not timeout > 0:
            raise ValueError(f"expected a timeout above 0 s, got {timeout}")
        object.__setattr__(self, "_core", core.Camera(device, timeout, buffers))
        # Files of the references that correct: a recording in between loads them again.
        object.__setattr__(self, "_files", contextlib.ExitStack())
        _open_cameras.add(self)
        try:
            for name, value in settings.items():
                setattr(self, name, value)
        except BaseException:
            self.close()
            raise

    def __repr__(self) -> str:
        return f"<Camera: {self.device}, {'open' if self.is_open else 'closed'}>"

    def __enter__(self) -> "Camera":
        return self

    def __exit__(self, *details: object) -> None:
        self.close()

    def __getattr__(self, name: str) -> Any:
        if name.startswith("_") or not self._core.has_node(name):
            raise AttributeError(f"{self.device} has no setting {name!r}")
        text, is_number = self._core.get_node(name)
        if not is_number:
            return text
        try:
            return int(text)
        except ValueError:
            return float(text)

    def __setattr__(self, name: str, value: Any) -> None:
        if hasattr(type(self), name):
            raise AttributeError(f"{name!r} of a camera cannot be set")
        if not self._core.has_node(name):
            raise AttributeError(f"{self.device} has no setting {name!r}")
        # What takes whole numbers only takes 2500.0, too; True is 1.
        is_whole = isinstance(value, bool) or (isinstance(value, float) and value.is_integer())
        self._core.set_node(name, str(int(value)) if is_whole else str(value))

    def __dir__(self) -> list[str]:
        have = [name for name in SETTINGS if self.is_open and self._core.has_node(name)]
        return sorted([*super().__dir__(), *have])

    def __iter__(self) -> Iterator[Frame]:
        return self.frames()

    @property
    def device(self) -> str:
        """The identifier that it was opened by."""
        return self._core.device

    @property
    def is_open(self) -> bool:
        """True until it is closed, in the process that opened it."""
        return self._core.is_open

    @property
    def running(self) -> bool:
        """True from ``start()`` to ``stop()``."""
        return self._core.running

    @property
    def correcting(self) -> bool:
        """True while frames are corrected."""
        return self._core.correcting

    @property
    def buffers(self) -> int:
        """Buffers of the ring: as many frames can be held at once."""
        return self._core.buffers

    @property
    def underruns(self) -> int:
        """Frames since the last start that were lost because no buffer was free."""
        return self._core.underruns

    def start(self, frames: Optional[int] = None) -> None:
        """Start the camera, which delivers so many frames, or frames without end.

        Raises
        ------
        RuntimeError
            It runs already, or cannot be started.
        """
        self._core.start(frames)

    def stop(self) -> None:
        """Stop the camera. Frames that are held stay as they are; those that wait are dropped."""
        self._core.stop()

    def fetch(self) -> Frame:
        """Wait for the next frame of a running camera.

        Returns
        -------
        Frame
            Its ``array`` is a view of the announced buffer, which is given back when the frame and all arrays of it are
            gone, or by ``release()``.

        Raises
        ------
        FetchTimeout
            None came in time.
        FetchCancelled
            ``cancel()`` was called meanwhile.
        RuntimeError
            The camera does not run, or frames hold all buffers.
        """
        return self._core.fetch()

    def frames(self, count: Optional[int] = None) -> Iterator[Frame]:
        """Yield so many frames, or frames without end.

        Parameters
        ----------
        count : int, optional
            Incomplete frames count, too.

        Yields
        ------
        Frame
            See ``fetch``.

        Raises
        ------
        FetchCancelled
            ``cancel()`` was called since the first frame was asked for.
        """
        cancels = self._core.cancels
        starts = not self.running
        if starts:
            self.start()
        try:
            done = 0
            while count is None or done < count:
                yield self._core.fetch(cancels)
                done += 1
        finally:
            if starts:
                self._stop_if_open()

    def _stop_if_open(self) -> None:
        """A loop that ends has nothing to say about a camera that another thread has closed, or closes just then."""
        try:
            if self.is_open:
                self.stop()
        except StreamError:
            if self.is_open:
                raise

    def cancel(self) -> None:
        """End the waits of other threads: fetches, loops over frames, and recordings, with ``FetchCancelled``."""
        self._core.cancel()

    def close(self) -> None:
        """Close the camera; waits of other threads end. Frames that are held stay good. Closing again does nothing."""
        self._core.close()
        self._files.close()
        _open_cameras.discard(self)

    def correct(
        self,
        dark: Union[PathLike, Reference, None] = None,
        light: Union[PathLike, Reference, None] = None,
        *,
        box_dark: int = 0,
        box_light: int = 0,
        median_dark: int = 0,
        median_light: int = 0,
    ) -> None:
        """Have frames corrected from now on, on the thread that fetches them.

        Parameters
        ----------
        dark, light, box_dark, box_light, median_dark, median_light
            As of ``Corrector``; for the present pixel format and size of the camera.

        Raises
        ------
        ValueError
            No reference.
        OSError
            A file cannot be used, or a reference is of another format or size.

        Examples
        --------
        >>> with open_camera("sim:7?width=64&height=48") as camera:
        ...     camera.correct(record(camera, "dark"), record(camera, "light"))
        ...     [frame.corrected for frame in camera.frames(3)]
        [True, True, True]
        """
        if dark is None and light is None:
            raise ValueError("expected a dark reference, a light one, or both")
        with contextlib.ExitStack() as stack:
            names = stack.enter_context(as_files(dark, light))
            self._core.correct(*names, box_dark, box_light, median_dark, median_light)
            self._files.close()
            object.__setattr__(self, "_files", stack.pop_all())
        if not self.is_open:
            # Another thread has closed it just now, and has not seen these files.
            self._files.close()

    def stop_correcting(self) -> None:
        """Have frames come as they are."""
        self._core.stop_correcting()


def open_camera(device: str, *, timeout: float = 10.0, buffers: int = 0, **settings: Any) -> Camera:
    """Open a camera.

    Parameters
    ----------
    device : str
        ``"sim"``, ``"sim:SEED?width=640&height=480&format=Mono12"``: the simulated camera; ``"replay:DIR"``: the frames
        of a folder; ``"aravis:ID"``: a GigE Vision or USB3 Vision camera. ``devices()`` lists what there is.
    timeout : float, optional
        Longest wait for a frame beyond its exposure time, s.
    buffers : int, optional
        Buffers of the ring; 0: as many as suit the camera.
    **settings
        Written in this order, by their SFNC names.

    Returns
    -------
    Camera
        A context manager, which closes it.

    Raises
    ------
    OSError
        The camera is not there, or another program has it.
    ValueError
        No such device, or a value out of range.
    AttributeError
        The camera has no setting of a name.
    """
    return Camera(device, timeout=timeout, buffers=buffers, **settings)


def devices() -> list[tuple[str, str]]:
    """Identifier and description of the cameras that are found within two seconds or so.

    >>> devices()[0]
    ('sim', 'Simulated camera')
    """
    return core.devices()


def _warn(recording: dict[str, Any], wanted: int, reference: Reference) -> None:
    """What a recording could do all the same, but not as it was asked to, and what was unsteady in it."""
    if recording["left_out"]:
        warnings.warn(f"{recording['left_out']} frames left out, the first: {recording['why_left_out']}", stacklevel=3)
    if recording["frames"] < wanted:
        warnings.warn(f"the reference is made of {recording['frames']} frames, all that there are", stacklevel=3)
    if recording["underruns"]:
        warnings.warn(f"{recording['underruns']} frames found no buffer free", stacklevel=3)
    if recording["why_no_settings"]:
        warnings.warn(f"without the settings of the camera: {recording['why_no_settings']}", stacklevel=3)
    for text in reference._warnings():
        warnings.warn(text, stacklevel=3)


def record(
    camera: Camera,
    kind: str,
    frames: int = 16,
    progress: Optional[Callable[[int, int], object]] = None,
    *,
    keep_outliers: bool = False,
) -> Reference:
    """Record a reference from a camera that does not run.

    Parameters
    ----------
    camera : Camera
        A simulated camera or a folder shows the scene by itself; a real one has to be pointed at it.
    kind : {"dark", "light"}
        What the camera sees: nothing, or an even, lit field.
    frames : int, optional
        Frames to average. Incomplete ones are left out, and others taken.
    progress : callable, optional
        Called as ``progress(done, total)`` for each frame; what it raises ends the recording.
    keep_outliers : bool, optional
        Frames and samples that left the others stay in the mean. Without it they do not, in a recording of 8 frames or
        more; either way ``reference.outliers`` tells of them.

    Returns
    -------
    Reference
        With the settings of the camera, and where on the sensor its frames lay.

    Raises
    ------
    RuntimeError
        The camera runs, or delivers no complete frame.

    Warns
    -----
    UserWarning
        Frames were left out or lost, some were unlike the others, there are fewer than were asked for, or the camera does
        not tell its settings.

    Examples
    --------
    >>> with open_camera("sim:7?width=64&height=48&format=Mono12") as camera:
    ...     record(camera, "dark", frames=4).metadata["images"]
    4
    """
    if kind not in ("dark", "light"):
        raise ValueError(f"expected kind 'dark' or 'light', got {kind!r}")
    if frames < 1:
        raise ValueError(f"expected 1 frame or more, got {frames}")
    correcting = camera.correcting
    with OwnFolder() as folder:
        file = os.path.join(folder, "reference.tif")
        recording = camera._core.record(kind == "light", frames, file, progress, keep_outliers)
        reference = read_reference(file)
        _warn(recording, frames, reference)
        if correcting and not camera.correcting:
            warnings.warn("correction could not be switched on again; call correct()", stacklevel=2)
        return reference
