# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""The C++ road of the correction, from Python: what the package is held against."""

import ctypes
import os

_library = ctypes.CDLL(os.environ["XAPEL2_CPP_PATH"])
_library.cppOpen.restype = ctypes.c_void_p
_library.cppOpen.argtypes = [ctypes.c_char_p] * 3 + [ctypes.c_uint64] * 2
_library.cppClose.argtypes = [ctypes.c_void_p]
_library.cppCorrect.restype = ctypes.c_double
_library.cppCorrect.argtypes = [ctypes.c_void_p, ctypes.c_void_p, ctypes.c_uint64]


class CppPath:
    """A shading object of the library, on images in memory."""

    def __init__(self, dark, light, pixel_format, width, height):
        names = [os.fsencode(dark), os.fsencode(light), pixel_format.encode()]
        self._handle = _library.cppOpen(*names, width, height)
        if not self._handle:
            raise RuntimeError(f"no C++ road for {pixel_format}, {width} x {height}")

    def __enter__(self):
        return self

    def __exit__(self, *details):
        _library.cppClose(self._handle)

    def correct(self, array, calls=1):
        """Correct so often in place; the seconds that it took."""
        seconds = _library.cppCorrect(self._handle, array.ctypes.data, calls)
        if seconds < 0:
            raise RuntimeError("the C++ road failed")
        return seconds
