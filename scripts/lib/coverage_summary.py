#!/usr/bin/env python3
"""Says how much of the code a coverage report in gcovr's JSON reaches: coverage_summary.py REPORT LINES BRANCHES.

Fails below LINES per cent of lines or BRANCHES per cent of branches. A branch that only an exception
takes does not count. gcovr can leave those out itself, but asks each object for its own, and in one that has
never called an inline function gcov does not say which they are: headers would lose by it. In the joined report
one object that knows suffices.
"""

import json
import sys


def count(report):
    """Returns the lines reached and all of them, and the same of the branches."""
    lines = [line for file in report["files"] for line in file["lines"] if not line.get("gcovr/noncode")]
    branches = [branch for line in lines for branch in line["branches"] if not branch["throw"]]
    return [
        (sum(each["count"] > 0 for each in everything), len(everything)) for everything in (lines, branches)
    ]


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    with open(sys.argv[1], encoding="utf-8") as file:
        counts = count(json.load(file))
    good = True
    for name, (reached, everything), least in zip(("lines", "branches"), counts, map(float, sys.argv[2:])):
        share = 100 * reached / everything
        print(f"{name}: {share:.1f} % ({reached} of {everything}), at least {least:g} %")
        good = good and share >= least
    sys.exit(0 if good else 1)


if __name__ == "__main__":
    main()
