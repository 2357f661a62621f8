"""Files of groups: what is saved comes back, and every failure says why."""

from __future__ import annotations

import os
import pathlib
import pickle
import stat
from typing import Any, Callable

import pytest

import tnrobotkernel as tn
from tnrobotkernel import Durability, ErrorCode, Group, GroupFileReader, GroupFileWriter, Value, ValueType


def test_a_group_is_saved_and_loaded(tmp_path: pathlib.Path) -> None:
    group = Group(camera="left", exposure=12.5, block=bytes(range(256)))
    group.set("n", 3, type=ValueType.UINT)
    paths: list[Any] = [tmp_path / "a.tnr", str(tmp_path / "b.tnr"), os.fsencode(tmp_path / "ç.tnr")]
    for path in paths:
        for durability in Durability:
            tn.save(path, group, durability=durability)
            loaded = tn.load(path)
            assert loaded == group and loaded.typed_items() == group.typed_items()
    assert (tmp_path / "a.tnr").read_bytes() == tn.dumps(tn.load(tmp_path / "a.tnr"))


def test_the_system_says_what_it_refuses(tmp_path: pathlib.Path) -> None:
    with pytest.raises(FileNotFoundError) as caught:
        tn.load(tmp_path / "missing.tnr")
    assert caught.value.filename == str(tmp_path / "missing.tnr")
    with pytest.raises(FileNotFoundError):
        tn.save(tmp_path / "no" / "such.tnr", Group())
    with pytest.raises(FileNotFoundError):
        GroupFileWriter(tmp_path / "no" / "such.tnr")
    with pytest.raises(FileNotFoundError):
        GroupFileReader(tmp_path / "missing.tnr")
    with pytest.raises((tn.Error, IsADirectoryError)):
        tn.load(tmp_path)
    os.mkfifo(tmp_path / "fifo")
    with pytest.raises(tn.Error) as refused:
        tn.load(tmp_path / "fifo")
    assert refused.value.code is ErrorCode.NOT_A_REGULAR_FILE and refused.value.path == str(tmp_path / "fifo")


def test_permissions_are_the_systems(tmp_path: pathlib.Path) -> None:
    (tmp_path / "own.tnr").write_bytes(tn.dumps(Group(a=1)))
    (tmp_path / "own.tnr").chmod(0)
    tmp_path.chmod(0o555)
    uses: list[Callable[[], Any]]
    uses = [lambda: tn.load(tmp_path / "own.tnr"), lambda: tn.save(tmp_path / "new.tnr", Group())]
    child = os.fork()
    if child == 0:
        refused = 0
        try:
            if os.geteuid() == 0:
                for directory in (tmp_path, *tmp_path.parents[:2]):
                    directory.chmod(directory.stat().st_mode | 0o055)
                os.setuid(65534)  # the superuser is refused nothing
            for use in uses:
                try:
                    use()
                except PermissionError:
                    refused += 1
        finally:
            os._exit(refused)
    assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 2
    tmp_path.chmod(0o755)


def test_a_full_disk_is_an_os_error(tmp_path: pathlib.Path) -> None:
    path = tmp_path / "a.tnr"
    path.symlink_to("/dev/full")
    with pytest.raises((OSError, tn.Error)):
        tn.save(path, Group(a=1))


@pytest.mark.parametrize("path", [None, 1, 2.5, object(), ["a"]])
def test_what_is_no_path_is_refused(path: Any) -> None:
    uses: list[Callable[[Any], Any]]
    uses = [tn.load, tn.load_all, GroupFileReader, GroupFileWriter, lambda p: tn.save(p, Group())]
    for use in uses:
        with pytest.raises(TypeError):
            use(path)


def test_a_path_with_a_zero_is_refused() -> None:
    with pytest.raises(ValueError):
        tn.load("a\0b")
    with pytest.raises(ValueError):
        tn.save(b"a\0b", Group())


def test_only_groups_are_saved(tmp_path: pathlib.Path) -> None:
    for wrong in (None, {"a": 1}, "x"):
        with pytest.raises(TypeError):
            tn.save(tmp_path / "a", wrong)  # type: ignore[arg-type]
        with pytest.raises(TypeError):
            tn.dumps(wrong)  # type: ignore[arg-type]
    with pytest.raises(TypeError):
        tn.save(tmp_path / "a", Group(), durability=1)  # type: ignore[arg-type]
    assert list(tmp_path.iterdir()) == []


def test_damage_is_told_from_the_end(tmp_path: pathlib.Path) -> None:
    path = tmp_path / "a.tnr"
    good = tn.dumps(Group(a="some text", b=2))
    path.write_bytes(good[:-1])
    with pytest.raises(tn.Error) as caught:
        tn.load(path)
    assert caught.value.code is ErrorCode.FILE_INCOMPLETE and str(path) in str(caught.value)
    path.write_bytes(good + b"\0")
    with pytest.raises(tn.Error) as caught:
        tn.load(path)
    assert caught.value.code is ErrorCode.FILE_HAS_MORE
    path.write_bytes(good + good[:5])
    with GroupFileReader(path) as reader:
        assert reader.read_group() == Group(a="some text", b=2)
        with pytest.raises(tn.Error):
            reader.read_group()
        with pytest.raises(tn.Error):
            reader.read_group()
    again = pickle.loads(pickle.dumps(caught.value))
    assert (again.code, again.path, str(again)) == (caught.value.code, caught.value.path, str(caught.value))


def test_several_groups_in_a_file(tmp_path: pathlib.Path) -> None:
    path = tmp_path / "all.tnr"
    groups = [Group(number=i, name=f"part {i}") for i in range(50)]
    assert tn.save_all(path, iter(groups)) == 50
    assert tn.load_all(path) == groups
    with GroupFileReader(path) as reader:
        assert sum(1 for _ in reader) == 50
        assert reader.read_group() is None and reader.read_value() is None
    assert reader.closed
    (tmp_path / "empty.tnr").write_bytes(b"")
    assert tn.load_all(tmp_path / "empty.tnr") == []


def test_values_between_groups(tmp_path: pathlib.Path) -> None:
    path = tmp_path / "mixed.tnr"
    with GroupFileWriter(path) as writer:
        writer.write(2)
        writer.write(Value(2, ValueType.BYTE))
        writer.write(Group(a=1))
        writer.write("text")
        assert not path.exists()
    with GroupFileReader(path) as reader:
        assert reader.read_value() == Value(2, ValueType.INT)
        assert reader.read_value() == Value(2, ValueType.BYTE)
        assert reader.read_group() == {"a": 1}
        assert reader.read_value() == Value("text", ValueType.STRING)
        assert reader.read_value() is None


def test_a_file_is_replaced_whole_or_not_at_all(tmp_path: pathlib.Path) -> None:
    path = tmp_path / "all.tnr"
    tn.save_all(path, [Group(old=1)])
    with pytest.raises(ZeroDivisionError):
        with GroupFileWriter(path) as writer:
            writer.write(Group(new=1))
            raise ZeroDivisionError
    assert tn.load_all(path) == [{"old": 1}]

    def groups() -> Any:
        yield Group(new=1)
        raise ZeroDivisionError

    with pytest.raises(ZeroDivisionError):
        tn.save_all(path, groups())
    with pytest.raises(TypeError):
        tn.save_all(path, [Group(new=1), None])  # type: ignore[list-item]
    assert tn.load_all(path) == [{"old": 1}]
    assert [entry.name for entry in tmp_path.iterdir()] == ["all.tnr"]
    assert stat.S_ISREG(path.stat().st_mode)


def test_closed_files_say_so(tmp_path: pathlib.Path) -> None:
    path = tmp_path / "all.tnr"
    writer = GroupFileWriter(path)
    writer.write(Group())
    writer.save()
    assert writer.closed
    reader = GroupFileReader(path)
    reader.close()
    reader.close()
    for use in (lambda: writer.write(Group()), writer.save, reader.read_group, reader.read_value):
        with pytest.raises(ValueError, match="closed file"):
            use()
    never_made: Any
    for never_made in (GroupFileWriter.__new__(GroupFileWriter), GroupFileReader.__new__(GroupFileReader)):
        assert never_made.closed
        never_made.close()


def test_error_is_an_exception_like_others() -> None:
    error = tn.Error(ErrorCode.FILE_DAMAGED)
    assert error.code is ErrorCode.FILE_DAMAGED and error.path is None and "FILE_DAMAGED" in str(error)
    assert not isinstance(error, OSError)
