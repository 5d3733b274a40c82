# SPDX-License-Identifier: MIT
# Copyright (c) 2026 the xapel2_ext_sc authors
"""Cameras: settings, frames, waits, live correction, recording."""

import concurrent.futures
import gc
import signal
import threading
import time

import numpy as np
import pytest

import xapel2_shading as xs

SIM = "sim:3?width=64&height=48&format=Mono12"


@pytest.fixture
def camera():
    with xs.open_camera(SIM) as opened:
        yield opened


@pytest.fixture
def slow():
    """A camera that has one frame, and no other after it."""
    with xs.open_camera(SIM, AcquisitionFrameRate=1) as opened:
        opened.start(1)
        opened.fetch()
        yield opened


class Later:
    """Runs something in a thread, a moment later."""

    def __init__(self, work, seconds=0.2):
        self.thread = threading.Timer(seconds, work)
        self.thread.start()
        self.begin = time.monotonic()

    def elapsed(self):
        self.thread.join()
        return time.monotonic() - self.begin


def test_settings_are_attributes(camera):
    camera.ExposureTime = 2500.0
    assert camera.ExposureTime == 2500 and camera.PixelFormat == "Mono12"
    camera.ReverseX = True
    assert camera.ReverseX == 1
    assert {"ExposureTime", "PixelFormat", "frames"} <= set(dir(camera))
    for name in ("Exposuretime", "_private"):
        with pytest.raises(AttributeError, match=name):
            getattr(camera, name)
        with pytest.raises(AttributeError, match=name):
            setattr(camera, name, 1)
    with pytest.raises(AttributeError, match="running"):
        camera.running = True
    with pytest.raises(xs.ArgumentError, match="BinningHorizontal = 3"):
        camera.BinningHorizontal = 3
    camera.start()
    with pytest.raises(xs.InputOutputError, match="Width = 32"):
        camera.Width = 32


@pytest.mark.parametrize(
    "device, settings, error",
    [
        ("none", {}, xs.ArgumentError),
        ("replay:/no/such/folder", {}, xs.InputOutputError),
        (SIM, {"NoSuchNode": 1}, AttributeError),
        (SIM, {"Width": 0}, xs.ArgumentError),
        (SIM, {"timeout": 0}, ValueError),
    ],
)
def test_what_cannot_be_opened_is_refused(device, settings, error):
    with pytest.raises(error):
        xs.open_camera(device, **settings)


def test_frames_are_views_of_their_buffers(camera):
    seen = []
    for frame in camera.frames(3 * camera.buffers):
        array = frame.array
        assert array.base is not None and array.flags.writeable
        assert np.shares_memory(array, frame.array)
        seen.append((frame.number, frame.timestamp, array.ctypes.data))
        assert (frame.width, frame.height, frame.pixel_format) == (64, 48, "Mono12")
        assert array.shape == (48, 64) and array.dtype == np.uint16 and array.max() < 4096
        assert frame.complete and not frame.corrected and frame.reason
        del frame, array
    numbers, stamps, places = zip(*seen)
    assert list(numbers) == list(range(len(seen))) and sorted(stamps) == list(stamps)
    assert len(set(places)) <= camera.buffers
    assert not camera.running


def test_a_new_size_or_format_takes_new_buffers(camera):
    old = next(camera.frames(1))
    before = old.array.copy()
    camera.PixelFormat = "Mono8"
    assert [frame.array.dtype for frame in camera.frames(2)] == [np.uint8] * 2
    camera.Width = 32
    camera.PixelFormat = "Mono12p"
    assert [frame.array.shape for frame in camera.frames(2)] == [(32 * 48 * 12 // 8,)] * 2
    np.testing.assert_array_equal(old.array, before)


def test_frames_that_are_held_stay_as_they_are(camera):
    held = [(frame, frame.array.copy()) for frame in camera.frames(camera.buffers - 2)]
    for _ in camera.frames(10):
        pass
    camera.stop()
    for frame, copy in held:
        np.testing.assert_array_equal(frame.array, copy)
    camera.close()
    gc.collect()
    for frame, copy in held:
        np.testing.assert_array_equal(frame.array, copy)


def test_holding_the_whole_ring_is_an_error(camera):
    camera.start()
    held = [camera.fetch().array for _ in range(camera.buffers)]
    with pytest.raises(xs.StreamError, match="all 4 buffers are held by frames"):
        camera.fetch()
    held.pop()
    camera.fetch()
    assert len({array.ctypes.data for array in held}) == 3


def test_release_gives_the_buffer_back(camera):
    camera.start()
    for _ in range(3 * camera.buffers):
        with camera.fetch() as frame:
            array = frame.array
            with pytest.raises(BufferError, match="still in use"):
                frame.release()
            del array
    assert frame.released
    with pytest.raises(xs.StreamError, match="released"):
        frame.array
    frame.release()


def test_use_in_the_wrong_state_is_refused(camera):
    with pytest.raises(xs.StreamError, match="does not run"):
        camera.fetch()
    camera.start()
    with pytest.raises(xs.StreamError, match="runs already"):
        camera.start()
    with pytest.raises(xs.StreamError, match=r"stop\(\) it to record"):
        xs.record(camera, "dark")
    camera.close()
    camera.close()
    assert not camera.is_open
    for use in (camera.fetch, camera.start, camera.cancel, lambda: camera.Width, lambda: list(camera.frames(1))):
        with pytest.raises(xs.StreamError, match="closed"):
            use()


def test_loops_stop_the_camera_that_they_started(camera):
    for frame in camera:
        break
    assert not camera.running
    with pytest.raises(ZeroDivisionError):
        for frame in camera:
            1 / 0
    assert not camera.running
    camera.start()
    for frame in camera.frames(2):
        pass
    assert camera.running


def test_a_wait_ends_in_time():
    with xs.open_camera(SIM, timeout=0.2) as camera:
        camera.start(1)
        camera.fetch()
        with pytest.raises(TimeoutError) as late:
            camera.fetch()
        assert isinstance(late.value, xs.FetchTimeout) and late.value.code == -1011


@pytest.mark.parametrize("end, error", [("cancel", xs.FetchCancelled), ("close", xs.StreamError)])
def test_another_thread_ends_a_wait(slow, end, error):
    later = Later(getattr(slow, end))
    with pytest.raises(error):
        slow.fetch()
    assert later.elapsed() < 5


@pytest.mark.parametrize("use", ["start", "stop", "fetch", "correct", "stop_correcting", "record"])
def test_who_waits_for_a_camera_that_is_closed_is_told(camera, use):
    light = xs.Reference(np.full((48, 64), 100.0), "light", "Mono12")
    uses = {"correct": lambda: camera.correct(light=light), "record": lambda: xs.record(camera, "dark", 2)}
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        busy = pool.submit(xs.record, camera, "light", 10**6)
        time.sleep(0.2)
        late = pool.submit(uses.get(use) or getattr(camera, use))
        time.sleep(0.2)
        assert not busy.done() and not late.done()
        camera.close()
        assert isinstance(busy.exception(10), xs.StreamError)
        with pytest.raises(xs.StreamError, match="the camera is closed"):
            late.result(10)
    assert not (camera.is_open or camera.running or camera.correcting)


def test_a_loop_is_left_in_order_while_the_camera_is_closed():
    with xs.open_camera(SIM, AcquisitionFrameRate=1) as camera, concurrent.futures.ThreadPoolExecutor(2) as pool:
        frames = camera.frames()
        next(frames)
        busy = pool.submit(camera.fetch)
        time.sleep(0.1)
        left = pool.submit(frames.close)
        time.sleep(0.2)
        assert not busy.done() and not left.done()
        camera.close()
        assert left.result(10) is None and isinstance(busy.exception(10), xs.StreamError)


def test_a_cancel_between_frames_ends_the_loop(camera):
    frames = camera.frames()
    next(frames)
    camera.cancel()
    with pytest.raises(xs.FetchCancelled) as cancelled:
        next(frames)
    assert cancelled.value.code == -1012
    assert len(list(camera.frames(2))) == 2


def test_signals_end_waits(slow):
    def interrupt():
        signal.pthread_kill(threading.main_thread().ident, signal.SIGINT)

    later = Later(interrupt)
    with pytest.raises(KeyboardInterrupt):
        slow.fetch()
    assert later.elapsed() < 5
    slow.stop()
    later = Later(interrupt)
    with pytest.raises(KeyboardInterrupt):
        xs.record(slow, "dark")
    assert later.elapsed() < 5
    slow.AcquisitionFrameRate = 0
    assert xs.record(slow, "dark", 2).images == 2


def test_others_run_while_a_fetch_waits(slow):
    counted = []

    def count():
        for i in range(1000):
            counted.append(i)
        slow.cancel()

    later = Later(count)
    with pytest.raises(xs.FetchCancelled):
        slow.fetch()
    assert later.elapsed() < 5 and len(counted) == 1000


def test_live_correction_is_that_of_arrays(camera):
    dark, light = (xs.record(camera, kind, 8) for kind in ("dark", "light"))
    assert (dark.kind, light.kind, dark.images, light.pixel_format) == ("dark", "light", 8, "Mono12")
    assert light.camera["ExposureTime"] == camera.ExposureTime
    camera.StandInScene = "Scene"
    raw = next(camera.frames(1)).array.copy()
    camera.StandInFrame = 0
    for filters in ({}, {"box_light": 1}, {"median_light": 1}, {"box_dark": 3}, {"median_dark": 1}):
        camera.correct(dark, light, **filters)
        assert camera.correcting
        camera.StandInFrame = 0
        frame = next(camera.frames(1))
        assert frame.corrected and frame.reason == ""
        np.testing.assert_array_equal(frame.array, xs.Corrector(dark, light, **filters)(raw.copy()))
    camera.stop_correcting()
    assert not camera.correcting and not next(camera.frames(1)).corrected


def test_correction_survives_a_recording_and_its_failure(camera):
    dark, light = (xs.record(camera, kind, 4) for kind in ("dark", "light"))
    camera.correct(dark, light)
    again = xs.record(camera, "dark", 4)
    np.testing.assert_array_equal(again.samples, dark.samples)

    def fail(done, total):
        assert total == 4
        if done == 2:
            raise ZeroDivisionError

    with pytest.raises(ZeroDivisionError):
        xs.record(camera, "light", 4, fail)
    for use in (camera.close, camera.start, camera.stop, camera.stop_correcting, lambda: xs.record(camera, "dark")):
        with pytest.raises(xs.StreamError, match="is recording"):
            xs.record(camera, "light", 4, lambda done, total: use())
    assert [frame.corrected for frame in camera.frames(2)] == [True, True]


def test_references_that_do_not_fit_the_camera_are_refused(camera, tmp_path):
    other = xs.Reference(np.ones((2, 2)), "light", "Mono12")
    for arguments, error, text in (
        ((), ValueError, "expected"),
        ((None, other), xs.InputOutputError, "a reference is of Mono12 2x2"),
        ((other, None), xs.InputOutputError, "light reference"),
        ((tmp_path / "none.tif",), FileNotFoundError, "none.tif"),
    ):
        with pytest.raises(error) as refused:
            camera.correct(*arguments)
        assert text in str(refused.value)
        assert not camera.correcting


def test_progress_counts_the_frames(camera):
    told = []
    xs.record(camera, "light", 3, lambda done, total: told.append((done, total)))
    assert told == [(0, 3), (1, 3), (2, 3), (3, 3)]
    for arguments in (("grey",), ("dark", 0)):
        with pytest.raises(ValueError, match="expected"):
            xs.record(camera, *arguments)


def test_a_folder_gives_what_it_has_and_says_so(tmp_path):
    for i in range(3):
        (tmp_path / f"dark_{i}.pgm").write_bytes(b"P5 8 4 255\n" + bytes([10 + i] * 32))
    with xs.open_camera(f"replay:{tmp_path}") as camera:
        with pytest.warns(UserWarning, match="made of 3 frames"):
            dark = xs.record(camera, "dark")
        assert dark.images == 3 and (dark.samples == 11.0).all()
        camera.StandInScene = "Dark"
        assert [frame.name for frame in camera.frames(2)] == ["dark_0", "dark_1"]
        with pytest.raises(xs.StreamError, match="no complete frame|no frame came complete") as failed:
            xs.record(camera, "light")
        assert failed.value.code == -1001


@pytest.mark.parametrize("keep", [False, True])
def test_a_frame_unlike_the_others_is_left_out_or_kept(tmp_path, keep):
    random = np.random.default_rng(4)
    for i in range(12):
        pixels = 100 + 80 * (i == 5) + random.integers(-3, 4, (32, 64))
        (tmp_path / f"light_{i:02}.pgm").write_bytes(b"P5 64 32 255\n" + pixels.astype(np.uint8).tobytes())
    with xs.open_camera(f"replay:{tmp_path}") as camera:
        with pytest.warns(UserWarning, match="1 frame unlike the others"):
            light = xs.record(camera, "light", 12, keep_outliers=keep)
    xs.write_reference(tmp_path / "light.tif", light)
    light = xs.read_reference(tmp_path / "light.tif")
    outliers = light.metadata["outliers"]
    assert light.images == 12 - (not keep) and light.mean == pytest.approx(100 + 80 / 12 * keep, abs=0.1)
    assert (outliers["frames"], outliers["frames_left_out"]) == (1, 0 if keep else 1)
    place = outliers["places"][0]
    assert (place["what"], place["frame"], place["left_out"]) == ("brightness", 6, not keep)
    assert place["deviation"] == pytest.approx(80, abs=1) and light.geometry == {}


def test_a_recording_tells_where_it_lay(camera):
    camera.Width, camera.OffsetX, camera.ReverseY = 32, 8, True
    whole = {"SensorWidth": 64, "SensorHeight": 48, "BinningHorizontal": 1, "BinningVertical": 1, "ReverseX": False}
    assert xs.record(camera, "dark", 2).geometry.items() >= dict(whole, OffsetX=8, OffsetY=0, ReverseY=True).items()


def test_two_cameras_stream_in_two_threads():
    counts = {}

    def stream(seed):
        with xs.open_camera(f"sim:{seed}?width=200&height=100&format=Mono8") as camera:
            dark, light = (xs.record(camera, kind, 4) for kind in ("dark", "light"))
            camera.correct(dark, light)
            counts[seed] = sum(frame.corrected for frame in camera.frames(50))

    threads = [threading.Thread(target=stream, args=(seed,)) for seed in (1, 2)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert counts == {1: 50, 2: 50}
