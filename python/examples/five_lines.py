# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""From nothing to a corrected array."""

import xapel2_shading as xs

with xs.open_camera("sim") as camera:
    dark, light = xs.record(camera, "dark"), xs.record(camera, "light")
    frame = next(camera.frames(1)).array.copy()
print("uneven:", frame.std() / frame.mean(), "before,", xs.Corrector(dark, light)(frame).std() / frame.mean(), "after")
