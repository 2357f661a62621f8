"""Groups of named values, and files of them."""

from __future__ import annotations

from collections.abc import ItemsView, Iterable, Iterator, Mapping, MutableMapping, ValuesView
from os import PathLike, fspath
from types import TracebackType
from typing import TYPE_CHECKING, Any, Optional, TypeVar, Union
from typing import Type as _Type  # the class below has an operation of that name

from . import _core
from ._types import Durability, Error, ErrorCode, Value, ValueType

__all__ = [
    "Group",
    "GroupFileReader",
    "GroupFileWriter",
    "dumps",
    "load",
    "load_all",
    "loads",
    "save",
    "save_all",
]

Path = Union[str, bytes, "PathLike[str]", "PathLike[bytes]"]
Plain = Union[bool, int, float, str, bytes]
_G = TypeVar("_G", bound="Group")
_LONGEST_BYTES = 32  # of a block that is shown in full

if TYPE_CHECKING:
    _Mapping = MutableMapping[str, Any]
else:
    _Mapping = object


class Group(_core.Group, _Mapping):
    """A dictionary of typed values by name, which C++ programs of the library read and write.

    It is a ``MutableMapping``: what a ``dict`` of str can do, it can. ``Group(mapping_or_pairs, **values)`` makes
    one as ``dict(...)`` would. Values are stored as these types; ``set`` stores another one:

    ===================================== ===========================================================
    ``bool``, ``numpy.bool_``             BOOL
    ``int``                               INT; LONGLONG or ULONGLONG where it needs more than 32 bits
    ``float``                             DOUBLE
    ``str``                               STRING
    ``bytes``, bytearray, memoryview      BLOCK
    NumPy's scalars                       by size and sign: int16 is a SHORT, uint8 a BYTE, float32 a
                                          FLOAT, int8 a SHORT, float16 a FLOAT
    ``Value``                             as it says
    ===================================== ===========================================================

    A number that no type holds is an OverflowError, anything else a TypeError. A CHAR reads as a str of one
    character, a value without a type as None. Iteration goes over the names that were there when it began, in no
    promised order. Two groups are equal when their names and values are, whatever types they are stored as; a
    group is equal to any mapping like that.

    Several threads may use one group: each operation is whole.
    """

    def __init__(self, data: Union[Mapping[str, Any], Iterable[tuple[str, Any]]] = (), /, **values: Any) -> None:
        super().__init__()
        self.update(data, **values)

    def __iter__(self) -> Iterator[str]:
        return iter(self._names())

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Mapping):
            return NotImplemented
        mine = {name: value for name, value, _ in self._items()}
        return mine == dict(other.items())

    __hash__ = None  # type: ignore[assignment]

    def __reversed__(self) -> Iterator[str]:
        return reversed(self._names())

    def set(self, name: str, value: Any, type: Optional[ValueType] = None) -> None:
        """Store a value as ``type``, or as the type that fits it.

        With a type, a number that it does not hold is an OverflowError, a float that is rounded is taken, and a
        BLOCK is made of anything with a contiguous buffer, such as a NumPy array.
        """
        self._set(name, value, type)

    def type(self, name: str) -> ValueType:
        """Tell the type that a value is stored as; KeyError for a name that is not there."""
        return self._type(name)

    def typed_items(self) -> list[tuple[str, Value]]:
        """List names and values with their types, sorted by name."""
        items = sorted(self._items(), key=_name_of)
        return [(name, Value(value, ValueType(kind))) for name, value, kind in items]

    def clear(self) -> None:
        """Remove all values."""
        self._clear()

    def pop(self, name: str, /, *default: Any) -> Any:
        """Remove a value and return it; where there is none, return the default or raise KeyError."""
        if len(default) > 1:
            raise TypeError(f"pop expected at most 2 arguments, got {1 + len(default)}")
        try:
            return self._pop(name)
        except KeyError:
            if default:
                return default[0]
            raise

    def popitem(self) -> tuple[str, Any]:
        """Remove some value and return it with its name; KeyError where there is none."""
        while names := self._names():
            for name in names:
                try:
                    return name, self._pop(name)
                except KeyError:
                    pass  # another thread was faster
        raise KeyError("the group is empty")

    def setdefault(self, name: str, default: Any = None) -> Any:
        """Return a value; where there is none, store the default first."""
        return self._set_default(name, default)

    def items(self) -> ItemsView[str, Any]:
        """Show names and values; one that another thread removes meanwhile is left out."""
        return _Items(self)

    def values(self) -> ValuesView[Any]:
        """Show the values; one that another thread removes meanwhile is left out."""
        return _Values(self)

    def copy(self: _G) -> _G:
        """Make a group with copies of all values, of the types that they have."""
        made = type(self)()
        made._copy_from(self)
        return made

    __copy__ = copy

    def __deepcopy__(self: _G, memo: dict[int, Any]) -> _G:
        return self.copy()

    def __reduce__(self) -> tuple[Any, tuple[Any, bytes]]:
        return _restore, (type(self), self.to_bytes())

    def __or__(self: _G, other: Any) -> _G:
        if not isinstance(other, Mapping):
            return NotImplemented
        made = self.copy()
        made.update(other)
        return made

    def __ror__(self: _G, other: Any) -> _G:
        if not isinstance(other, Mapping):
            return NotImplemented
        made = type(self)(other)
        made._update_typed(self)
        return made

    def __ior__(self: _G, other: Any) -> _G:
        self.update(other)
        return self

    def update(self, data: Any = (), /, **values: Any) -> None:
        """Store what a mapping or pairs and keywords say. A group's values keep their types."""
        if isinstance(data, Group):
            self._update_typed(data)
        elif isinstance(data, Mapping):
            for name in data:
                self[name] = data[name]
        elif hasattr(data, "keys"):
            for name in data.keys():
                self[name] = data[name]
        else:
            for name, value in data:
                self[name] = value
        for name, value in values.items():
            self[name] = value

    def _update_typed(self, other: Group) -> None:
        for name, value in other.typed_items():
            self._set(name, value.value, value.type)

    def __repr__(self) -> str:
        parts = (f"{name!r}: {_show(value)}" for name, value, _ in sorted(self._items(), key=_name_of))
        return f"{type(self).__name__}({{{', '.join(parts)}}})"

    def to_bytes(self) -> bytes:
        """Give the bytes that the library saves, as in a file of this group."""
        return self._to_bytes()

    __bytes__ = to_bytes

    @classmethod
    def from_bytes(cls: _Type[_G], data: Any) -> _G:
        """Make the group whose bytes these are; Error where they are not those of one group."""
        group = cls()
        if group._load_bytes(data, 0) != memoryview(data).nbytes:
            raise Error(ErrorCode.FILE_HAS_MORE, "Bytes follow behind the group")
        return group


def _name_of(item: tuple[str, Any, int]) -> str:
    return item[0]


def _still_there(group: Group) -> Iterator[tuple[str, Any]]:
    for name in group._names():
        try:
            yield name, group[name]
        except KeyError:
            pass


class _Items(ItemsView[str, Any]):
    def __iter__(self) -> Iterator[tuple[str, Any]]:
        return _still_there(self._mapping)  # type: ignore[attr-defined]


class _Values(ValuesView[Any]):
    def __iter__(self) -> Iterator[Any]:
        return (value for _, value in _still_there(self._mapping))  # type: ignore[attr-defined]

    def __contains__(self, value: object) -> bool:
        return any(each is value or each == value for each in self)


def _restore(cls: type[_G], data: bytes) -> _G:
    return cls.from_bytes(data)


def _show(value: Any) -> str:
    if isinstance(value, bytes) and len(value) > _LONGEST_BYTES:
        return f"<{len(value)} bytes: {value[:8]!r}...>"
    return repr(value)


if not TYPE_CHECKING:
    # The class of the extension has a metaclass of its own, so the operations come without the base class.
    for _name in ("keys", "get"):
        setattr(Group, _name, getattr(MutableMapping, _name))
    MutableMapping.register(Group)


def _is_synced(durability: Durability) -> bool:
    if not isinstance(durability, Durability):
        raise TypeError(f"expected a Durability, not {type(durability).__name__}")
    return durability is Durability.SYNCED


def save(path: Path, group: Group, *, durability: Durability = Durability.SYNCED) -> None:
    """Save a group as a file of its own, which C++ loads with tn::LoadFrom.

    The file is replaced as a whole or not at all. OSError for what the system refuses.
    """
    _group(group)._save_file(path, _is_synced(durability))


def load(path: Path) -> Group:
    """Load the group that a file holds, whole and alone; Error says what is wrong with one that does not."""
    group = Group()
    group._load_file(path)
    return group


def dumps(group: Group) -> bytes:
    """Give the bytes of a group's file."""
    return _group(group).to_bytes()


def loads(data: Any) -> Group:
    """Make the group whose bytes these are."""
    return Group.from_bytes(data)


def _group(group: Any) -> Group:
    if not isinstance(group, Group):
        raise TypeError(f"expected a Group, not {type(group).__name__}")
    return group


def save_all(path: Path, groups: Iterable[Group], *, durability: Durability = Durability.SYNCED) -> int:
    """Save any number of groups in one file, which is replaced as a whole; return how many."""
    with GroupFileWriter(path, durability=durability) as writer:
        count = 0
        for group in groups:
            writer.write(group)
            count += 1
    return count


def load_all(path: Path) -> list[Group]:
    """Load all groups of a file."""
    with GroupFileReader(path) as reader:
        return list(reader)


class GroupFileWriter(_core.GroupFileWriter):
    """Writes groups and values one after the other, and puts the file in its place when all are there.

    At the end of ``with`` the file is saved; an exception there leaves the old one. The file does not say what is
    a group and what a value: they are read in the order in which they were written.
    """

    def __init__(self, path: Path, *, durability: Durability = Durability.SYNCED) -> None:
        self._synced = _is_synced(durability)
        super().__init__(fspath(path))

    def write(self, item: Union[Group, Value, Plain]) -> None:
        """Write a group, or a value as a group would store it."""
        if isinstance(item, Group):
            self._write_group(item)
        else:
            self._write_value(item, None)

    def save(self) -> None:
        """Put the file in its place, which ends the writing."""
        self._save(self._synced)
        self.close()

    def __enter__(self) -> GroupFileWriter:
        return self

    def __exit__(
        self,
        kind: Optional[type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        try:
            if kind is None and not self.closed:
                self.save()
        finally:
            self.close()


class GroupFileReader(_core.GroupFileReader):
    """Reads groups and values one after the other. Iterating over it reads groups up to the end of the file."""

    def __init__(self, path: Path) -> None:
        super().__init__(fspath(path))

    def read_group(self) -> Optional[Group]:
        """Read the next group; None at the end of the file."""
        group = Group()
        return group if self._read_group(group) else None

    def read_value(self) -> Optional[Value]:
        """Read the next value; None at the end of the file."""
        found = self._read_value()
        return None if found is None else Value(*found)

    def __iter__(self) -> Iterator[Group]:
        while (group := self.read_group()) is not None:
            yield group

    def __enter__(self) -> GroupFileReader:
        return self

    def __exit__(
        self,
        kind: Optional[type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        self.close()
