"""Enumerations, exceptions and plain records of the package."""

from __future__ import annotations

from concurrent.futures import CancelledError
from dataclasses import dataclass
from enum import Enum, IntEnum
from typing import Optional, Union

__all__ = [
    "CancelledError",
    "Counters",
    "Durability",
    "Error",
    "ErrorCode",
    "ImageFormat",
    "SignalState",
    "Value",
    "ValueType",
]


class ErrorCode(IntEnum):
    """What can be wrong beside what the system refuses."""

    NOT_A_REGULAR_FILE = 1  #: a path leads to a FIFO, a device or a socket
    FILE_INCOMPLETE = 2  #: the file ends before everything was read
    FILE_DAMAGED = 3  #: the file holds something that its reader does not know
    FILE_HAS_MORE = 4  #: bytes follow that nobody read
    END_OF_FILE = 5  #: the file ends here, where it may
    OBJECT_REFUSED = 6  #: an object could not save or load itself
    NEEDS_A_GRAPH = 7  #: an object writes other objects
    NOT_SERIALISABLE = 8  #: an object cannot be saved
    CLASS_NOT_REGISTERED = 9  #: no class of that identifier is known
    WRONG_TYPE = 10  #: an object is there, but of another type than asked for
    NOT_LOADED_YET = 11  #: a reference to an object that is not loaded
    TOO_DEEP = 12  #: objects are nested deeper than 4,096
    TOO_MANY_OBJECTS = 13  #: more than 65,535 objects for one file
    NOT_A_PICTURE = 14  #: the file does not begin as its ending says
    PICTURE_INCOMPLETE = 15  #: the picture ends too early
    PICTURE_DAMAGED = 16  #: a picture that cannot be decoded
    PICTURE_TOO_LARGE = 17  #: more pixels than a surface or a file can have
    FORMAT_NOT_SUPPORTED = 18  #: a form of pixels or of files that the library does not read or write
    NO_SURFACE = 19  #: the surface pool has no surface of that kind


class Error(Exception):
    """What the library refuses; what the system refuses is an OSError.

    ``code`` says why, ``path`` is the file that it is about, or None.
    """

    code: ErrorCode
    path: Optional[str]

    def __init__(self, code: Union[ErrorCode, int], message: str = "", path: Optional[str] = None) -> None:
        self.code = ErrorCode(code)
        self.path = path
        self._message = message or self.code.name
        super().__init__(self._message if path is None else f"{self._message}: {path!r}")

    def __reduce__(self) -> tuple[type[Error], tuple[ErrorCode, str, Optional[str]]]:
        return type(self), (self.code, self._message, self.path)


class ValueType(IntEnum):
    """The type that a value is stored as; saved as its number."""

    NONE = 0  #: no value
    BOOL = 1  #: False or True
    SHORT = 2  #: signed, 2 bytes
    USHORT = 3  #: unsigned, 2 bytes
    INT = 4  #: signed, 4 bytes
    UINT = 5  #: unsigned, 4 bytes
    FLOAT = 6  #: IEEE 754, 4 bytes
    DOUBLE = 7  #: IEEE 754, 8 bytes
    LONGLONG = 8  #: signed, 8 bytes
    ULONGLONG = 9  #: unsigned, 8 bytes
    STRING = 10  #: a text
    BLOCK = 11  #: any bytes
    CHAR = 12  #: one character of one byte
    BYTE = 13  #: one unsigned byte


class ImageFormat(IntEnum):
    """How a surface's pixels lie."""

    RGB24 = 1  #: 3 bytes: R, G, B
    BGR24 = 2  #: 3 bytes: B, G, R; the format of every loaded picture
    BYTE_3 = 3  #: 1 byte, format 3
    BYTE_4 = 4  #: 1 byte, format 4
    BYTE_5 = 5  #: 1 byte, format 5
    BYTE_6 = 6  #: 1 byte, format 6
    GRAY8 = 7  #: 1 byte, grey
    YUV420 = 8  #: 4:2:0, 12 bits per pixel on average
    BGRX32 = 9  #: 4 bytes: B, G, R, unused


class Durability(Enum):
    """What a file that was saved has to survive."""

    FLUSHED = 0  #: the end of the program; costs no wait for the disk
    SYNCED = 1  #: a power cut


class SignalState(IntEnum):
    """What a Signal is."""

    SIGNALLED = 1
    CANCELLED = 2
    ARMED = 3


@dataclass(frozen=True)
class Value:
    """A value together with the type that it is stored as.

    A group takes one wherever it takes a value: ``group["n"] = Value(3, ValueType.UINT)``.
    """

    value: Union[bool, int, float, str, bytes, None]
    type: ValueType


@dataclass(frozen=True)
class Counters:
    """What a LimitedPool has counted, all at one moment."""

    live_blocks: int  #: blocks in use
    live_bytes: int  #: and their bytes, as they count for the limit
    high_water: int  #: the most bytes that were in use together
    requests: int  #: all requests
    refusals: int  #: those that got no block, for whatever reason
    waiting_now: int  #: requests that wait for room at this moment
    most_bytes: int  #: the limit
