# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""Corrects frames as they come, and looks at each of them.

    python3 live.py [DEVICE [FRAMES]]

DEVICE is "sim", "replay:DIR" or "aravis:ID"; of the last the lens is covered and lit when the program asks for it.
"""

import sys
import time

import xapel2_shading as xs

device = sys.argv[1] if len(sys.argv) > 1 else "sim"
count = int(sys.argv[2]) if len(sys.argv) > 2 else 100

with xs.open_camera(device) as camera:
    has_scenes = "StandInScene" in dir(camera)
    references = []
    for kind, wish in (("dark", "Cover the lens"), ("light", "Show an even, lit field")):
        if not has_scenes:
            input(f"{wish}, then press Enter ")
        references.append(xs.record(camera, kind, progress=lambda done, total: print(f"\r{kind} {done}/{total}", end="")))
        print()
    judgement = xs.check(*references)
    print(judgement)
    if judgement.verdict == "refused":
        sys.exit(1)

    camera.correct(*references)
    if has_scenes:
        camera.StandInScene = "Scene"
    begin = time.monotonic()
    corrected = 0
    for frame in camera.frames(count):
        # No copy: the array is the camera's buffer, which it gets back when the loop goes on.
        if frame.corrected:
            corrected += 1
            brightest = frame.array.max()
        else:
            print(f"frame {frame.number} is as it was: {frame.reason}")
    print(f"{corrected} of {count} frames corrected, {count / (time.monotonic() - begin):.0f} a second")
