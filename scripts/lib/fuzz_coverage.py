#!/usr/bin/env python3
"""Says what the fuzz targets reach: fuzz_coverage.py DIRECTORY ROOT.

DIRECTORY has a TARGET.lcov for each, with the lines of src that its inputs reach, and a TARGET.inputs, with how
many inputs those are. Prints a table of the targets, and one of the files with the lines that none of them reaches.
"""

import collections
import pathlib
import sys


def read_lines(path, root):
    """Returns {file: {line: whether it was reached}} of what is in src."""
    files = collections.defaultdict(dict)
    name = ""
    for record in path.read_text(encoding="utf-8").splitlines():
        kind, _, rest = record.partition(":")
        if kind == "SF":
            name = str(pathlib.Path(rest).resolve().relative_to(root))
        elif kind == "DA":
            line, count = rest.split(",")[:2]
            files[name][int(line)] = int(count) > 0
    return {name: lines for name, lines in files.items() if name.startswith("src/")}


def share(lines):
    """Returns the columns that say how many of the lines are reached."""
    reached = sum(lines)
    return f"{reached:6d} {len(lines):6d} {100 * reached / max(len(lines), 1):6.1f}"


def ranges(numbers):
    """Writes 3, 4, 5 and 9 as "3-5 9"."""
    spans = []
    for number in sorted(numbers):
        if spans and number == spans[-1][1] + 1:
            spans[-1][1] = number
        else:
            spans.append([number, number])
    return " ".join(f"{first}" if first == last else f"{first}-{last}" for first, last in spans)


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    directory, root = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
    total = collections.defaultdict(dict)
    print(f"\n{'target':20} {'inputs':>6} {'lines':>6} {'of':>6} {'%':>6}")
    for path in sorted(directory.glob("*.lcov")):
        files = read_lines(path, root)
        inputs = int(path.with_suffix(".inputs").read_text(encoding="utf-8"))
        print(f"{path.stem:20} {inputs:6d} {share([hit for lines in files.values() for hit in lines.values()])}")
        for name, lines in files.items():
            for line, hit in lines.items():
                total[name][line] = total[name].get(line, False) or hit
    print(f"{'all':20} {'':6} {share([hit for lines in total.values() for hit in lines.values()])}")
    print(f"\n{'file':46} {'lines':>6} {'of':>6} {'%':>6}  not reached by any")
    for name, lines in sorted(total.items()):
        print(f"{name:46} {share(list(lines.values()))}  {ranges(line for line, hit in lines.items() if not hit)}")


if __name__ == "__main__":
    main()
