"""Pictures: surfaces, their pools, and the files that they come from."""

from __future__ import annotations

from os import PathLike
from typing import Any, Optional, Union

from . import _core
from ._core import Block, BlockPool, CircularPool, GeneralPool, Surface, SurfacePool, clip, decode_image, join
from ._core import LimitedPool as _LimitedPool
from ._core import load_image
from ._types import Counters, ImageFormat

__all__ = [
    "Block",
    "BlockPool",
    "CircularPool",
    "GeneralPool",
    "LimitedPool",
    "Surface",
    "SurfacePool",
    "clip",
    "decode_image",
    "encode_image",
    "join",
    "load_image",
    "save_image",
]

Path = Union[str, bytes, "PathLike[str]", "PathLike[bytes]"]


class LimitedPool(_LimitedPool):
    """A pool in front of another one that never has more bytes in use than it may.

    A request that finds no room waits for it, at most ``wait`` seconds (None: as long as it takes), and Ctrl-C ends
    the wait; then it is a MemoryError, or of a SurfacePool an Error with ErrorCode.NO_SURFACE. Blocks count as a
    whole number of ``unit`` bytes: 32768 in front of a GeneralPool makes the limit one of real memory.
    """

    @property
    def counters(self) -> Counters:
        """What was counted so far."""
        return Counters(*self._counters())


def _as_array(pixels: Any) -> Any:
    """Take whatever has an array: a buffer as it is, others through NumPy."""
    try:
        memoryview(pixels)
    except TypeError:
        pass
    except BufferError as error:
        raise ValueError(str(error)) from None
    else:
        return pixels
    import numpy

    for known in ("__array_interface__", "__array__"):
        if hasattr(pixels, known):
            return numpy.asarray(pixels)
    if hasattr(pixels, "__dlpack__"):
        return numpy.from_dlpack(pixels)
    raise TypeError(f"expected an array of pixels, not {type(pixels).__name__}")


def _from_array(
    array: Any,
    format: Optional[ImageFormat] = None,
    *,
    copy: Optional[bool] = False,
    pool: Optional[SurfacePool] = None,
) -> Surface:
    """Make a surface of an array of unsigned bytes: (rows, columns) or (rows, columns, channels).

    ``format`` is BGR24, BGRX32 or GRAY8 by the number of channels where it is not given.

    With ``copy=False`` the surface lies over the array's memory, keeps it, and writes to one are seen in the other;
    ValueError says why where that cannot be: an array that is read-only, whose rows are not plain bytes from the
    top row down, or that ends before its last row reaches the next one's place. ``copy=True`` copies into a surface
    of the pool, ``copy=None`` only where it has to be.
    """
    pixels = _as_array(array)
    if copy:
        return _core._copy_array(pixels, format, pool)
    try:
        if memoryview(pixels).readonly:
            raise ValueError("the array is read-only: pass copy=True")
        return _core._over_array(pixels, format)
    except ValueError:
        if copy is False:
            raise
    return _core._copy_array(pixels, format, pool)


def _copy(self: Surface, pool: Optional[SurfacePool] = None) -> Surface:
    """Copy the pixels, origin and time stamp into a surface of the pool."""
    made = _core._copy_array(self, self.format, pool)
    made.origin = self.origin
    made.time_stamp = self.time_stamp
    return made


setattr(Surface, "from_array", staticmethod(_from_array))
setattr(Surface, "copy", _copy)


def _surface(pixels: Any) -> Surface:
    return pixels if isinstance(pixels, Surface) else _from_array(pixels, copy=None)


def save_image(path: Path, pixels: Any) -> None:
    """Save a surface, or an array, as .jpg (quality 95) or .bmp, by the path's ending.

    The file is replaced as a whole or not at all. As .bmp go grey, BGR24 and BGRX32 with rows of a multiple of 4
    bytes; Error says what a file cannot carry.
    """
    _core._save_image(path, _surface(pixels))


def encode_image(pixels: Any) -> bytes:
    """Encode a surface, or an array, as the bytes of a JPEG of quality 95."""
    return _core._encode_image(_surface(pixels))
