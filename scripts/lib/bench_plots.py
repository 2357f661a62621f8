#!/usr/bin/env python3
"""Draws the scaling cases of benchmark results: bench_plots.py DIRECTORY RESULT.json...

Each case becomes DIRECTORY/<case>.svg: the time of one element over the size, one line for each
party. Drawing the same results again writes the same bytes.
"""

import pathlib
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402 (after the choice of what draws)

import bench_report  # noqa: E402 (beside this script)

# For pictures, a size is the length of a side.
SIZE_LABELS = {"ScalingArchive": "bytes", "ScalingLive": "objects alive", "ScalingGroup": "names",
               "ScalingThreads": "threads"}
ELEMENT_LABELS = {"ScalingArchive": "byte", "ScalingLive": "object", "ScalingGroup": "name",
                  "ScalingThreads": "operation of any thread"}


def label(labels, case, otherwise):
    return next((text for start, text in labels.items() if case.startswith(start)), otherwise)


def draw(program, case, sizes, path):
    figure, axes = plt.subplots(figsize=(7, 4))
    for party in program.parties(sizes[0]):
        known = [sized for sized in sizes if (sized, party) in program.times]
        axes.plot([int(sized.rpartition("/")[2]) for sized in known],
                  [program.per_element(sized, party) for sized in known],
                  marker="o", linewidth=2 if party == bench_report.OURS else 1,
                  linestyle="-" if party == bench_report.OURS else "--", label=party)
    axes.set_xscale("log")
    axes.set_yscale("log")
    axes.set_xlabel(label(SIZE_LABELS, case, "pixels of a side"))
    axes.set_ylabel(f"nanoseconds per {label(ELEMENT_LABELS, case, 'pixel')}")
    axes.set_title(case.removeprefix(bench_report.SCALING))
    axes.grid(True, which="major", alpha=0.3)
    axes.legend(fontsize="small")
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})
    plt.close(figure)


def main():
    if len(sys.argv) < 3:
        print(__doc__, file=sys.stderr)
        return 2
    matplotlib.rcParams["svg.hashsalt"] = "tnrobot"
    matplotlib.rcParams["svg.fonttype"] = "none"
    directory = pathlib.Path(sys.argv[1])
    directory.mkdir(parents=True, exist_ok=True)
    programs, _ = bench_report.load(sys.argv[2:])
    for program in programs.values():
        for case, sizes in program.scaling_cases().items():
            draw(program, case, sizes, directory / f"{case}.svg")
    return 0


if __name__ == "__main__":
    sys.exit(main())
