"""Files of C++ that Python reads, and files of Python that C++ reads."""

from __future__ import annotations

import os
import pathlib
import subprocess
from typing import Any

import pytest

import tnrobotkernel as tn
from tnrobotkernel import ArchiveReader, ArchiveWriter, ErrorCode, Group, Record, ValueType

GOLDEN = pathlib.Path(__file__).resolve().parent / "golden"
PART = "5a1f6c7e-0c58-4f0e-9a35-2f6d11c0a901"


def values() -> Group:
    group = Group(bool=True, int=-(2**31), double=0.1, longlong=-(2**63), ulonglong=2**64 - 1)
    group.update({"string": "Prüfung ☃", "block": bytes([0, 1, 2, 254, 255])})
    for name, value in (("short", -32768), ("ushort", 65535), ("uint", 2**32 - 1), ("byte", 255), ("float", 0.1)):
        group.set(name, value, type=ValueType[name.upper()])
    group.set("char", "x", type=ValueType.CHAR)
    return group


def read_part(archive: ArchiveReader) -> dict[str, Any]:
    part: dict[str, Any] = {"name": archive.read_string(), "weight": archive.read_double()}
    part["settings"] = archive.read_group()
    part["below"] = archive.read_object()
    return part


def write_part(archive: ArchiveWriter, part: dict[str, Any]) -> None:
    archive.write_string(part["name"])
    archive.write_double(part["weight"])
    archive.write_group(part["settings"])
    archive.write_object(PART, part["below"], write_part)


def test_groups_of_cpp_are_read() -> None:
    group = tn.load(GOLDEN / "values.tnr")
    assert group.typed_items() == values().typed_items()
    assert all(group.type(name).name.lower() == name for name in group)
    assert tn.load_all(GOLDEN / "several.tnr") == [Group(number=n) for n in range(3)]
    assert tn.dumps(Group(number=0)) == (GOLDEN / "several.tnr").read_bytes()[: len(tn.dumps(Group(number=0)))]


def test_graphs_of_cpp_are_read() -> None:
    part, base = tn.load_archive(GOLDEN / "graph.tnr", {PART: read_part})
    assert base == {"name": "base", "weight": 2.5, "settings": {}, "below": None}
    assert part["below"] is base and part["name"] == "arm" and part["settings"] == {"speed": 7}


def test_an_unknown_class_is_a_record() -> None:
    data = (GOLDEN / "graph.tnr").read_bytes()
    archive = ArchiveReader(data)
    assert archive.identifiers == (PART,) and archive.objects == (PART, PART) and not archive.at_end
    begin = archive.position + 4
    record = archive.read_object()
    assert record == Record(PART, 0, data[begin:]) and archive.at_end
    (again,) = tn.load_archive(GOLDEN / "graph.tnr")
    assert again == record
    writer = ArchiveWriter()
    writer.write_object("other", record)
    other = ArchiveReader(writer.to_bytes()).read_object()
    assert (other.identifier, other.data) == ("other", record.data)


def test_cpp_reads_what_python_writes(tmp_path: pathlib.Path) -> None:
    base = {"name": "base", "weight": 2.5, "settings": Group(), "below": None}
    part = {"name": "arm", "weight": 0.5, "settings": Group(speed=7), "below": base}
    writer = ArchiveWriter()
    for each in (part, base):
        writer.write_object(PART, each, write_part)
    tn.save(tmp_path / "values.tnr", values())
    tn.save_all(tmp_path / "several.tnr", (Group(number=n) for n in range(3)))
    writer.save(tmp_path / "graph.tnr")
    assert tn.load_archive(tmp_path / "graph.tnr", {PART: read_part}) == [part, base]
    program = os.environ.get("TNROBOT_GOLDEN_PROGRAM")
    if program is None:
        pytest.skip("TNROBOT_GOLDEN_PROGRAM is not set: no C++ program reads the files")
    # The program brings its own sanitizer, where the interpreter was given one.
    plain = {name: value for name, value in os.environ.items() if name != "LD_PRELOAD"}
    for directory in (tmp_path, GOLDEN):
        subprocess.run([program, "check", directory], check=True, env=plain)


def test_damaged_archives_are_errors() -> None:
    data = (GOLDEN / "graph.tnr").read_bytes()

    def load(data: bytes) -> None:
        archive = ArchiveReader(data, {PART: read_part})
        while not archive.at_end:
            archive.read_object()

    load(data)
    for length in range(len(data)):
        try:
            load(data[:length])
        except tn.Error:
            continue
        assert length in (ArchiveReader(data).position, len(data) - 4)  # exactly before an object
    for position in range(len(data)):
        for change in (0, 1, 255):
            bad = bytearray(data)
            bad[position] = change
            try:
                load(bytes(bad))
            except (tn.Error, UnicodeDecodeError):
                pass


def test_rings_nesting_and_misuse_are_errors() -> None:
    writer = ArchiveWriter()

    def ring(archive: ArchiveWriter, thing: Any) -> None:
        archive.write_object("ring", thing, ring)

    writer.write_object("ring", [], ring)
    with pytest.raises(tn.Error) as caught:
        ArchiveReader(writer.to_bytes(), {"ring": lambda archive: archive.read_object()}).read_object()
    assert caught.value.code is ErrorCode.NOT_LOADED_YET

    def deep(archive: ArchiveWriter, thing: Any) -> None:
        archive.write_object("deep", [], deep)

    with pytest.raises(tn.Error) as caught:
        ArchiveWriter().write_object("deep", [], deep)
    assert caught.value.code is ErrorCode.TOO_DEEP
    with pytest.raises(OverflowError):
        writer.write_int(2**31)
    with pytest.raises(ValueError):
        writer.write_string("a\0b")
    with pytest.raises(ValueError):
        ArchiveReader(b"\0\0\0\0").read(-1)
    with pytest.raises(TypeError):
        ArchiveReader(None)
    with pytest.raises(FileNotFoundError):
        tn.load_archive("/nowhere/a.tnr")
    with pytest.raises(FileNotFoundError):
        writer.save("/nowhere/a.tnr")
