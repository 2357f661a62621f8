"""What is done over and over leaves nothing behind: no references, no memory of Python's, none of the library's."""

from __future__ import annotations

import gc
import os
import pathlib
import pickle
import sys
import time
import tracemalloc
from typing import Any, Callable

import pytest

import tnrobotkernel as tn
from tnrobotkernel import Error, Group, ImageFormat, LimitedPool, Surface, SurfacePool

np = pytest.importorskip("numpy")

# Python's cache of attributes holds names for a while, some thousand bytes however often they are used.
CACHES = 8_000
ROUNDS = int(os.environ.get("TNROBOT_LEAK_ROUNDS", "2000"))
PICTURE = np.zeros((8, 8, 3), np.uint8)
SURFACE = SurfacePool().surface(8, 8, ImageFormat.BGR24)
GROUP = Group(a=1, b="text", c=b"bytes", d=2.5)
DATA = bytes(GROUP)
JPEG = tn.encode_image(PICTURE)
BLOCKS = tn.GeneralPool()
TASKS = tn.TaskPool()


def refused(call: Callable[[], Any]) -> None:
    try:
        call()
    except (Error, TypeError, ValueError, KeyError, OSError, OverflowError, BufferError, MemoryError):
        return
    raise AssertionError


CALLS: dict[str, Callable[[], Any]] = {
    "get": lambda: [GROUP[name] for name in GROUP],
    "set": lambda: GROUP.set("x", 10**12),
    "set text": lambda: GROUP.update(y="some longer text than fits anywhere", z=bytes(100)),
    "missing": lambda: refused(lambda: GROUP["missing"]),
    "wrong": lambda: refused(lambda: GROUP.set("x", [])),
    "wrong number": lambda: refused(lambda: GROUP.set("x", 2**70)),
    "type": lambda: GROUP.type("a"),
    "copy": lambda: GROUP.copy(),
    "repr": lambda: repr(GROUP),
    "pickle": lambda: pickle.loads(pickle.dumps(GROUP)),
    "bytes": lambda: tn.loads(DATA),
    "bad bytes": lambda: refused(lambda: tn.loads(DATA[:-1])),
    "missing file": lambda: refused(lambda: tn.load("/nowhere/a.tnr")),
    "scalar": lambda: GROUP.update(s=np.float32(1)),
    "surface": lambda: SurfacePool().surface(4, 4, ImageFormat.GRAY8),
    "array": lambda: SURFACE.array[0, 0],
    "buffer": lambda: np.asarray(SURFACE),
    "interface": lambda: SURFACE.__array_interface__,
    "dlpack": lambda: np.from_dlpack(SURFACE),
    "capsule": lambda: SURFACE.__dlpack__(),
    "over": lambda: Surface.from_array(PICTURE).array,
    "copied": lambda: Surface.from_array(PICTURE[::-1], copy=True),
    "no picture": lambda: refused(lambda: Surface.from_array(PICTURE[::-1])),
    "decode": lambda: tn.decode_image(JPEG),
    "no jpeg": lambda: refused(lambda: tn.decode_image(b"no jpeg")),
    "encode": lambda: tn.encode_image(PICTURE),
    "clip": lambda: tn.clip(SURFACE, 1, 1, 3, 3),
    "join": lambda: tn.join(SURFACE, SURFACE),
    "block": lambda: memoryview(BLOCKS.block(100))[:1],  # type: ignore[arg-type]
    "limit": lambda: refused(lambda: LimitedPool(10).block(11)),
    "event": lambda: tn.Event(True).wait(),
    "never made": lambda: refused(lambda: len(Group.__new__(Group))),
}


def left_by(call: Callable[[], object], watched: list[Any]) -> tuple[int, list[int]]:
    """Returns the bytes and the references that ROUNDS calls leave behind."""
    gc.collect()
    tracemalloc.start()
    try:
        before = tracemalloc.get_traced_memory()[0]
        counts = [sys.getrefcount(thing) for thing in watched]
        for _ in range(ROUNDS):
            call()
        gc.collect()
        after = tracemalloc.get_traced_memory()[0]
        return after - before, [sys.getrefcount(thing) - count for thing, count in zip(watched, counts)]
    finally:
        tracemalloc.stop()


@pytest.mark.parametrize("name", CALLS)
def test_nothing_is_left(name: str) -> None:
    call = CALLS[name]
    watched: list[Any] = [None, GROUP, SURFACE, PICTURE, DATA, JPEG, tn.ImageFormat.BGR24, tn.ValueType.INT, BLOCKS, Group, Error]
    for _ in range(50):
        call()
    # Modules keep a few thousand bytes once, at any time; what leaks does so each time.
    bytes_left, changes = min(left_by(call, watched) for _ in range(3))
    assert bytes_left < CACHES + 4 * ROUNDS, f"{bytes_left} bytes of Python's"
    assert max(abs(change) for change in changes) < ROUNDS // 10, changes


def resident() -> int:
    fields = pathlib.Path("/proc/self/statm").read_text("ascii").split()
    return int(fields[1]) * os.sysconf("SC_PAGESIZE")


def test_the_process_stays_as_large_as_it_is() -> None:
    if "asan" in os.environ.get("LD_PRELOAD", ""):
        pytest.skip("AddressSanitizer keeps what was freed for a while")

    def all_calls(rounds: int) -> None:
        for call in CALLS.values():
            for _ in range(rounds):
                call()

    all_calls(ROUNDS // 10)
    begin = resident()
    all_calls(ROUNDS // 2)
    assert resident() - begin < max(16_000 * (ROUNDS // 2) // 100, 8 << 20)


def test_jobs_leave_nothing() -> None:
    thing = object()
    for _ in range(100):
        TASKS.run(id, thing).result()
    count = sys.getrefcount(thing)
    for _ in range(ROUNDS // 2):
        TASKS.run(id, thing).result()
    TASKS.map(id, [thing] * 100, threads=2)
    # A thread lets go of its last job a moment after the job has given its result.
    end = time.monotonic() + 60
    while sys.getrefcount(thing) > count + 2 and time.monotonic() < end:
        gc.collect()
    assert sys.getrefcount(thing) <= count + 2
