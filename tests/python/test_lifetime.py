# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""Ends of processes, cameras and frames, each in a process of its own: no crash, no hang."""

import subprocess
import sys

import pytest

OPEN = """
import gc, os, sys, threading, time
import numpy as np
import xapel2_shading as xs
SIM = "sim:3?width=640&height=480&format=Mono12"
camera = xs.open_camera(SIM)
"""

PROGRAMS = {
    "exit with an open camera": "camera.start(); print('done')",
    "exit with a held frame": "camera.start(); frame = camera.fetch(); array = frame.array; print('done')",
    "exit in a loop": "for frame in camera: print('done'); sys.exit()",
    "exit while a thread fetches": """
def loop():
    for frame in camera: pass
threading.Thread(target=loop, daemon=True).start(); time.sleep(0.2); print('done')""",
    "exit while a thread waits": """
camera.start(1); camera.fetch()
threading.Thread(target=camera.fetch, daemon=True).start(); time.sleep(0.2); print('done')""",
    "exit while a thread corrects": """
light = xs.record(camera, "light", 2); array = np.zeros((480, 640), np.uint16)
def loop():
    corrector = xs.Corrector(light=light)
    while True: corrector(array)
threading.Thread(target=loop, daemon=True).start(); time.sleep(0.2); print('done')""",
    "exit while a thread records": """
threading.Thread(target=xs.record, args=(camera, "dark", 10**6), daemon=True).start(); time.sleep(0.2); print('done')""",
    "exit in a cycle": "camera.start(); cycle = [camera]; cycle.append(cycle); del camera; print('done')",
    "exception in a loop": """
try:
    for frame in camera: raise KeyError('kept')
except KeyError as error: kept = error
assert not camera.running and frame.array.any()
assert sum(1 for _ in camera.frames(9)) == 9; print('done')""",
    "camera deleted while a frame is held": """
camera.start(); frames = [camera.fetch() for _ in range(3)]; copies = [f.array.copy() for f in frames]
del camera; gc.collect()
again = xs.open_camera(SIM); assert sum(1 for _ in again.frames(9)) == 9; del again; gc.collect()
assert all((f.array == c).all() for f, c in zip(frames, copies))
arrays = [f.array for f in frames]; del frames; gc.collect()
assert all((a == c).all() for a, c in zip(arrays, copies)); print('done')""",
    "fork with an open camera": """
camera.start(); frame = camera.fetch(); copy = frame.array.copy()
light = xs.Corrector(light=xs.Reference(np.full((2, 2), 9.0), 'light', 'Mono8'))
child = os.fork()
if child == 0:
    try: camera.fetch()
    except xs.StreamError as error: assert 'the process that opened it' in str(error)
    else: os._exit(3)
    assert not camera.is_open and (frame.array == copy).all()
    light(np.zeros((2, 2), np.uint8))
    del frame; camera.close(); del camera; gc.collect()
    with xs.open_camera(SIM) as own: assert len([f.number for f in own.frames(3)]) == 3
    sys.exit(7)
assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 7
assert len([f.number for f in camera.frames(9)]) == 9; print('done')""",
    "a fork leaves the references that correct": """
camera.correct(light=xs.record(camera, 'light', 4))
for end in ('camera.close()', 'sys.exit(7)'):
    child = os.fork()
    if child == 0:
        exec(end)
        sys.exit(7)
    assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 7
xs.record(camera, 'light', 4)
assert camera.correcting and [f.corrected for f in camera.frames(2)] == [True, True]; print('done')""",
    "correction that cannot be restored": """
import tempfile, warnings
with tempfile.TemporaryDirectory() as folder:
    name = os.path.join(folder, 'light.tif')
    xs.write_reference(name, xs.record(camera, 'light', 4))
    camera.correct(light=name)
with warnings.catch_warnings(record=True) as told:
    warnings.simplefilter('always')
    assert xs.record(camera, 'light', 4).metadata['images'] == 4
assert any('switched on again' in str(w.message) for w in told)
assert not camera.correcting and [f.corrected for f in camera.frames(2)] == [False, False]; print('done')""",
    "fork while a thread fetches": """
def loop():
    for frame in camera: pass
thread = threading.Thread(target=loop, daemon=True); thread.start()
for i in range(5):
    child = os.fork()
    if child == 0: sys.exit(7)
    assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 7
camera.close(); thread.join(10); assert not thread.is_alive(); print('done')""",
    "pool of processes": """
import multiprocessing
def mean(seed):
    with xs.open_camera(f"sim:{seed}?width=64&height=48") as own: return next(own.frames(1)).array.mean()
with multiprocessing.get_context('fork').Pool(2) as pool: assert len(set(pool.map(mean, [1, 2, 1, 2]))) == 2
print('done')""",
}


# What is registered before the package is imported runs behind what that has registered.
ATEXIT = "import atexit; atexit.register(lambda: print('done' if not camera.is_open else 'still open'))\n"


@pytest.mark.parametrize("name", PROGRAMS)
def test_ends_in_order(name):
    ends_in_order(OPEN + PROGRAMS[name].strip() + "\n")


def test_cameras_are_closed_at_exit():
    ends_in_order(ATEXIT + OPEN + "camera.start()\n")


def ends_in_order(program):
    ended = subprocess.run([sys.executable, "-X", "faulthandler", "-c", program], capture_output=True, text=True, timeout=60)
    # What the daemon threads of a test have to say when their camera is closed is theirs.
    assert ended.returncode == 0 and "done" in ended.stdout, ended.stderr
    assert "Fatal" not in ended.stderr and "terminate" not in ended.stderr, ended.stderr
