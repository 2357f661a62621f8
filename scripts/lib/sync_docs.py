#!/usr/bin/env python3
"""Fills the documents' code blocks from the files that they show, so that nothing is typed twice.

    scripts/docs.sh --sync            rewrites README.md and docs/*.md
    scripts/docs.sh --sync --check    changes nothing, fails when a document is stale

A marker stands alone on a line, and the fenced block right after it is filled (or made):

    <!-- include examples/guide/first_program.cpp main -->
    ```cpp
    ```

The last word names a region of the file, from a line "// [main]" (or "# [main]") to "// [/main]";
without it the whole file is shown. Lines that mark regions are left out, and the region's indentation is taken off.
"""

import pathlib
import re
import sys
import textwrap

ROOT = pathlib.Path(__file__).resolve().parents[2]
LANGUAGES = {".cpp": "cpp", ".py": "python", ".h": "cpp", "CMakeLists.txt": "cmake", ".sh": "sh"}
INCLUDE = re.compile(r"<!-- include (\S+)(?: (\S+))? -->")
REGION = re.compile(r"\s*(?://|#) \[(/?)([\w-]+)\]\s*$")


class StaleError(Exception):
    """A marker asks for something that is not there."""


def shown_lines(path, region):
    """The lines of a file, or of one of its regions, without the lines that mark regions."""
    if not (ROOT / path).is_file():
        raise StaleError(f"there is no file {path}")
    lines, inside, found = [], region is None, region is None
    for line in (ROOT / path).read_text(encoding="utf-8").splitlines():
        mark = REGION.match(line)
        if mark is None:
            lines += [line] if inside else []
        elif mark.group(2) == region:
            inside = not mark.group(1)
            found = True
    if not found or (region is not None and inside):
        raise StaleError(f"{path} has no complete region [{region}]")
    return textwrap.dedent("\n".join(lines)).strip("\n").splitlines()


def language_of(path):
    """What a fenced block calls the language of a file; nothing for output."""
    return LANGUAGES.get(path.name, LANGUAGES.get(path.suffix, ""))


def end_of_block(lines, start):
    """The index behind the fenced block that begins at an index; that index when none does."""
    if start >= len(lines) or not lines[start].startswith("```"):
        return start
    for i in range(start + 1, len(lines)):
        if lines[i].startswith("```"):
            return i + 1
    raise StaleError(f"the block in line {start + 1} has no end")


def filled(document):
    """The document with its blocks filled."""
    lines, result, i = document.splitlines(), [], 0
    while i < len(lines):
        result.append(lines[i])
        i += 1
        marker = INCLUDE.fullmatch(result[-1].strip())
        if marker is not None:
            path, region = marker.groups()
            result += ["```" + language_of(pathlib.Path(path)), *shown_lines(path, region), "```"]
            i = end_of_block(lines, i)
    return "\n".join(result) + "\n"


def main():
    check = sys.argv[1:] == ["--check"]
    if sys.argv[1:] and not check:
        print(__doc__, file=sys.stderr)
        return 2
    failed = False
    for path in [ROOT / "README.md", *sorted((ROOT / "docs").glob("**/*.md"))]:
        name, old = path.relative_to(ROOT), path.read_text(encoding="utf-8")
        try:
            new = filled(old)
        except StaleError as error:
            print(f"{name}: {error}", file=sys.stderr)
            failed = True
            continue
        if new != old and check:
            print(f"{name} is stale: run scripts/docs.sh --sync", file=sys.stderr)
            failed = True
        elif new != old:
            path.write_text(new, encoding="utf-8")
            print(f"{name}: filled")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
