"""What the package says of itself."""

from __future__ import annotations

import inspect
import os
import pathlib
import subprocess
import sys

import pytest

import tnrobotkernel as tn


def test_everything_public_has_a_docstring() -> None:
    missing = []
    for name in tn.__all__:
        thing = getattr(tn, name)
        if thing is tn.CancelledError:
            continue
        if not inspect.getdoc(thing):
            missing.append(name)
        if inspect.isclass(thing):
            for part, member in vars(thing).items():
                if not part.startswith("_") and (callable(member) or isinstance(member, property)):
                    if not inspect.getdoc(member):
                        missing.append(f"{name}.{part}")
    assert missing == []
    assert tn.__doc__


def test_names_are_where_users_find_them() -> None:
    for name in tn.__all__:
        thing = getattr(tn, name)
        if thing is not tn.CancelledError:
            assert thing.__module__ == "tnrobotkernel", name
    assert repr(tn.Group()) == "Group({})" and str(tn.Surface) == "<class 'tnrobotkernel.Surface'>"


def test_types_are_checked_strictly() -> None:
    pytest.importorskip("mypy")
    here = pathlib.Path(__file__).resolve().parent
    program = [sys.executable, "-m", "mypy", "--strict", "--cache-dir", "/dev/null", "tests", "tnrobotkernel"]
    environment = {name: value for name, value in os.environ.items() if name != "LD_PRELOAD"}
    checked = subprocess.run(program, capture_output=True, text=True, cwd=here.parent, env=environment)
    assert checked.returncode == 0, checked.stdout + checked.stderr
