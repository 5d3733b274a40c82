#!/usr/bin/python3
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""Corrects image files with the application, beside cp, a plain numpy script and one with OpenCV, in turn.

    bench/files.py APPLICATION [--frames N] [--size WIDTHxHEIGHT] [--rounds N] [--folder DIR] [--quick]

Each is a process of its own, timed from its start to its end. All corrected files are compared with numpy's. The folder
should be in memory, as /dev/shm is: then a disc has no say.
"""

import argparse
import os
import pathlib
import shutil
import statistics
import struct
import subprocess
import sys
import tempfile
import time

# What both scripts begin with.
GAIN = r'''
import pathlib, sys
import numpy as np
folder, out, dark, light, width, height = sys.argv[1:]
width, height = int(width), int(height)
dark = np.fromfile(dark, np.float32).reshape(height, width)
signal = np.fromfile(light, np.float32).reshape(height, width) - dark
gain = np.clip(np.where(signal > 0, signal.mean(dtype=np.float64) / signal, 1), 0, 16).astype(np.float32)
'''

NUMPY = GAIN + r'''
for path in sorted(pathlib.Path(folder).iterdir()):
    data = path.read_bytes()
    start = len(data) - 2 * width * height
    image = np.frombuffer(data, ">u2", offset=start).reshape(height, width)
    result = np.clip(np.rint((image.astype(np.float32) - dark) * gain), 0, 4095)
    result = np.where(image >= 4095, 4095, result)
    with open(pathlib.Path(out) / path.name, "wb") as file:
        file.write(data[:start])
        file.write(result.astype(">u2").tobytes())
'''

OPENCV = GAIN + r'''
import cv2
for path in sorted(pathlib.Path(folder).iterdir()):
    image = cv2.imread(str(path), cv2.IMREAD_UNCHANGED)
    result = cv2.multiply(cv2.subtract(image, dark, dtype=cv2.CV_32F), gain, dtype=cv2.CV_16U)
    cv2.min(result, 4095, result)
    result[image >= 4095] = 4095
    cv2.imwrite(str(pathlib.Path(out) / path.name), result)
'''


def run(*words):
    return subprocess.run([str(word) for word in words], check=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE)


def can_import(name):
    return subprocess.run([sys.executable, "-c", "import " + name], stderr=subprocess.DEVNULL, check=False).returncode == 0


def floats(path):
    """The bytes of the samples of a reference: the strips of the first directory of a classic TIFF."""
    data = path.read_bytes()
    place, = struct.unpack_from("<I", data, 4)
    tags = {}
    for i in range(struct.unpack_from("<H", data, place)[0]):
        tag, kind, count, value = struct.unpack_from("<HHII", data, place + 2 + 12 * i)
        size = {3: 2, 4: 4}.get(kind, 1)
        code = "H" if kind == 3 else "I"
        tags[tag] = (struct.unpack_from(f"<{count}{code}", data, value) if size * count > 4 else (value,)) if size > 1 else ()
    return b"".join(data[offset:offset + size] for offset, size in zip(tags[273], tags[279]))


def make_input(application, work, size, count):
    """A pair of references and `count` uncorrected frames of the simulated sensor."""
    device = "sim:3?format=Mono12&width={}&height={}".format(*size)
    for kind in ("dark", "light"):
        run(application, "record", kind, "-d", device, "-n", 8, "-o", work / (kind + ".tif"))
        (work / (kind + ".raw")).write_bytes(floats(work / (kind + ".tif")))
    own = min(count, 8)
    run(application, "run", "-d", device, "--dark", work / "dark.tif", "--light", work / "light.tif", "-n", own, "--raw",
        "-o", work / "made")
    frames = sorted((work / "made" / "raw").iterdir())
    (work / "in").mkdir()
    for i in range(count):
        shutil.copy(frames[i % own], work / "in" / f"frame_{i:05}.pgm")
    shutil.rmtree(work / "made")


def rivals(application, work, size):
    """Name and command of each that takes part; a command writes to its last folder."""
    pair = ["--dark", work / "dark.tif", "--light", work / "light.tif"]
    files = sorted((work / "in").iterdir())
    script = [work / "in", work / "out", work / "dark.raw", work / "light.raw", *size]
    found = {"cp": ["cp", *files, work / "out"],
             "correct": [application, "correct", *pair, "-o", work / "out", *files]}
    if can_import("numpy"):
        found["numpy"] = [sys.executable, "-c", NUMPY, *script]
    if can_import("cv2"):
        found["OpenCV"] = [sys.executable, "-c", OPENCV, *script]
    return found


def difference(first, second, size):
    """The largest difference of two frames, DN."""
    count = size[0] * size[1]
    samples = [struct.unpack(f">{count}H", path.read_bytes()[-2 * count:]) for path in (first, second)]
    return max(abs(a - b) for a, b in zip(*samples))


def timed(command, out):
    shutil.rmtree(out, ignore_errors=True)
    out.mkdir()
    begin = time.monotonic()
    run(*command)
    return time.monotonic() - begin


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("application", type=pathlib.Path)
    parser.add_argument("--frames", type=int, default=100)
    parser.add_argument("--size", default="2448x2048")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--folder", default="/dev/shm" if os.path.isdir("/dev/shm") else None)
    parser.add_argument("--quick", action="store_true", help="a few small frames once: only whether it works")
    options = parser.parse_args()
    if options.quick:
        options.frames, options.size, options.rounds = 4, "320x240", 1
    size = [int(side) for side in options.size.split("x")]
    with tempfile.TemporaryDirectory(prefix="xapel2-files-", dir=options.folder) as folder:
        work = pathlib.Path(folder)
        make_input(options.application, work, size, options.frames)
        found = rivals(options.application, work, size)
        seconds = {name: [] for name in found}
        kept = {}
        for _ in range(options.rounds):
            for name, command in found.items():
                seconds[name].append(timed(command, work / "out"))
                frames = sorted((work / "out").iterdir())
                if len(frames) != options.frames:
                    sys.exit(f"{name} wrote {len(frames)} of {options.frames} frames")
                kept[name] = shutil.copy(frames[-1], work / (name + ".pgm"))
        for name in set(found) - {"cp", "numpy"} if "numpy" in found else ():
            if difference(pathlib.Path(kept[name]), pathlib.Path(kept["numpy"]), size) > 1:
                sys.exit(f"{name} and numpy differ by more than 1 DN")
    print(f"{options.frames} files of {options.size} Mono12 (PGM), {options.rounds} rounds in turn, whole processes")
    print(f"{'':10}{'files/s':>9}{'of cp':>8}{'of numpy':>10}   fastest and slowest round")
    rates = {name: options.frames / statistics.median(times) for name, times in seconds.items()}
    for name, rate in rates.items():
        # Rounds are compared with each other: what else the machine does hits all of a round alike.
        ratio = {other: statistics.median(b / a for a, b in zip(seconds[name], seconds[other]))
                 for other in ("cp", "numpy") if other in seconds}
        beside = f"{ratio['cp']:8.2f}" + (f"{ratio['numpy']:10.2f}" if "numpy" in ratio else f"{'':10}")
        span = f"{options.frames / min(seconds[name]):.0f} to {options.frames / max(seconds[name]):.0f}"
        print(f"{name:10}{rate:9.1f}{beside}   {span}")


if __name__ == "__main__":
    main()
