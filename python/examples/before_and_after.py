# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""Plots an even field before and after correction, with its mean row.

    python3 before_and_after.py PICTURE
"""

import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import xapel2_shading as xs

with xs.open_camera("sim") as camera:
    dark, light = xs.record(camera, "dark"), xs.record(camera, "light")
    before = next(camera.frames(1)).array.copy()
after = xs.Corrector(dark, light)(before.copy())

figure, axes = plt.subplots(2, 2, figsize=(10, 7), constrained_layout=True)
limits = {"vmin": min(before.min(), after.min()), "vmax": max(before.max(), after.max())}
for column, (title, image) in enumerate((("before", before), ("after", after))):
    axes[0, column].imshow(image, cmap="gray", **limits)
    axes[0, column].set_title(f"{title}: {image.std() / image.mean():.2%} uneven")
    axes[1, column].plot(image.mean(axis=0))
    axes[1, column].set(xlabel="x, pixels", ylabel="mean, DN")
axes[1, 1].set_ylim(axes[1, 0].get_ylim())
figure.savefig(sys.argv[1])
