#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""Python's correction beside that of C++ and beside what else Python has, on one thread. Prints a section in Markdown.

    python_bench.py [--quick] [--rounds N]

The ways to correct take turns; a figure is the median over the rounds, a ratio the median of the rounds' ratios. Each
result is compared with the formula in double precision first. --quick: few, small frames, and those that are installed.
"""

import argparse
import importlib
import os
import platform
import random
import statistics
import sys
import tempfile
import threading
import time
import warnings

for name in ("OMP_NUM_THREADS", "NUMEXPR_MAX_THREADS", "NUMEXPR_NUM_THREADS", "NUMBA_NUM_THREADS"):
    os.environ[name] = "1"

import numpy as np
import xapel2_shading as xs
from cpp_path import CppPath


def tables(dark, light):
    """Offset and gain of the formula, float32."""
    signal = light.samples.astype(np.float64) - dark.samples
    return dark.samples.astype(np.float32), (signal.mean() / signal).astype(np.float32)


class Numpy:
    """Without a temporary, in blocks of rows that stay in the cache."""

    rows = 32

    def __init__(self, dark, light, full):
        self.offset, self.gain = tables(dark, light)
        self.full = full
        self.block = np.empty((self.rows, dark.width), np.float32)

    def __call__(self, frame, out):
        for row in range(0, len(frame), self.rows):
            part = slice(row, row + self.rows)
            values = self.block[: len(frame[part])]
            np.subtract(frame[part], self.offset[part], out=values)
            np.multiply(values, self.gain[part], out=values)
            np.rint(values, out=values)
            np.clip(values, 0, self.full, out=values)
            np.copyto(values, self.full, where=frame[part] == self.full)
            np.copyto(out[part], values, casting="unsafe")


class NumpyWhole(Numpy):
    """The same on the whole frame."""

    def __init__(self, dark, light, full):
        self.rows = dark.height
        super().__init__(dark, light, full)


class NumpyExpression(Numpy):
    """As it is written down."""

    def __call__(self, frame, out):
        values = np.clip(np.rint((frame - self.offset) * self.gain), 0, self.full)
        out[...] = np.where(frame == self.full, self.full, values)


class Numexpr(Numpy):
    def __call__(self, frame, out):
        import numexpr

        # It has no rounding that is a vector's: the half goes in before the cast takes the rest off.
        values = {"x": frame, "d": self.offset, "g": self.gain, "f": np.float32(self.full), "h": np.float32(0.5)}
        numexpr.evaluate(
            "where(x >= f, f, where((x - d) * g < 0, 0, where((x - d) * g > f, f, (x - d) * g + h)))",
            values,
            out=out,
            casting="unsafe",
        )


class Numba(Numpy):
    def __init__(self, dark, light, full):
        import numba

        super().__init__(dark, light, full)

        @numba.njit(fastmath=True, boundscheck=False)
        def correct(frame, offset, gain, full, out):
            for i in range(frame.size):
                value = (frame[i] - offset[i]) * gain[i] + np.float32(0.5)
                value = min(max(value, np.float32(0)), full)
                out[i] = frame[i] if frame[i] == full else np.int32(value)

        self.correct = correct

    def __call__(self, frame, out):
        self.correct(frame.ravel(), self.offset.ravel(), self.gain.ravel(), np.float32(self.full), out.ravel())


class OpenCv(Numpy):
    def __init__(self, dark, light, full):
        import cv2

        cv2.setNumThreads(1)
        self.cv2 = cv2
        super().__init__(dark, light, full)
        self.depth = cv2.CV_8U if full == 255 else cv2.CV_16U

    def __call__(self, frame, out):
        for row in range(0, len(frame), self.rows):
            part = slice(row, row + self.rows)
            values = self.block[: len(frame[part])]
            self.cv2.subtract(frame[part], self.offset[part], values, dtype=self.cv2.CV_32F)
            self.cv2.multiply(values, self.gain[part], out[part], dtype=self.depth)
            self.cv2.copyTo(frame[part], self.cv2.compare(frame[part], self.full, self.cv2.CMP_EQ), out[part])


class Ccdproc:
    def __init__(self, dark, light, full):
        import astropy.units
        import ccdproc

        self.ccdproc, self.full = ccdproc, full
        as_ccd = lambda array: ccdproc.CCDData(array, unit=astropy.units.adu)
        self.as_ccd = as_ccd
        self.dark = as_ccd(dark.samples)
        self.flat = as_ccd(light.samples - dark.samples)

    def __call__(self, frame, out):
        taken = self.ccdproc.subtract_bias(self.as_ccd(frame.astype(np.float32)), self.dark)
        values = np.clip(np.rint(self.ccdproc.flat_correct(taken, self.flat).data), 0, self.full)
        out[...] = np.where(frame == self.full, self.full, values)


OTHERS = {
    "numpy, blocks of rows": (Numpy, "numpy"),
    "numpy, whole frame": (NumpyWhole, "numpy"),
    "numpy, as written": (NumpyExpression, "numpy"),
    "numexpr": (Numexpr, "numexpr"),
    "numba": (Numba, "numba"),
    "OpenCV": (OpenCv, "cv2"),
    "ccdproc": (Ccdproc, "ccdproc"),
}


def seconds(work):
    begin = time.perf_counter()
    work()
    return time.perf_counter() - begin


def references(pixel_format, width, height):
    full = {"Mono8": 255, "Mono16": 65535}[pixel_format]
    values = np.random.default_rng(1)
    dark = values.uniform(0.01, 0.02, (height, width)) * full
    y, x = np.mgrid[-1 : 1 : height * 1j, -1 : 1 : width * 1j]
    light = dark + (0.8 - 0.2 * (x * x + y * y)) * values.uniform(0.98, 1.02, (height, width)) * full
    pair = xs.Reference(dark, "dark", pixel_format, 16), xs.Reference(light.clip(0, full), "light", pixel_format, 16)
    frame = values.integers(0, full + 1, (height, width), dtype=np.uint8 if full == 255 else np.uint16)
    return (*pair, frame, full)


def close_to(result, dark, light, frame, full, slack):
    signal = light.samples.astype(np.float64) - dark.samples
    gain = signal.mean() / signal
    exact = np.clip((frame - dark.samples.astype(np.float64)) * gain, 0, full)
    exact[frame == full] = full
    return np.abs(result - exact).max() <= 1.0 + slack * gain.max()


def compare(pixel_format, width, height, rounds, folder):
    """Median time of each way, s, and the rounds of ours and of C++."""
    dark, light, frame, full = references(pixel_format, width, height)
    files = [os.path.join(folder, f"{reference.kind}.tif") for reference in (dark, light)]
    for file, reference in zip(files, (dark, light)):
        xs.write_reference(file, reference)
    corrector = xs.Corrector(*files)
    image = frame.copy()
    out = np.empty_like(frame)
    ways = {}
    with CppPath(*files, pixel_format, width, height) as cpp:
        image[...] = frame
        cpp.correct(image)
        if not np.array_equal(image, corrector(frame, out=out)):
            raise RuntimeError("Python and C++ do not agree")
        ways["C++, in place"] = lambda: cpp.correct(image)
        ways["this package, in place"] = lambda: corrector(image)
        ways["this package, out"] = lambda: corrector(frame, out=out)
        for name, (way, module) in OTHERS.items():
            try:
                importlib.import_module(module)
            except ImportError:
                print(f"{name} is not installed", file=sys.stderr)
                continue
            other = way(dark, light, full)
            other(frame, out)
            if not close_to(out, dark, light, frame, full, 0.5 if full > 255 else 0.0):
                raise RuntimeError(f"{name} yields something else")
            ways[name] = lambda other=other: other(frame, out)
        times = {name: [] for name in ways}
        turns = random.Random(1)
        for _ in range(rounds):
            # None comes behind the same other one each time, and finds in the cache what that left.
            for name, work in turns.sample(list(ways.items()), len(ways)):
                times[name].append(min(seconds(work) for _ in range(1 if name == "ccdproc" else 3)))
    return times


class NumpyDefects:
    """Weighted means of the good neighbours in 5 x 5, of all marked pixels at once."""

    def __init__(self, marks):
        y, x = np.nonzero(marks)
        steps = np.array([(v, h) for v in range(-2, 3) for h in range(-2, 3) if v or h])
        rows, columns = (steps[:, 0] + y[:, None], steps[:, 1] + x[:, None])
        inside = (rows >= 0) & (rows < marks.shape[0]) & (columns >= 0) & (columns < marks.shape[1])
        rows, columns = rows.clip(0, marks.shape[0] - 1), columns.clip(0, marks.shape[1] - 1)
        weights = inside * (marks[rows, columns] == 0) / (steps**2).sum(1)
        self.weights = (weights / weights.sum(1, keepdims=True)).astype(np.float32)
        self.neighbours = rows * marks.shape[1] + columns
        self.places = y * marks.shape[1] + x

    def __call__(self, image):
        flat = image.reshape(-1)
        flat[self.places] = np.rint(np.einsum("ij,ij->i", flat[self.neighbours], self.weights))


def numpy_defects(pixel_format, width, height, rounds, count):
    """Time of a frame whose defects numpy replaces behind this package, as a multiple of one without.

    What this package itself takes for them is less than two tables of the same content differ by, from their pages:
    correction-bench measures it, with all in the same memory.
    """
    dark, light, frame, _ = references(pixel_format, width, height)
    marks = np.zeros((height, width), np.uint8)
    marks.reshape(-1)[np.random.default_rng(7).choice(marks.size, count, replace=False)] = 1
    marked = xs.Reference(light.samples, "light", pixel_format, 16, defects=marks)
    ours, corrector, replace = xs.Corrector(dark, marked), xs.Corrector(dark, light), NumpyDefects(marks)
    wanted, image = frame.copy(), frame.copy()
    ours(wanted)
    corrector(image)
    replace(image)
    # Ours has the mean of the good pixels alone for its target.
    if np.abs(wanted.astype(np.int64) - image)[marks != 0].max() > 2 + 0.001 * frame.max():
        raise RuntimeError("numpy yields something else")
    times = [(seconds(lambda: corrector(image)), seconds(lambda: replace(image))) for _ in range(20 * rounds)]
    return statistics.median((plain + more) / plain for plain, more in times)


def ratio(times, name, base):
    return statistics.median(a / b for a, b in zip(times[name], times[base]))


def small_call(rounds, folder):
    """us of a call for 2 x 2 pixels: Python's and C++'s."""
    pair = [xs.Reference([[10.0, 12.0], [9.0, 11.0]], kind, "Mono8") for kind in ("dark", "light")]
    pair[1] = xs.Reference(pair[0].samples * 10, "light", "Mono8")
    files = [os.path.join(folder, f"{reference.kind}.tif") for reference in pair]
    for file, reference in zip(files, pair):
        xs.write_reference(file, reference)
    corrector, image, calls = xs.Corrector(*files), np.zeros((2, 2), np.uint8), 2000

    def ours():
        for _ in range(calls):
            corrector(image)

    with CppPath(*files, "Mono8", 2, 2) as cpp:
        pairs = [(seconds(ours) / calls * 1e6, cpp.correct(image, calls) / calls * 1e6) for _ in range(rounds)]
    return [statistics.median(column) for column in zip(*pairs)]


def growth(calls):
    """Bytes that the resident memory grows by over so many calls."""
    dark, light, frame, _ = references("Mono16", 64, 48)
    corrector, out = xs.Corrector(dark, light), np.empty_like(frame)

    def resident():
        with open("/proc/self/statm", encoding="ascii") as file:
            return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")

    for _ in range(1000):
        corrector(frame, out=out)
    before = resident()
    for _ in range(calls // 2):
        corrector(frame)
        corrector(frame, out=out)
    return resident() - before


def two_threads(rounds, calls):
    """How many times the frames of one thread two of them correct, each with a corrector; frames within the cache."""
    dark, light, frame, _ = references("Mono8", 1280, 1024)
    correctors = [xs.Corrector(dark, light) for _ in range(2)]
    images = [frame.copy() for _ in range(2)]

    def work(i):
        for _ in range(calls):
            correctors[i](images[i])

    def both():
        threads = [threading.Thread(target=work, args=(i,)) for i in range(2)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()

    return statistics.median(2 * seconds(lambda: work(0)) / seconds(both) for _ in range(rounds))


def section(quick, rounds):
    width, height = (320, 240) if quick else (2448, 2048)
    print(f"### Python {platform.python_version()}, numpy {np.__version__}\n")
    print(f"{width} x {height} pixels, one thread, {rounds} rounds. Times in ms, and as multiples of this package's.\n")
    with tempfile.TemporaryDirectory() as folder:
        formats = ("Mono8", "Mono16")
        all_times = [compare(pixel_format, width, height, rounds, folder) for pixel_format in formats]
        print("| | Mono8 | | Mono16 | |\n|---|---:|---:|---:|---:|")
        for name in all_times[0]:
            cells = []
            for times in all_times:
                base = "this package, out" if name in OTHERS else "this package, in place"
                cells += [f"{statistics.median(times[name]) * 1e3:.2f}", f"{ratio(times, name, base):.2f}"]
            print(f"| {name} | {' | '.join(cells)} |")
        python, cpp = small_call(rounds, folder)
    print("\nThe package in place stands beside C++, out of place beside the others, which all write to another array.\n")
    for pixel_format, times in zip(formats, all_times):
        print(f"- {pixel_format}: {ratio(times, 'this package, in place', 'C++, in place'):.3f} times the time of C++")
    print(f"- A call for 2 x 2 pixels: {python:.2f} us, C++ {cpp:.2f} us")
    for count in (250, 1000):
        shares = [f"{form} {numpy_defects(form, width, height, rounds, count):.2f}" for form in formats]
        print(f"- {count} defects by numpy behind this package, by a frame without: {', '.join(shares)}")
    calls = 2000 if quick else 100000
    print(f"- {calls} calls: resident memory grows by {growth(calls) / 1024:.0f} KiB")
    print(f"- Two threads with a corrector each, 1280 x 1024 Mono8: {two_threads(rounds, 20 if quick else 1000):.2f} times "
          f"the frames of one ({os.cpu_count()} cores)")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--rounds", type=int, default=0)
    arguments = parser.parse_args()
    warnings.simplefilter("ignore")
    section(arguments.quick, arguments.rounds or (2 if arguments.quick else 9))


if __name__ == "__main__":
    main()
