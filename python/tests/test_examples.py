"""The guide's examples print what the guide says, and the inspection finds the broken part."""

from __future__ import annotations

import pathlib
import re
import subprocess
import sys

import pytest

import tnrobotkernel as tn

EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "examples" / "python"
pytestmark = pytest.mark.skipif(not EXAMPLES.is_dir(), reason="the examples are not beside the tests")


def run(name: str, directory: pathlib.Path, *arguments: str) -> str:
    program = [sys.executable, str(EXAMPLES / name), *arguments]
    return subprocess.run(program, cwd=directory, check=True, stdout=subprocess.PIPE, text=True).stdout


def test_the_guide(tmp_path: pathlib.Path) -> None:
    expected = (EXAMPLES / "expected" / "guide.txt").read_text("utf-8")
    assert run("guide.py", tmp_path) == re.sub(r"(?m)^# \[/?[\w-]+\]\n", "", expected)


def test_the_inspection(tmp_path: pathlib.Path) -> None:
    pytest.importorskip("matplotlib")
    output = run("inspect_scene.py", tmp_path, "--output", "found")
    assert "the broken part is in row2_column3" in output
    found = tn.load(tmp_path / "found" / "scene.tnr")
    assert found["broken"] is True and found["row2_column3"] < 0.9 * found["row1_column1"]
    assert (tmp_path / "found" / "scene_result.png").stat().st_size > 1000
    missing = subprocess.run([sys.executable, EXAMPLES / "inspect_scene.py", "no.jpg"], cwd=tmp_path, stderr=subprocess.PIPE)
    assert missing.returncode == 1 and b"no.jpg" in missing.stderr
