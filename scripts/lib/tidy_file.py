#!/usr/bin/env python3
"""Runs clang-tidy over a source unless it found nothing there the last time: tidy_file.py BUILD SOURCE.

What clang-tidy finds follows from the source with all that it includes, the settings and its version. A sum of these
is kept in the user's cache for each source without a finding; the cache can be removed at any time.
"""

import hashlib
import json
import os
import pathlib
import shlex
import subprocess
import sys

CLEAN = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache") / "tnrobotkernel" / "tidy"


def output(command, directory=None):
    return subprocess.run(command, cwd=directory, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True).stdout


def preprocessed(build, source):
    """Returns the source as clang reads it, with comments, which can switch a check off, and macros, which are checked."""
    path = str(pathlib.Path(source).resolve())
    for entry in json.loads(pathlib.Path(build, "compile_commands.json").read_text(encoding="utf-8")):
        if entry["file"] == path:
            words = shlex.split(entry["command"])
            words = words[words[0].endswith("ccache") : words.index("-o")]
            return output([*words, "-E", "-C", "-dD", "-P", path], entry["directory"])
    raise LookupError(source)


def known_as_clean(build, source):
    """Returns the file that says so, or nothing where the source cannot be read as the build does."""
    try:
        text = preprocessed(build, source)
    except (LookupError, OSError, ValueError, subprocess.CalledProcessError):
        return None
    settings = output(["clang-tidy", "-p", build, "--dump-config", source])
    version = output(["clang-tidy", "--version"])
    return CLEAN / hashlib.sha256(b"\0".join([version, settings, source.encode(), text])).hexdigest()


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    build, source = sys.argv[1:]
    clean = known_as_clean(build, source)
    if clean and clean.exists():
        return 0
    result = subprocess.run(["clang-tidy", "--quiet", "--warnings-as-errors=*", "-p", build, source], check=False)
    if clean and result.returncode == 0:
        clean.parent.mkdir(parents=True, exist_ok=True)
        clean.touch()
    return result.returncode


if __name__ == "__main__":
    sys.exit(main())
