"""Waiting and working: events, signals, alarm clocks, and Python functions on pooled tasks."""

from __future__ import annotations

import atexit
import os
import threading
import time
import weakref
from collections.abc import Iterable
from concurrent.futures import Future
from concurrent.futures import wait as _wait
from types import TracebackType
from typing import Any, Callable, Generic, Optional, TypeVar

from . import _core
from ._core import AlarmClock, Event, Signal

__all__ = ["AlarmClock", "Event", "Job", "Signal", "TaskPool", "should_stop"]

T = TypeVar("T")
S = TypeVar("S")

_GRACE = 2.0  # seconds that the end of the program waits for jobs
_live: set[Job[Any]] = set()  # jobs that are not over
_current = threading.local()  # .job: the one that this thread is in


def should_stop() -> bool:
    """Tell, within a job, whether nobody needs its result any more.

    It is cancelled, or the program ends, or the ``map`` that it is a part of is over. Nothing ends a job from
    outside: a long one asks now and then. Outside of jobs it is False.
    """
    job: Optional[Job[Any]] = getattr(_current, "job", None)
    return job is not None and job._stop


class Job(Future, Generic[T]):  # type: ignore[type-arg]
    """A call that TaskPool.run has taken over: a ``concurrent.futures.Future``.

    ``result(timeout)`` waits for it and gives its result, or raises what it has raised, TimeoutError when it is not
    over in time, CancelledError when it was cancelled before it began. ``concurrent.futures.wait``,
    ``as_completed`` and ``asyncio.wrap_future`` take it too.
    """

    def __init__(self, call: Callable[[], T]) -> None:
        super().__init__()
        self._stop = False
        self._calls = [call]  # whoever takes it out runs it

    def cancel(self) -> bool:
        """Cancel it: one that has not begun never will (True); one at work finds ``should_stop()`` true (False)."""
        self._stop = True
        cancelled = super().cancel()
        if cancelled and self._take() is not None:
            self.set_running_or_notify_cancel()
        return cancelled

    def result(self, timeout: Optional[float] = None) -> T:
        """Wait for the result, at most so many seconds. In a job, one that has not begun is run here and now."""
        self._help(timeout)
        try:
            value: T = super().result(timeout)
            return value
        finally:
            del self  # what is raised leads to this frame, and must not lead on to who holds it

    def exception(self, timeout: Optional[float] = None) -> Optional[BaseException]:
        """Wait as ``result`` does, and give what the job has raised, or None."""
        self._help(timeout)
        return super().exception(timeout)

    def _help(self, timeout: Optional[float]) -> None:
        # All tasks could be waiting for jobs that wait for a task.
        within = getattr(_current, "job", None)
        if within is self and not self.done():
            raise RuntimeError("a job cannot wait for itself")
        if within is not None and timeout is None:
            self._run()

    def _take(self) -> Optional[Callable[[], T]]:
        try:
            return self._calls.pop()
        except IndexError:
            return None

    def _run(self) -> None:
        call = self._take()
        if call is None or not self.set_running_or_notify_cancel():
            return
        before = getattr(_current, "job", None)
        _current.job = self
        try:
            result = call()
        except BaseException as error:
            self.set_exception(error)
        else:
            self.set_result(result)
        finally:
            _current.job = before
            del call, self  # what was raised leads to this frame, and must not lead on to who holds it


class TaskPool(_core.TaskPool):
    """Runs Python functions on pooled tasks of the library.

    As many jobs of one pool as the machine has processors, but at least 4, are at work at the same time; others wait
    for their turn. Python code of several jobs takes turns by the interpreter's lock, which calls of this library,
    of NumPy and of OpenCV give to others while they work.

    At the end of ``with`` all jobs are waited for. When the program ends, jobs that have not begun are cancelled,
    those at work find ``should_stop()`` true and are waited for, 2 seconds at most. After a fork, the child may make
    and use pools, but the parent's jobs are not there.
    """

    def __init__(self) -> None:
        super().__init__()
        self._jobs: set[Job[Any]] = set()
        self._closed = False
        _pools.add(self)

    def run(self, fn: Callable[..., T], /, *args: Any, **kwargs: Any) -> Job[T]:
        """Begin ``fn(*args, **kwargs)`` on a task and return its Job at once."""
        if not callable(fn):
            raise TypeError(f"{type(fn).__name__} is not callable")
        if self._closed or _ending:
            raise RuntimeError("no more jobs after shutdown")
        job: Job[T] = Job(lambda: fn(*args, **kwargs))
        _live.add(job)
        self._jobs.add(job)
        for jobs in (_live, self._jobs):
            forget: Callable[[Any], None] = jobs.discard
            job.add_done_callback(forget)
        try:
            self._post(job._run)
        except BaseException:
            job.cancel()
            raise
        return job

    submit = run

    def map(
        self,
        fn: Callable[[S], T],
        items: Iterable[S],
        *,
        threads: Optional[int] = None,
        timeout: Optional[float] = None,
    ) -> list[T]:
        """Call ``fn`` for each item, side by side, and return the results in the items' order.

        The calling thread works too, so a job may call it. ``threads`` is how many work at most, the calling one
        included: as many as there are processors where it is None.

        The first exception ends it: no more calls begin, those at work are waited for, and it is raised here. So it
        is with TimeoutError when some have not begun after so many seconds. Ctrl-C does not wait.
        """
        if threads is not None and (isinstance(threads, bool) or not isinstance(threads, int)):
            raise TypeError(f"expected a number of threads, not {type(threads).__name__}")
        if threads is not None and threads < 1:
            raise ValueError("at least one thread works")
        loop = _Loop(fn, list(items), timeout)
        count = min(threads or len(os.sched_getaffinity(0)), len(loop.items))
        helpers: list[Job[None]] = []
        try:
            for _ in range(count - 1):
                helpers.append(self.run(loop.turn))
            loop.turn()
            loop.closed = True
            _wait([helper for helper in helpers if not helper.cancel()])
        except BaseException:
            loop.closed = True
            for helper in helpers:
                helper.cancel()
            raise
        return loop.end()

    def shutdown(self, wait: bool = True, *, cancel_jobs: bool = False) -> None:
        """Take no more jobs; cancel those that have not begun if asked; wait for the others if asked."""
        self._closed = True
        jobs = list(self._jobs)
        for job in jobs if cancel_jobs else ():
            job.cancel()
        if wait:
            _wait(jobs)

    def __enter__(self) -> TaskPool:
        return self

    def __exit__(
        self,
        kind: Optional[type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        self.shutdown(cancel_jobs=kind is not None)


class _Loop(Generic[S, T]):
    """What the threads of one ``map`` share."""

    def __init__(self, fn: Callable[[S], T], items: list[S], timeout: Optional[float]) -> None:
        self.fn = fn
        self.items = items
        self.results: list[Any] = [None] * len(items)
        self.numbers = iter(range(len(items)))  # whoever takes a number does it
        self.end_of_time = None if timeout is None else time.monotonic() + timeout
        self.failure: Optional[BaseException] = None
        self.late = False
        self.closed = False

    def turn(self) -> None:
        """Take items as long as there are any."""
        while not self.closed:
            late = self.end_of_time is not None and time.monotonic() >= self.end_of_time
            number = next(self.numbers, None)
            if number is None:
                return
            if late:
                self.late = self.closed = True
                return
            try:
                self.results[number] = self.fn(self.items[number])
            except BaseException as error:
                if self.failure is None:
                    self.failure = error
                self.closed = True
                if isinstance(error, KeyboardInterrupt):
                    raise

    def end(self) -> list[T]:
        """Give the results, or raise the first exception."""
        if self.failure is not None:
            try:
                raise self.failure
            finally:
                self.failure = None  # and with it the frames that lead back here
        if self.late:
            raise TimeoutError("some items were not begun in time")
        return self.results


_pools: weakref.WeakSet[TaskPool] = weakref.WeakSet()
_ending = False


def _end() -> None:
    global _ending
    _ending = True
    jobs = list(_live)
    try:
        for job in jobs:
            job.cancel()
        _wait(jobs, _GRACE)
    finally:  # Ctrl-C ends the wait
        _core._end_calls()


def _forget() -> None:
    _live.clear()
    for pool in list(_pools):
        pool._jobs.clear()
    _current.__dict__.clear()


atexit.register(_end)
os.register_at_fork(after_in_child=_forget)
