"""Archives with object tables: graphs of objects of registered classes, as tn::SaveGraph writes them.

A file begins with the identifiers of all classes and the class of every object; the objects follow, each in full
once and by its number afterwards. An object's own bytes are what its class makes of them, and nothing in the file
says how many they are: who knows a class gives a function that reads it.
"""

from __future__ import annotations

import os
import struct
import tempfile
from collections.abc import Mapping
from dataclasses import dataclass
from os import PathLike, fsdecode, fsencode
from typing import Any, Callable, Optional, Union

from ._groups import Group
from ._types import Error, ErrorCode

__all__ = ["ArchiveReader", "ArchiveWriter", "Record", "load_archive"]

Path = Union[str, bytes, "PathLike[str]", "PathLike[bytes]"]
_DEEPEST_OF_PYTHON = 150  # each level is some calls of Python's
_MOST_OBJECTS = 65535


@dataclass(frozen=True)
class Record:
    """An object of a class that Python does not know.

    Only its class can tell where its bytes end, so ``data`` is all that is left of the file: the object's own bytes
    are its beginning.
    """

    identifier: str  #: of its class
    number: int  #: of the object in its file
    data: bytes


class ArchiveReader:
    """Reads the objects of an archive, and what lies between them.

    ``classes`` is by identifier: a function that is called with this reader to read the bytes of one object, and
    returns what stands for it in Python. It reads them in the order in which C++ has written them. ``identifiers``
    lists the classes of the file, ``objects`` the identifier of each object.
    """

    def __init__(self, data: Any, classes: Optional[Mapping[str, Callable[[ArchiveReader], Any]]] = None) -> None:
        self._data = bytes(memoryview(data))
        self._position = 0
        self._depth = 0
        self._classes = dict(classes or {})
        self._known: dict[int, Any] = {}
        self._begun: set[int] = set()
        self.identifiers = tuple(self.read(self._count(4)).decode("utf-8", "replace") for _ in range(self._count(2)))
        numbers = [self._unpack("<QH")[1] for _ in range(self._count(2))]
        if any(number >= len(self.identifiers) for number in numbers):
            raise Error(ErrorCode.FILE_DAMAGED)
        self.objects = tuple(self.identifiers[number] for number in numbers)

    def _unpack(self, form: str) -> tuple[Any, ...]:
        return struct.unpack(form, self.read(struct.calcsize(form)))

    def _count(self, size: int) -> int:
        return int.from_bytes(self.read(size), "little")

    @property
    def position(self) -> int:
        """How many bytes have been read."""
        return self._position

    @property
    def at_end(self) -> bool:
        """Whether all bytes have been read."""
        return self._position == len(self._data)

    def read(self, size: int) -> bytes:
        """Read so many bytes; Error where there are fewer."""
        if size < 0:
            raise ValueError("a number of bytes is not below 0")
        if size > len(self._data) - self._position:
            raise Error(ErrorCode.FILE_INCOMPLETE)
        begin = self._position
        self._position += size
        return self._data[begin : self._position]

    def read_bool(self) -> bool:
        """Read one byte as a truth value."""
        return self.read(1) != b"\0"

    def read_int(self, size: int = 4, *, signed: bool = True) -> int:
        """Read a whole number of 1, 2, 4 or 8 bytes."""
        return int.from_bytes(self.read(size), "little", signed=signed)

    def read_float(self) -> float:
        """Read a float of 4 bytes."""
        return float(self._unpack("<f")[0])

    def read_double(self) -> float:
        """Read a float of 8 bytes."""
        return float(self._unpack("<d")[0])

    def read_string(self) -> str:
        """Read a text that ITnRobotArchive::WriteString has written."""
        size = self.read_int()
        if size < 0:
            raise Error(ErrorCode.FILE_DAMAGED)
        return self.read(size).split(b"\0", 1)[0].decode("utf-8", "surrogateescape")

    def read_group(self) -> Group:
        """Read a group that has serialised itself here."""
        group = Group()
        self._position = group._load_bytes(self._data, self._position)
        return group

    def read_object(self) -> Any:
        """Read an object in full, or one more reference to one that was read before; None for a null.

        Of a class that nobody has given a function for, it is a Record, and nothing can be read behind it.
        """
        if self.read(1) == b"\0":
            return None
        new, number = self._unpack("<?H")
        if number >= len(self.objects):
            raise Error(ErrorCode.FILE_DAMAGED)
        if not new:
            if number not in self._known:
                raise Error(ErrorCode.NOT_LOADED_YET)
            return self._known[number]
        if number in self._begun:
            raise Error(ErrorCode.FILE_DAMAGED)
        self._begun.add(number)
        self._known[number] = self._read_new(number)
        return self._known[number]

    def _read_new(self, number: int) -> Any:
        identifier = self.objects[number]
        if identifier not in self._classes:
            return Record(identifier, number, self.read(len(self._data) - self._position))
        if self._depth >= _DEEPEST_OF_PYTHON:
            raise Error(ErrorCode.TOO_DEEP)
        self._depth += 1
        try:
            return self._classes[identifier](self)
        finally:
            self._depth -= 1


class ArchiveWriter:
    """Writes objects that C++ reads with tn::LoadGraph or tn::ObjectReader.

    ``write_object(identifier, thing, contents)`` writes an object of a class: ``contents(writer, thing)`` writes its
    own bytes with the operations below, in the order in which the class reads them. The same ``thing`` once more is
    written as a reference. The writer keeps all things until it goes.
    """

    def __init__(self) -> None:
        self._data = bytearray()
        self._identifiers: list[bytes] = []
        self._objects: list[int] = []
        self._numbers: dict[int, int] = {}
        self._kept: list[Any] = []
        self._depth = 0

    def write(self, data: Any) -> None:
        """Write bytes as they are."""
        self._data += memoryview(data).cast("B")

    def write_bool(self, value: bool) -> None:
        """Write a truth value as one byte."""
        self.write(b"\1" if value else b"\0")

    def write_int(self, value: int, size: int = 4, *, signed: bool = True) -> None:
        """Write a whole number of 1, 2, 4 or 8 bytes; OverflowError for one that does not fit."""
        self.write(value.to_bytes(size, "little", signed=signed))

    def write_float(self, value: float) -> None:
        """Write a float of 4 bytes."""
        self.write(struct.pack("<f", value))

    def write_double(self, value: float) -> None:
        """Write a float of 8 bytes."""
        self.write(struct.pack("<d", value))

    def write_string(self, text: str) -> None:
        """Write a text as ITnRobotArchive::WriteString does."""
        data = text.encode("utf-8", "surrogateescape")
        if b"\0" in data:
            raise ValueError("a text with a zero inside cannot be stored")
        self.write_int(len(data) + 1 if data else 0)
        self.write(data + b"\0" if data else b"")

    def write_group(self, group: Group) -> None:
        """Write a group as it serialises itself."""
        self.write(group.to_bytes())

    def write_object(
        self, identifier: str, thing: Any, contents: Optional[Callable[[ArchiveWriter, Any], None]] = None
    ) -> None:
        """Write an object of a class; None is written as a null, and a Record's identifier and data as they are."""
        if thing is None:
            self.write(b"\0")
            return
        known = self._numbers.get(id(thing))
        if known is not None:
            self.write(struct.pack("<??H", True, False, known))
            return
        if len(self._objects) >= _MOST_OBJECTS:
            raise Error(ErrorCode.TOO_MANY_OBJECTS)
        if self._depth >= _DEEPEST_OF_PYTHON:
            raise Error(ErrorCode.TOO_DEEP)
        number = len(self._objects)
        self._objects.append(self._class(identifier))
        self._numbers[id(thing)] = number
        self._kept.append(thing)  # so that nothing else gets its number
        self.write(struct.pack("<??H", True, True, number))
        self._depth += 1
        try:
            if contents is not None:
                contents(self, thing)
            elif isinstance(thing, Record):
                self.write(thing.data)
        finally:
            self._depth -= 1

    def _class(self, identifier: str) -> int:
        name = identifier.encode("utf-8")
        if name not in self._identifiers:
            self._identifiers.append(name)
        return self._identifiers.index(name)

    def to_bytes(self) -> bytes:
        """Give tables and objects as the file holds them."""
        tables = bytearray(struct.pack("<H", len(self._identifiers)))
        for name in self._identifiers:
            tables += struct.pack("<I", len(name)) + name
        tables += struct.pack("<H", len(self._objects))
        for number, kind in enumerate(self._objects):
            tables += struct.pack("<QH", number + 1, kind)  # numbers of objects mean nothing to who reads
        return bytes(tables + self._data)

    def save(self, path: Path) -> None:
        """Replace a file by what was written so far, as a whole, when the disk has it."""
        name = os.path.realpath(fsencode(path))
        handle, temporary = tempfile.mkstemp(dir=os.path.dirname(name), prefix=b".", suffix=b".part")
        try:
            with os.fdopen(handle, "wb") as file:
                file.write(self.to_bytes())
                file.flush()
                os.fchmod(file.fileno(), os.stat(name).st_mode & 0o7777 if os.path.exists(name) else 0o644)
                os.fsync(file.fileno())
            os.replace(temporary, name)
        except BaseException:
            os.unlink(temporary)
            raise


def load_archive(path: Path, classes: Optional[Mapping[str, Callable[[ArchiveReader], Any]]] = None) -> list[Any]:
    """Load all objects of an archive, each as its class's function returns it, or as a Record."""
    with open(path, "rb") as file:
        data = file.read()
    try:
        reader = ArchiveReader(data, classes)
        things = []
        while not reader.at_end:
            things.append(reader.read_object())
    except Error as error:
        raise Error(error.code, path=fsdecode(path)) from None
    return things
