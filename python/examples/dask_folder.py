# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""Corrects a folder of frames (.npy) on several processes, or machines.

    python3 dask_folder.py DARK LIGHT FOLDER OUT [SCHEDULER]

SCHEDULER is the address of a cluster, as tcp://10.0.0.1:8786; without one, two processes of this machine work. Each has
one corrector, which it makes when its first frame comes. Frames go by name: all processes see the folders.
"""

import functools
import sys
from pathlib import Path

import numpy as np
from dask.distributed import Client, LocalCluster, as_completed


@functools.lru_cache(maxsize=1)
def corrector_of(dark, light):
    import xapel2_shading as xs

    return xs.Corrector(dark, light)


def correct_file(file, dark, light, out):
    corrector = corrector_of(dark, light)
    frame = corrector(np.load(file))
    np.save(Path(out) / Path(file).name, frame)
    return file


def main():
    dark, light, folder, out = (str(Path(name).resolve()) for name in sys.argv[1:5])
    Path(out).mkdir(exist_ok=True)
    files = sorted(str(file) for file in Path(folder).glob("*.npy"))
    if len(sys.argv) > 5:
        client = Client(sys.argv[5])
    else:
        # One thread each: a corrector corrects one frame at a time.
        client = Client(LocalCluster(n_workers=2, threads_per_worker=1, host="127.0.0.1", dashboard_address=None))
    with client:
        workers = set()
        for future, _ in as_completed(
            client.map(correct_file, files, dark=dark, light=light, out=out), with_results=True
        ):
            workers.update(client.who_has([future])[future.key])
        print(f"{len(files)} frames corrected by {len(workers)} workers")


if __name__ == "__main__":
    main()
