"""Groups as mappings: what is stored, as which type, and what is refused."""

from __future__ import annotations

import copy
import math
import pickle
import threading
from collections.abc import MutableMapping
from typing import Any, Callable

import pytest

import tnrobotkernel as tn
from tnrobotkernel import Group, Value, ValueType

np = pytest.importorskip("numpy")


def test_is_a_mutable_mapping() -> None:
    group = Group({"a": 1}, b=2.5)
    assert isinstance(group, MutableMapping)
    assert dict(group) == {"a": 1, "b": 2.5}
    assert sorted(group) == sorted(group.keys()) == ["a", "b"]
    assert sorted(map(repr, group.values())) == ["1", "2.5"]
    assert sorted(group.items()) == [("a", 1), ("b", 2.5)]
    assert group.get("c") is None and group.get("a") == 1
    assert group.setdefault("c", "x") == "x"
    assert group.pop("c") == "x" and "c" not in group
    group.update({"d": b"1"}, e=True)
    assert len(group) == 4
    name, value = group.popitem()
    assert name not in group and len(group) == 3
    del group["a" if name != "a" else "b"]
    group.clear()
    assert not group and list(group) == []


@pytest.mark.parametrize(
    ("value", "kind"),
    [
        (True, ValueType.BOOL),
        (False, ValueType.BOOL),
        (0, ValueType.INT),
        (-(2**31), ValueType.INT),
        (2**31 - 1, ValueType.INT),
        (2**31, ValueType.LONGLONG),
        (-(2**63), ValueType.LONGLONG),
        (2**63 - 1, ValueType.LONGLONG),
        (2**63, ValueType.ULONGLONG),
        (2**64 - 1, ValueType.ULONGLONG),
        (0.1, ValueType.DOUBLE),
        (math.inf, ValueType.DOUBLE),
        ("", ValueType.STRING),
        ("Prüfung ☃ 𝄞", ValueType.STRING),
        (b"", ValueType.BLOCK),
        (b"\0\xff", ValueType.BLOCK),
    ],
)
def test_stores_what_fits(value: Any, kind: ValueType) -> None:
    group = Group(x=value)
    assert group.type("x") is kind
    assert group["x"] == value and type(group["x"]) is type(value)
    back = tn.loads(tn.dumps(group))
    assert back["x"] == value and back.type("x") is kind


@pytest.mark.parametrize(
    ("scalar", "kind"),
    [
        (np.bool_(True), ValueType.BOOL),
        (np.int8(-3), ValueType.SHORT),
        (np.uint8(255), ValueType.BYTE),
        (np.int16(-32768), ValueType.SHORT),
        (np.uint16(65535), ValueType.USHORT),
        (np.int32(-5), ValueType.INT),
        (np.uint32(2**32 - 1), ValueType.UINT),
        (np.int64(-(2**63)), ValueType.LONGLONG),
        (np.uint64(2**64 - 1), ValueType.ULONGLONG),
        (np.float16(0.5), ValueType.FLOAT),
        (np.float32(0.1), ValueType.FLOAT),
        (np.float64(0.1), ValueType.DOUBLE),
        (np.str_("text"), ValueType.STRING),
        (np.bytes_(b"bytes"), ValueType.BLOCK),
    ],
)
def test_numpy_scalars_keep_their_type(scalar: Any, kind: ValueType) -> None:
    group = Group(x=scalar)
    assert group.type("x") is kind
    assert group["x"] == scalar.item() if hasattr(scalar, "item") else scalar


@pytest.mark.parametrize(
    ("kind", "low", "high"),
    [
        (ValueType.BYTE, 0, 2**8 - 1),
        (ValueType.SHORT, -(2**15), 2**15 - 1),
        (ValueType.USHORT, 0, 2**16 - 1),
        (ValueType.INT, -(2**31), 2**31 - 1),
        (ValueType.UINT, 0, 2**32 - 1),
        (ValueType.LONGLONG, -(2**63), 2**63 - 1),
        (ValueType.ULONGLONG, 0, 2**64 - 1),
    ],
)
def test_ranges_are_checked(kind: ValueType, low: int, high: int) -> None:
    group = Group()
    for number in (low, high):
        group.set("n", number, type=kind)
        assert group["n"] == number and group.type("n") is kind
    for number in (low - 1, high + 1, 10**30, -(10**30)):
        with pytest.raises(OverflowError):
            group.set("n", number, type=kind)
    assert group["n"] == high
    with pytest.raises(TypeError):
        group.set("n", 1.0, type=kind)


def test_other_types_can_be_asked_for() -> None:
    group = Group()
    group.set("f", 0.1, type=ValueType.FLOAT)
    assert group["f"] == float(np.float32(0.1))
    group.set("d", 3, type=ValueType.DOUBLE)
    assert group["d"] == 3.0 and isinstance(group["d"], float)
    group.set("c", "x", type=ValueType.CHAR)
    assert group["c"] == "x"
    group.set("c", b"\xe4", type=ValueType.CHAR)
    assert group["c"].encode("utf-8", "surrogateescape") == b"\xe4"
    group.set("b", np.arange(3, dtype=np.uint16), type=ValueType.BLOCK)
    assert group["b"] == b"\0\0\1\0\2\0"
    group.set("n", 3, type=5)  # type: ignore[arg-type]
    assert group.type("n") is ValueType.UINT
    group["v"] = Value(7, ValueType.BYTE)
    assert group.type("v") is ValueType.BYTE
    with pytest.raises(OverflowError):
        group.set("f", 1e39, type=ValueType.FLOAT)
    assert group.typed_items()[0] == ("b", Value(b"\0\0\1\0\2\0", ValueType.BLOCK))


@pytest.mark.parametrize(
    "value",
    [None, [], {}, 1j, object(), np.arange(3), np.datetime64("2026-01-01"), np.longdouble(1), int, Group()],
)
def test_other_values_are_refused(value: Any) -> None:
    group = Group(x=1)
    with pytest.raises(TypeError):
        group["x"] = value
    assert group["x"] == 1


@pytest.mark.parametrize(
    ("value", "kind", "error"),
    [
        (2**64, None, OverflowError),
        (-(2**63) - 1, None, OverflowError),
        ("a\0b", None, ValueError),
        ("ab", ValueType.CHAR, ValueError),
        ("", ValueType.CHAR, ValueError),
        ("ä", ValueType.CHAR, ValueError),
        (1, ValueType.CHAR, TypeError),
        (1, ValueType.STRING, TypeError),
        (1, ValueType.BOOL, TypeError),
        ("1", ValueType.INT, TypeError),
        ("1", ValueType.DOUBLE, TypeError),
        (True, ValueType.DOUBLE, TypeError),
        (1, ValueType.NONE, TypeError),
        ("x", ValueType.BLOCK, TypeError),
        (np.arange(6).reshape(2, 3).T, ValueType.BLOCK, (ValueError, BufferError)),
        (1, 99, ValueError),
        (1, "INT", TypeError),
        (Value("x", ValueType.INT), None, TypeError),
    ],
)
def test_wrong_values_say_why(value: Any, kind: Any, error: Any) -> None:
    group = Group()
    with pytest.raises(error):
        group.set("x", value, kind)
    assert len(group) == 0


def test_names() -> None:
    group = Group({"ä ☃": 1})
    assert group["ä ☃"] == 1
    for name in ("", "a\0b"):
        with pytest.raises(ValueError):
            group[name] = 1
        assert name not in group
        with pytest.raises(KeyError):
            group[name]
    wrong: Any
    for wrong in (None, 1, b"x"):
        with pytest.raises(TypeError):
            group[wrong] = 1
        with pytest.raises(TypeError):
            group[wrong]
        assert wrong not in group
    uses: list[Callable[[], Any]]
    uses = [lambda: group["y"], lambda: group.type("y"), lambda: group.pop("y"), lambda: group.__delitem__("y")]
    for missing in uses:
        with pytest.raises(KeyError) as caught:
            missing()
        assert caught.value.args == ("y",)


def test_equality_is_that_of_mappings() -> None:
    group = Group(a=1, b="x")
    assert group == {"b": "x", "a": 1} and group == Group(b="x", a=1)
    assert group != {"a": 1} and group != Group(a=2, b="x") and group != 3
    other = Group(b="x")
    other.set("a", 1, type=ValueType.ULONGLONG)
    assert group == other
    with pytest.raises(TypeError):
        hash(group)


def test_copies_keep_types_and_are_apart() -> None:
    group = Group(a=1)
    group.set("n", 3, type=ValueType.UINT)
    for made in (group.copy(), copy.copy(group), copy.deepcopy(group), pickle.loads(pickle.dumps(group)), Group(group)):
        assert made == group and made.type("n") is ValueType.UINT
        made["a"] = 2
        assert group["a"] == 1
    merged = group | {"z": 1}
    assert merged.type("n") is ValueType.UINT and "z" in merged and "z" not in group
    assert ({"a": 9, "q": 1} | group) == {"a": 1, "n": 3, "q": 1}
    group |= {"y": 2}
    assert group["y"] == 2


class Settings(Group):
    """A subclass, as applications make them."""


def test_subclasses_stay_what_they_are() -> None:
    settings = Settings(a=1)
    assert type(settings.copy()) is Settings
    back = pickle.loads(pickle.dumps(settings))
    assert type(back) is Settings and back == settings
    assert repr(settings) == "Settings({'a': 1})"


def test_repr_shows_the_content() -> None:
    group = Group(b=True, a="x", c=b"12", d=bytes(1000))
    assert repr(group) == "Group({'a': 'x', 'b': True, 'c': b'12', 'd': <1000 bytes: b'\\x00\\x00\\x00\\x00\\x00\\x00\\x00\\x00'...>})"


def test_iteration_goes_over_what_was_there() -> None:
    group = Group({str(i): i for i in range(100)})
    for name in group:
        del group[name]
    assert len(group) == 0


def test_text_that_is_no_utf8_comes_back() -> None:
    text = b"caf\xe9".decode("utf-8", "surrogateescape")
    group = Group({text: text})
    assert group[text] == text and list(group) == [text]
    assert tn.loads(bytes(group))[text] == text


def test_an_object_that_was_never_made_is_no_crash() -> None:
    group = Group.__new__(Group)
    uses: list[Callable[[], Any]] = [
        lambda: group["x"],
        lambda: len(group),
        lambda: group.set("x", 1),
        lambda: bytes(group),
        lambda: group.copy(),
        lambda: repr(group),
        lambda: "x" in group,
        lambda: group.clear(),
    ]
    for use in uses:
        with pytest.raises(ValueError):
            use()
    with pytest.raises(ValueError):
        Group(a=1)._copy_from(group)

    class Careless(Group):
        def __init__(self) -> None:
            pass

    with pytest.raises(TypeError):
        Careless()
    group = Group(a=1)
    group.__init__(b=2)  # type: ignore[misc]
    assert group == {"a": 1, "b": 2}


def test_threads_share_a_group() -> None:
    group = Group(n=0)
    failures: list[BaseException] = []

    def work(number: int) -> None:
        try:
            for i in range(300):
                group[f"{number}.{i}"] = bytes(100)
                data = bytes(group)
                assert tn.loads(data)["n"] == 0
                group._copy_from(group.copy()) if i % 50 == 0 else None
                list(group.items()) if i % 20 == 0 else None
                group.pop(f"{number}.{i}", None)
        except KeyError:
            pass  # another thread has removed it meanwhile
        except BaseException as failure:
            failures.append(failure)

    threads = [threading.Thread(target=work, args=(n,)) for n in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert failures == []


@pytest.mark.parametrize("data", [b"", b"\1", b"\1\0\0\0\0x", b"\xff" * 100, bytes(range(256)) * 4])
def test_bytes_that_are_no_group_are_an_error(data: bytes) -> None:
    with pytest.raises(tn.Error):
        tn.loads(data)


def test_every_prefix_and_change_of_good_bytes_is_a_group_or_an_error() -> None:
    good = bytes(Group(a=1, text="some text", block=b"12345678", x=2.5))
    for length in range(len(good)):
        with pytest.raises(tn.Error):
            tn.loads(good[:length])
    with pytest.raises(tn.Error) as caught:
        tn.loads(good + b"x")
    assert caught.value.code is tn.ErrorCode.FILE_HAS_MORE
    for position in range(len(good)):
        for change in (0, 1, 0x7F, 0x80, 0xFF):
            bad = bytearray(good)
            bad[position] = change
            try:
                repr(tn.loads(bad))
            except tn.Error:
                pass


@pytest.mark.parametrize("data", [None, "text", 1, [1]])
def test_only_bytes_are_loaded(data: Any) -> None:
    with pytest.raises(TypeError):
        tn.loads(data)
