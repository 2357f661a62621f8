"""The foundation library for robot and machine-vision applications, as Python takes it.

- Group, save and load: named values in files that C++ programs of the library share;
- load_archive, ArchiveReader and ArchiveWriter: graphs of objects, whose classes C++ programs have;
- load_image, Surface and SurfacePool: pictures that NumPy sees without a copy;
- GeneralPool, LimitedPool and Block: recycled memory as buffers;
- TaskPool, Event, Signal and AlarmClock: working and waiting;
- Error: why something was refused, beside the OSError of what the system refuses.

docs/guide-python.md shows how they are used.
"""

import atexit as _atexit
import os as _os

from . import _core

_core._check_interpreter()

from ._archives import *
from ._archives import __all__ as _archives_all
from ._groups import *
from ._groups import __all__ as _groups_all
from ._images import *
from ._images import __all__ as _images_all
from ._tasks import *
from ._tasks import __all__ as _tasks_all
from ._types import *
from ._types import __all__ as _types_all

__all__ = [*_types_all, *_groups_all, *_images_all, *_tasks_all, *_archives_all]

_os.register_at_fork(after_in_child=_core._note_fork)
_atexit.register(_core._drop_default_pool)

for _name in __all__:
    _object = globals()[_name]
    if _name != "CancelledError" and getattr(_object, "__module__", "").startswith("tnrobotkernel."):
        _object.__module__ = __name__  # where users find it
