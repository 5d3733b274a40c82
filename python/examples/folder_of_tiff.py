# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""Corrects the TIFF files of a folder.

    python3 folder_of_tiff.py DARK LIGHT FOLDER OUT

Files that cannot be corrected are named, and make the exit code 1.
"""

import sys
from pathlib import Path

import tifffile
import xapel2_shading as xs

dark, light, folder, out = map(Path, sys.argv[1:5])
corrector = xs.Corrector(dark, light)
out.mkdir(exist_ok=True)
failed = 0
for file in sorted(folder.glob("*.tif")):
    try:
        frame = corrector(tifffile.imread(file))
    except ValueError as error:
        print(f"{file}: {error}", file=sys.stderr)
        failed = 1
        continue
    tifffile.imwrite(out / file.name, frame)
print(corrector.corrected, "frames corrected")
sys.exit(failed)
