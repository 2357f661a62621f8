"""Waits that give the lock away and hear of Ctrl-C, jobs and their results, the end of the program, and forks."""

from __future__ import annotations

import concurrent.futures
import gc
import multiprocessing
import os
import signal
import subprocess
import sys
import textwrap
import threading
import time
from typing import Any, Callable

import pytest

import tnrobotkernel as tn
from tnrobotkernel import AlarmClock, Event, Job, LimitedPool, Signal, SignalState, TaskPool

LONG = 60.0


def in_thread(fn: Callable[[], Any]) -> threading.Thread:
    thread = threading.Thread(target=fn)
    thread.start()
    return thread


def eventually(holds: Callable[[], bool]) -> bool:
    """Returns whether it comes to hold; asks again and again."""
    end = time.monotonic() + LONG
    while not holds():
        if time.monotonic() > end:
            return False
        time.sleep(0.001)
    return True


def run_program(text: str, timeout: float = 60) -> subprocess.CompletedProcess[str]:
    program = "import tnrobotkernel as tn, threading, time, os, sys\n" + textwrap.dedent(text)
    return subprocess.run([sys.executable, "-X", "faulthandler", "-c", program], capture_output=True, text=True, timeout=timeout)


def test_events() -> None:
    event = Event()
    assert not event.is_set() and not event.wait(0) and not event.wait(0.01) and Event(True).wait()
    thread = in_thread(event.set)
    assert event.wait(LONG)
    thread.join()
    event.clear()
    assert not event.is_set()


def test_signals() -> None:
    signal = Signal()
    assert signal.wait(0) == signal.state == SignalState.ARMED
    thread = in_thread(signal.cancel)
    assert signal.wait() == SignalState.CANCELLED
    thread.join()
    signal.signal()
    assert signal.state == SignalState.CANCELLED
    signal.arm()
    signal.signal()
    assert signal.wait(LONG) == SignalState.SIGNALLED


def test_alarm_clocks() -> None:
    clock = AlarmClock()
    assert clock.stopped and not clock.expired and clock.wait()
    clock.start(0.01)
    assert not clock.wait() and clock.expired and not clock.stopped
    clock.start(LONG)
    clock.restart()
    assert not clock.expired
    thread = in_thread(clock.stop)
    assert clock.wait()
    thread.join()
    refused: list[Any] = [(None, TypeError), ("1", TypeError), (1e9, OverflowError), (float("nan"), ValueError)]
    for wrong, error in refused:
        with pytest.raises(error):
            clock.start(wrong)


@pytest.mark.parametrize("timeout", ["1", True, [], float("nan")])
def test_what_is_no_time_limit(timeout: Any) -> None:
    for use in (Event().wait, Signal().wait):
        with pytest.raises((TypeError, ValueError)):
            use(timeout)
    assert not Event().wait(-1) and not Event().wait(-float("inf"))


def test_waits_give_the_lock_away() -> None:
    event = Event()
    arrived: list[int] = []

    def wait() -> None:
        arrived.append(1)
        event.wait(LONG)
        arrived.append(2)

    thread = in_thread(wait)
    while not arrived:
        time.sleep(0)
    event.set()
    thread.join()
    assert arrived == [1, 2]


@pytest.mark.parametrize(
    "wait",
    [
        lambda: Event().wait(),
        lambda: Signal().wait(LONG),
        lambda: running_clock().wait(),
        lambda: full_pool()[0].block(80),
        lambda: tn.SurfacePool(full_pool()[0]).surface(9, 9, tn.ImageFormat.GRAY8),
        lambda: TaskPool().run(Event().wait, 2).result(),
        lambda: TaskPool().map(lambda n: Event().wait(2 if threading.current_thread() is not threading.main_thread() else LONG), range(2), threads=2),
    ],
)
def test_ctrl_c_ends_a_wait(wait: Callable[[], Any]) -> None:
    main = threading.main_thread().ident or 0
    interrupted = Event()

    # Again only much later, in case the first was lost: the wait has ended then, and nobody expects another.
    def interrupt() -> None:
        delay = 0.05
        while not interrupted.wait(delay):
            signal.pthread_kill(main, signal.SIGINT)
            delay = 10

    thread = threading.Thread(target=interrupt)
    begun = time.monotonic()
    try:
        with pytest.raises(KeyboardInterrupt):
            thread.start()
            wait()
    finally:
        while True:
            try:
                interrupted.set()
                thread.join()
                break
            except KeyboardInterrupt:
                pass
    assert time.monotonic() - begun < LONG / 2


def running_clock() -> AlarmClock:
    clock = AlarmClock()
    clock.start(LONG)
    return clock


_held: list[Any] = []


def full_pool() -> tuple[LimitedPool, Any]:
    pool = LimitedPool(100, wait=LONG)
    _held.append(pool.block(80))
    return pool, _held[-1]


def test_jobs_give_results_and_exceptions() -> None:
    with TaskPool() as pool:
        job = pool.run(divmod, 7, 2)
        assert isinstance(job, Job) and isinstance(job, concurrent.futures.Future)
        assert job.result() == (3, 1) and job.done() and job.exception() is None
        assert pool.run(int, "12", base=3).result(LONG) == 5
        failing = pool.run(int, "x")
        for _ in range(2):
            with pytest.raises(ValueError, match="invalid literal"):
                failing.result()
        assert isinstance(failing.exception(), ValueError)
        with pytest.raises(SystemExit):
            pool.run(sys.exit, 3).result()
        assert threading.get_ident() != pool.run(threading.get_ident).result()
    with pytest.raises(RuntimeError):
        pool.run(int)


@pytest.mark.parametrize("fn", [None, 3, "text"])
def test_what_cannot_be_called(fn: Any) -> None:
    with pytest.raises(TypeError):
        TaskPool().run(fn)
    with pytest.raises(TypeError):
        TaskPool().map(fn, [1])


def test_a_result_is_waited_for_with_a_limit() -> None:
    go = Event()
    with TaskPool() as pool:
        job = pool.run(go.wait)
        with pytest.raises(TimeoutError):
            job.result(0.01)
        go.set()
        assert job.result() is True


def test_cancelling() -> None:
    go, begun = Event(), Event()
    with TaskPool() as pool:
        blockers = [pool.run(go.wait) for _ in range(max(4, os.cpu_count() or 1))]
        waiting = pool.run(int)
        assert waiting.cancel() and waiting.cancelled() and waiting.done()
        with pytest.raises(concurrent.futures.CancelledError):
            waiting.result()
        go.set()
        assert all(job.result() for job in blockers)

        def obey() -> str:
            begun.set()
            while not tn.should_stop():
                time.sleep(0.001)
            return "stopped"

        job = pool.run(obey)
        assert begun.wait(LONG) and not job.cancel()
        assert job.result() == "stopped" and not job.cancelled()
    assert not tn.should_stop()


def test_jobs_are_futures_for_others() -> None:
    import asyncio

    async def add() -> int:
        job = pool.run(sum, [1, 2, 3])
        first: int = await asyncio.wrap_future(job)
        return first + 4

    with TaskPool() as pool:
        jobs = [pool.run(pow, n, 2) for n in range(20)]
        assert sorted(job.result() for job in concurrent.futures.as_completed(jobs)) == [n * n for n in range(20)]
        assert asyncio.run(add()) == 10


def test_map() -> None:
    pool = TaskPool()
    for threads in (None, 1, 2, 7):
        assert pool.map(lambda n: n * n, range(100), threads=threads) == [n * n for n in range(100)]
    assert pool.map(str, []) == []
    together = threading.Barrier(2, timeout=LONG)
    assert len(pool.map(lambda _: together.wait(), range(2), threads=2)) == 2
    done = []

    def fail(number: int) -> None:
        done.append(number)
        if number == 5:
            raise LookupError(number)
        if number > 1000:
            time.sleep(0.01)

    with pytest.raises(LookupError, match="5"):
        pool.map(fail, range(100_000), threads=2)
    assert len(done) < 100_000
    with pytest.raises(TimeoutError):
        pool.map(lambda _: time.sleep(0.02), range(1000), timeout=0.05)
    for wrong, error in ((0, ValueError), (-1, ValueError), ("2", TypeError), (True, TypeError), (1.5, TypeError)):
        with pytest.raises(error):
            pool.map(str, [1], threads=wrong)  # type: ignore[arg-type]
    with pytest.raises(TypeError):
        pool.map(str, None)  # type: ignore[arg-type]


def test_jobs_wait_for_jobs() -> None:
    pool = TaskPool()

    def depth(left: int) -> int:
        if left == 0:
            return 0
        deeper = int(pool.run(depth, left - 1).result())
        return 1 + deeper

    assert [job.result() for job in [pool.run(depth, 12) for _ in range(8)]] == [12] * 8
    assert pool.map(lambda n: sum(pool.map(int, range(n))), range(20)) == [n * (n - 1) // 2 for n in range(20)]
    myself: list[Job[Any]] = []
    known = Event()
    myself.append(pool.run(lambda: (known.wait(LONG), myself[0].result())))
    known.set()
    with pytest.raises(RuntimeError, match="itself"):
        myself[0].result()


def test_many_jobs_leave_nothing_behind() -> None:
    pool = TaskPool()
    kept = [pool.run(bytes, 1000) for _ in range(2000)]
    assert all(len(job.result()) == 1000 for job in kept)
    assert eventually(lambda: not pool._jobs)  # a job is forgotten when its result has been given
    count = len(gc.get_objects())
    for _ in range(1000):
        pool.run(int).result()
    assert eventually(lambda: len(gc.get_objects()) < count + 500)


def test_a_pool_may_go_before_its_jobs() -> None:
    go, begun = Event(), Event()

    def work() -> bool:
        begun.set()
        return go.wait(LONG)

    job = TaskPool().run(work)
    gc.collect()
    assert begun.wait(LONG)
    go.set()
    assert job.result() is True
    held = [TaskPool()]
    last = held[0].run(lambda: held.clear())
    assert last.result() is None
    assert TaskPool().run(int).result() == 0


def test_objects_that_were_never_made() -> None:
    uses: list[Callable[[], Any]] = [
        lambda: Event.__new__(Event).wait(),
        lambda: Signal.__new__(Signal).state,
        lambda: AlarmClock.__new__(AlarmClock).wait(),
        lambda: TaskPool.__new__(TaskPool)._post(int),
        lambda: TaskPool.__new__(TaskPool).idle_tasks,
    ]
    for use in uses:
        with pytest.raises(ValueError):
            use()


@pytest.mark.parametrize(
    "text",
    [
        "job = tn.TaskPool().run(tn.Event().wait)",
        "pool = tn.TaskPool(); jobs = [pool.run(tn.Event().wait) for _ in range(50)]",
        "pool = tn.TaskPool(); pool.run(lambda: [time.sleep(0.01) for _ in range(10**9)])",
        """
        def spin():
            while True:
                pass
        pool = tn.TaskPool(); pool.run(spin); pool.run(spin)
        """,
        "threading.Thread(target=tn.Event().wait, daemon=True).start(); time.sleep(0.05)",
        """
        clock = tn.AlarmClock(); clock.start(1000)
        threading.Thread(target=clock.wait, daemon=True).start(); time.sleep(0.05)
        """,
        "pool = tn.TaskPool(); pool.map(str, range(100)); sys.exit(0)",
        """
        begun = tn.Event()
        def obey():
            begun.set()
            while not tn.should_stop():
                time.sleep(0.001)
            os.write(1, b'told')
        pool = tn.TaskPool(); pool.run(obey); begun.wait()
        """,
        """
        data = tn.encode_image(__import__('numpy').zeros((500, 500, 3), 'u1'))
        def decode():
            while True:
                tn.decode_image(data)
        for _ in range(3):
            threading.Thread(target=decode, daemon=True).start()
        time.sleep(0.1)
        """,
    ],
)
def test_the_end_of_the_program_does_not_hang(text: str) -> None:
    ended = run_program(text)
    assert ended.returncode == 0 and "Fatal" not in ended.stderr and "terminate" not in ended.stderr, ended.stderr
    assert ended.stdout == ("told" if "told" in text else "")


def test_jobs_that_have_begun_may_finish_at_the_end() -> None:
    ended = run_program(
        """
        begun = tn.Event()
        pool = tn.TaskPool(); pool.run(lambda: (begun.set(), time.sleep(0.2), os.write(1, b'done')))
        begun.wait()
        """
    )
    assert (ended.returncode, ended.stdout) == (0, "done"), ended.stderr


def child_work(number: int) -> Any:
    group = tn.Group(number=number)
    with TaskPool() as pool:
        return tn.loads(bytes(group))["number"], pool.run(abs, -number).result(), pool.map(str, range(-2, 0))


def test_multiprocessing_with_fork() -> None:
    pool = TaskPool()
    assert pool.run(int).result() == 0
    event = Event()
    with multiprocessing.get_context("fork").Pool(2) as processes:
        assert processes.map(child_work, range(6)) == [(n, n, ["-2", "-1"]) for n in range(6)]
    event.set()
    assert pool.run(int).result() == 0


@pytest.mark.skipif(
    "asan" in os.environ.get("LD_PRELOAD", ""), reason="AddressSanitizer's own locks stay locked in such a child"
)
def test_a_fork_while_jobs_and_savers_work() -> None:
    ended = run_program(
        """
        pool = tn.TaskPool()
        group = tn.Group({str(n): bytes(1000) for n in range(300)})
        stop = tn.Event()
        def save():
            while not stop.is_set():
                bytes(group)
        jobs = [pool.run(save) for _ in range(2)]
        for _ in range(20):
            child = os.fork()
            if child == 0:
                assert len(group) == 300 and len(bytes(group)) > 300000
                assert tn.TaskPool().run(int).result() == 0
                del pool, jobs
                sys.exit(0)
            assert os.waitpid(child, 0)[1] == 0
        stop.set()
        [job.result() for job in jobs]
        print("good")
        """
    )
    assert (ended.returncode, ended.stdout) == (0, "good\n"), ended.stderr
