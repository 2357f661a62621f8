"""Blocks as buffers, limits, counters, and who keeps whose memory."""

from __future__ import annotations

import gc
import threading
from typing import Any

import pytest

import tnrobotkernel as tn
from tnrobotkernel import CircularPool, Counters, GeneralPool, LimitedPool

np = pytest.importorskip("numpy")


@pytest.mark.parametrize("make", [GeneralPool, CircularPool, lambda: LimitedPool(1 << 20)])
def test_blocks_are_writable_buffers(make: Any) -> None:
    block = make().block(1000)
    assert len(block) == 1000 and repr(block) == "<Block of 1000 bytes>"
    view = memoryview(block)
    assert view.nbytes == 1000 and not view.readonly and view.tobytes() == bytes(1000)
    view[:3] = b"abc"
    array = np.frombuffer(block, np.uint8)
    assert bytes(array[:3]) == b"abc" and array.flags.writeable
    del block
    gc.collect()
    array[5] = 9
    assert view[5] == 9


@pytest.mark.parametrize("size", [0, -1, 2**32, 2**63 - 1])
def test_sizes_that_no_block_has(size: int) -> None:
    with pytest.raises((ValueError, MemoryError)):
        GeneralPool().block(size)


@pytest.mark.parametrize("size", [None, 1.5, "1", b"1"])
def test_what_is_no_size(size: Any) -> None:
    with pytest.raises(TypeError):
        GeneralPool().block(size)
    with pytest.raises(OverflowError):
        GeneralPool().block(2**70)


def test_views_keep_the_block_and_count() -> None:
    pool = LimitedPool(100)
    block = pool.block(60)
    whole: Any = block
    view = memoryview(whole)[10:20]
    del whole
    del block
    gc.collect()
    assert pool.counters == Counters(1, 60, 60, 1, 0, 0, 100)
    with pytest.raises(MemoryError, match="now"):
        pool.block(60)
    with pytest.raises(MemoryError, match="never"):
        pool.block(101)
    view.release()
    assert pool.counters == Counters(0, 0, 60, 3, 2, 0, 100)
    assert len(pool.block(60)) == 60
    pool.free_unused()


def test_units_and_sources() -> None:
    source = GeneralPool()
    pool = LimitedPool(200, source, unit=100)
    del source
    block = pool.block(1)
    assert pool.counters.live_bytes == 100
    inner = LimitedPool(150, pool)
    with pytest.raises(MemoryError):
        inner.block(101)
    assert len(inner.block(100)) == 100 and len(block) == 1


def test_a_request_waits_for_room() -> None:
    pool = LimitedPool(100, wait=60)
    held = [pool.block(80)]
    waits = threading.Event()

    def give_back() -> None:
        while pool.counters.waiting_now == 0:
            waits.wait(0.001)
        held.clear()

    thread = threading.Thread(target=give_back)
    thread.start()
    assert len(pool.block(50)) == 50
    thread.join()
    assert pool.counters.requests == 2 and pool.counters.refusals == 0


def test_a_request_does_not_wait_for_ever() -> None:
    pool = LimitedPool(100, wait=0.05)
    block = pool.block(80)
    with pytest.raises(MemoryError):
        pool.block(80)
    assert pool.counters.requests == 2 and pool.counters.refusals == 1 and len(block) == 80


@pytest.mark.parametrize(
    "arguments",
    [(), (None,), ("x",), (-1,), (1, 3), (1, None, "x"), (1, None, True), (1, None, 0, -1), (1, None, 0, None)],
)
def test_wrong_limits(arguments: Any) -> None:
    with pytest.raises(TypeError):
        LimitedPool(*arguments)
    with pytest.raises(ValueError):
        LimitedPool(1, wait=float("nan"))
    assert LimitedPool(1, wait=-1) and LimitedPool(1, wait=1e300) and LimitedPool(1, wait=None)


def test_no_pool_of_its_own() -> None:
    with pytest.raises(TypeError):
        tn.BlockPool()
    with pytest.raises(TypeError):
        tn.Block()
    never_made: Any = tn.Block.__new__(tn.Block)
    assert len(memoryview(never_made)) == 0
