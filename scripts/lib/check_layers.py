#!/usr/bin/env python3
"""Shows that includes and calls of the library run one way: check_layers.py SRC OBJECTS | --self-test.

SRC is the library's source, OBJECTS the directory of its objects, compiled without link-time
optimisation (their symbols would not be there yet). Of every file the includes are read from SRC and
the names that it defines and needs from its object with nm; each name that another folder defines is
a dependency on that folder. What is not in the table below is printed, and ends with the result 1. --self-test shows on two small files that a wrong include and a
wrong call are noticed.
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

# A folder and those that it may use. No folder may be used by one that stands above it.
LAYERS = {
    "checked": [],
    "core": ["checked"],
    "memory": ["checked", "core"],
    "values": ["checked", "core", "memory"],
    "archive": ["checked", "core", "memory", "values"],
    "image": ["checked", "core", "memory", "values"],
    "concurrency": ["checked", "core"],
    "utils": ["checked", "core"],
    "library": ["checked", "core", "memory", "values", "archive", "image", "concurrency", "utils"],
}

# What owns a name, in nm's letters: code, data, read-only data and zeros. Weak ones (inline functions,
# templates) are compiled into every file that uses them.
DEFINES = "TDRB"


def symbols(path):
    """Yields nm's letter and name of each outer symbol of an object."""
    listing = subprocess.run(
        ["nm", "-C", "--extern-only", str(path)], check=True, capture_output=True, text=True
    ).stdout
    for line in listing.splitlines():
        letter, name = re.fullmatch(r"[0-9a-f ]*([A-Za-z]) (.*)", line).groups()
        yield letter, name


def check_includes(source, layers):
    """Returns what includes something that its folder may not use."""
    wrong = []
    for path in sorted(p for p in source.rglob("*") if p.suffix in (".h", ".cpp")):
        folder = path.relative_to(source).parts[0]
        for line in path.read_text().splitlines():
            found = re.match(r'#include "(\w+)/', line)
            used = found.group(1) if found else folder
            if used in layers and used != folder and used not in layers[folder]:
                wrong.append(f"{path}: {line}")
    return wrong


def check_calls(objects, layers):
    """Returns what calls or reads something that its folder may not use, and the number of objects."""
    owners, needs = {}, []
    paths = sorted(objects.rglob("*.o"))
    for path in paths:
        folder = path.relative_to(objects).parts[0]
        for letter, name in symbols(path):
            if letter in DEFINES:
                owners[name] = folder
            elif letter == "U":
                needs.append((path.relative_to(objects), folder, name))
    wrong = []
    for path, folder, name in needs:
        used = owners.get(name, folder)
        if used != folder and used not in layers[folder]:
            wrong.append(f"{path}: needs {name} of {used}")
    return wrong, len(paths) if owners else 0


SAMPLE = {
    "low/Low.cpp": '#include "high/High.h"\nint low() { return high(); }\n',
    "high/High.h": "int high();\nint low();\n",
    "high/High.cpp": '#include "high/High.h"\nint high() { return low(); }\n',
}


def self_test():
    """Compiles two files that use each other; one of the two ways is allowed at a time."""
    with tempfile.TemporaryDirectory() as directory:
        source, objects = pathlib.Path(directory, "source"), pathlib.Path(directory, "objects")
        for name, text in SAMPLE.items():
            for path in (source / name, objects / name):
                path.parent.mkdir(parents=True, exist_ok=True)
            (source / name).write_text(text)
        for name in filter(lambda each: each.endswith(".cpp"), SAMPLE):
            compiler = [os.environ.get("CXX", "c++"), f"-I{source}", "-c", str(source / name)]
            subprocess.run(compiler + ["-o", str(objects / name) + ".o"], check=True)
        upwards = {"low": [], "high": ["low"]}
        includes, (calls, _) = check_includes(source, upwards), check_calls(objects, upwards)
        allowed = {"low": ["high"], "high": ["low"]}
        good = not check_includes(source, allowed) and not check_calls(objects, allowed)[0]
    print("\n".join(includes + calls))
    if len(includes) != 1 or calls != ["low/Low.cpp.o: needs high() of high"] or not good:
        sys.exit("the self-test failed")


def main():
    if sys.argv[1:] == ["--self-test"]:
        self_test()
        return
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    source, objects = (pathlib.Path(argument) for argument in sys.argv[1:])
    folders = {path.name for path in source.iterdir() if path.is_dir()}
    if folders != set(LAYERS):
        sys.exit(f"folders without a place among the layers: {sorted(folders ^ set(LAYERS))}")
    wrong = check_includes(source, LAYERS)
    calls, count = check_calls(objects, LAYERS)
    if count == 0:
        sys.exit(f"{objects}: no objects with symbols")
    if wrong or calls:
        sys.exit("\n".join(["against the layers:"] + wrong + calls))
    print(f"includes and calls of {count} objects run one way")


if __name__ == "__main__":
    main()
