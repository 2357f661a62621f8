"""What no program should do, and what happens to it at the worst moment: ends of the interpreter, forks, and lies."""

from __future__ import annotations

import gc
import os
import pathlib
import pickle
import sys
import threading
import weakref
from typing import Any, Callable

import pytest
from test_leaks import SURFACE, resident
from test_tasks import LONG, eventually, run_program

import tnrobotkernel as tn
from tnrobotkernel import Event, Group, Surface, TaskPool

np = pytest.importorskip("numpy")


def test_a_class_of_several_bases_keeps_them_apart() -> None:
    class Both(tn.Event, tn.Group):  # type: ignore[misc]
        def __init__(self) -> None:
            tn.Event.__init__(self)
            tn.Group.__init__(self)

    both = Both()
    both["a"] = 1
    tn.Group.set(both, "b", "text")
    tn.Event.set(both)
    assert both["a"] == 1 and len(both) == 2 and both.wait() and "b" in both
    del both["a"]
    assert dict(both) == {"b": "text"}


def test_what_cannot_be_pickled_or_made_says_so() -> None:
    things: list[Any] = [SURFACE, tn.SurfacePool(), tn.GeneralPool().block(5), tn.LimitedPool(5), Event(), TaskPool()]
    for thing in things:
        for protocol in range(pickle.HIGHEST_PROTOCOL + 1):
            with pytest.raises(TypeError):
                pickle.dumps(thing, protocol)
    base: Any = Event.__mro__[-2]

    class Bare(base):  # type: ignore[misc]
        pass

    for cls in (base, Bare):
        with pytest.raises(TypeError, match="cannot create"):
            cls()


@pytest.mark.parametrize(
    "text",
    [
        "group = tn.Group(a=1); loop = lambda: group.type('a')",
        "surface = tn.SurfacePool().surface(8, 8, 7); loop = lambda: surface.format",
        """
        import numpy
        pixels = numpy.zeros((8, 8, 3), 'u1')
        loop = lambda: tn.Surface.from_array(pixels[::-1], copy=True)
        """,
        """
        class Number:
            def __index__(self):
                return sum(range(100))
        group = tn.Group()
        loop = lambda: group.set('a', Number(), tn.ValueType.INT)
        """,
        "group = tn.Group({str(n): bytes(9999) for n in range(99)}); loop = lambda: (bytes(group), group['5'], group.pop('x', None))",
    ],
)
def test_the_end_of_the_program_with_threads_in_calls(text: str) -> None:
    for _ in range(3):
        ended = run_program(
            text.replace("\n        ", "\n")
            + """
def forever():
    while True:
        loop()
for _ in range(4):
    threading.Thread(target=forever, daemon=True).start()
time.sleep(0.05)
"""
        )
        assert ended.returncode == 0, ended.stderr


def test_other_interpreters_are_refused() -> None:
    ended = run_program(
        """
        import _xxsubinterpreters as interpreters
        pool = tn.TaskPool()
        other = interpreters.create()
        try:
            interpreters.run_string(other, "import tnrobotkernel")
        except interpreters.RunFailedError as error:
            print("main interpreter only" in str(error))
        interpreters.destroy(other)
        print(pool.run(int).result(timeout=30))
        """
    )
    assert (ended.returncode, ended.stdout) == (0, "True\n0\n"), ended.stderr


def test_a_fork_within_what_is_open(tmp_path: pathlib.Path) -> None:
    ended = run_program(
        f"""
        event = tn.Event()
        with tn.TaskPool() as pool, tn.GroupFileWriter({str(tmp_path / "file.tnr")!r}) as writer:
            writer.write(tn.Group(a=1))
            job = pool.run(event.wait)
            while not job.running():
                pass
            child = os.fork()
            if child == 0:
                assert writer.closed
                assert pool.run(int).result() == 0
                sys.exit(0)
            assert os.waitpid(child, 0)[1] == 0
            event.set()
            writer.write(tn.Group(b=2))
        print(tn.load_all({str(tmp_path / "file.tnr")!r}))
        """
    )
    assert (ended.returncode, ended.stdout) == (0, "[Group({'a': 1}), Group({'b': 2})]\n"), ended.stderr


def test_arrays_that_lie_about_their_memory() -> None:
    class Liar(np.ndarray):  # type: ignore[misc, name-defined]
        lies = False

        @property
        def __array_interface__(self) -> Any:
            return {"data": (0, False)} if self.lies else super().__array_interface__

        @property
        def nbytes(self) -> int:
            return 1 << 30

    liar = np.zeros((8, 100), np.uint8)[:, 50:].view(Liar)
    liar.lies = True
    with pytest.raises(ValueError, match="ends before"):
        Surface.from_array(liar)
    honest = np.zeros((8, 100), np.uint8)[:, :50].view(Liar)
    assert Surface.from_array(honest).pitch == 100


def test_a_surface_goes_while_another_one_is_waited_for() -> None:
    ended = run_program(
        """
        limited = tn.LimitedPool(100_000, wait=None)
        pool = tn.SurfacePool(limited)
        large, small = pool.surface(300, 300, 7), pool.surface(10, 10, 7)
        thread = threading.Thread(target=lambda: pool.surface(300, 300, 7))
        thread.start()
        while limited.counters.waiting_now == 0:
            pass
        first = threading.Thread(target=lambda: globals().pop("small"))
        first.start()
        print("running")
        del large
        thread.join()
        first.join()
        """
    )
    assert (ended.returncode, ended.stdout) == (0, "running\n"), ended.stderr


def test_names_that_go_meanwhile_are_left_out() -> None:
    group = Group(a=1, b=2, c=3)
    for view in (group.items(), group.values()):
        shown = iter(view)
        next(shown)
        group.clear()
        assert list(shown) == []
        group.update(a=1, b=2, c=3)
    assert group.popitem()[0] in "abc" and len(group) == 2
    assert group.setdefault("d", 4) == 4 and group.setdefault("d", 5) == 4
    with pytest.raises(TypeError):
        group.setdefault("e")
    with pytest.raises(KeyError):
        Group().popitem()


def test_operations_are_whole_while_others_remove() -> None:
    group = Group({str(n): n for n in range(50)})
    over = Event()
    failures: list[BaseException] = []

    def churn() -> None:
        while not over.is_set():
            for n in range(50):
                group[str(n)] = group.pop(str(n), 0)

    def use(call: Callable[[], Any]) -> None:
        try:
            while not over.is_set():
                call()
        except BaseException as error:
            failures.append(error)

    calls: list[Callable[[], Any]] = [
        lambda: group == {},
        lambda: repr(group),
        group.typed_items,
        lambda: list(group.items()),
        lambda: Group(group),
        lambda: {} | group,
        lambda: group.update([group.popitem()]),
    ]
    interval = sys.getswitchinterval()
    sys.setswitchinterval(1e-6)
    try:
        threads = [threading.Thread(target=churn)] + [threading.Thread(target=use, args=(call,)) for call in calls]
        for thread in threads:
            thread.start()
        over.wait(1)
        over.set()
        for thread in threads:
            thread.join()
    finally:
        sys.setswitchinterval(interval)
    assert not failures


def test_one_long_job_keeps_nothing_of_the_others() -> None:
    if "asan" in os.environ.get("LD_PRELOAD", ""):
        pytest.skip("AddressSanitizer keeps what was freed for a while")
    pool, event = TaskPool(), Event()
    job = pool.run(event.wait)
    for _ in range(2000):
        pool.run(int).result()
    begin = resident()
    for _ in range(20_000):
        pool.run(int).result()
    grown = resident() - begin
    event.set()
    assert job.result() and grown < 4 << 20


def test_a_map_that_cannot_begin_leaves_no_calls_behind() -> None:
    class Refusing(TaskPool):
        left = 1

        def run(self, fn: Callable[..., Any], /, *args: Any, **kwargs: Any) -> tn.Job[Any]:
            if self.left == 0:
                raise RuntimeError("no more")
            self.left -= 1
            return super().run(fn, *args, **kwargs)

    go = Event()
    done: list[int] = []

    def work(number: int) -> None:
        go.wait(LONG)
        done.append(number)

    with Refusing() as pool:
        with pytest.raises(RuntimeError, match="no more"):
            pool.map(work, range(100), threads=3)
        go.set()
    assert len(done) <= 1


def test_what_a_job_raises_holds_nothing_when_the_job_is_gone() -> None:
    class Thing:
        pass

    seen: list[Any] = []

    def fail() -> None:
        thing = Thing()
        seen.append(weakref.ref(thing))
        raise LookupError

    gc.collect()
    gc.disable()
    try:
        with TaskPool() as pool:
            job = pool.run(fail)
            try:
                job.result()
            except LookupError:
                pass
            del job
        assert eventually(lambda: seen[0]() is None)  # the thread leaves what it called a moment after the result
    finally:
        gc.enable()
