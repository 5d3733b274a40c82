# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""Opens, streams, corrects and closes again and again, for so many seconds: what a sanitizer watches.

    loop.py SECONDS

Memory that grows, frames that differ and anything that a sanitizer finds end it with a failure.
"""

import gc
import os
import random
import sys
import threading
import time

import numpy as np

import xapel2_shading as xs

FORMATS = ("Mono8", "Mono12", "Mono12p", "BayerRG10p", "RGB8", "Mono16")
GROWTH_MAX = 32 << 20


def resident():
    with open("/proc/self/statm", encoding="ascii") as file:
        return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


def life(pixel_format, rand):
    device = f"sim:{rand.randrange(9)}?width={rand.randrange(32, 200)}&height={rand.randrange(32, 200)}"
    with xs.open_camera(device, buffers=rand.randrange(3, 9), PixelFormat=pixel_format) as camera:
        dark, light = (xs.record(camera, kind, 2) for kind in ("dark", "light"))
        corrector = xs.Corrector(dark, light)
        camera.StandInScene = "Scene"
        raw = next(camera.frames(1)).array.copy()
        camera.StandInFrame = 0
        camera.correct(dark, light, box_light=rand.randrange(2))
        camera.correct(dark, light)
        frame = next(camera.frames(1))
        held = frame.array
        if not np.array_equal(held, corrector(raw)):
            raise SystemExit(f"{pixel_format}: a live frame differs from a corrected array")
        copy = held.copy()
        canceller = threading.Timer(rand.random() * 0.02, camera.cancel)
        canceller.start()
        try:
            for frame in camera.frames(40):
                frame.array[0] = 0
        except xs.FetchCancelled:
            pass
        canceller.join()
        if rand.random() < 0.3:
            camera.close()
    del camera, frame
    if not np.array_equal(held, copy):
        raise SystemExit(f"{pixel_format}: a held frame has changed")


def main():
    rand = random.Random(1)
    end = time.monotonic() + float(sys.argv[1])
    lives = before = 0
    while time.monotonic() < end:
        life(FORMATS[lives % len(FORMATS)], rand)
        lives += 1
        if lives == 60:
            gc.collect()
            before = resident()
    gc.collect()
    # A sanitizer keeps what is freed for a while.
    if before and resident() - before > GROWTH_MAX and "XAPEL2_SANITIZED" not in os.environ:
        raise SystemExit(f"memory has grown by {(resident() - before) >> 20} MiB")
    print(lives, "lives")


if __name__ == "__main__":
    main()
