# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""What the package raises beside Python's own exceptions."""

from __future__ import annotations


class GenTLError(Exception):
    """An operation of the host or of its image processor failed.

    Attributes
    ----------
    code : int
        GenTL code, below 0.
    """

    def __init__(self, text: str = "", code: int = -1001) -> None:
        super().__init__(text)
        self.code = code


class ArgumentError(GenTLError, ValueError):
    """An array, a setting or a parameter is not what was expected; nothing has changed."""


class InputOutputError(GenTLError, OSError):
    """A file or a camera cannot be used."""


class FetchTimeout(InputOutputError, TimeoutError):
    """The camera delivered no frame in time."""


class StreamError(GenTLError, RuntimeError):
    """Another operation cannot be done now."""


class FetchCancelled(StreamError):
    """``Camera.cancel()`` ended the wait."""
