#!/usr/bin/env python3
"""Turns benchmark results into the tables of docs/performance.md.

    bench_report.py --targets bench/targets.json [--output FILE] RESULT.json...

Each RESULT is what one program printed with --benchmark_format=json; several files of one program
are rounds of the same measurement. Names follow Case/party[/parameter...]: the party "ours" is
compared with every other party of the same case and parameters. A row's times are medians of all
repetitions of all rounds, its ratio is the median of the rounds' ratios, with their range beside it.

The output file is written as a whole; without one the report goes to standard output.
"""

import argparse
import datetime
import json
import os
import platform
import re
import statistics
import sys

OURS = "ours"
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
# Parts of a name that say how a case is run, not what it is.
RUN_SETTINGS = re.compile(r"^(real_time|process_time|manual_time|(repeats|iterations|min_time):.*)$")
# What the framework itself writes for each run; every other number is a counter.
FRAMEWORK_FIELDS = {
    "family_index", "per_family_instance_index", "repetitions", "repetition_index", "threads",
    "iterations", "real_time", "cpu_time", "bytes_per_second", "items_per_second",
}


class ReportError(Exception):
    """The results cannot be reported as they are."""


class Program:
    """All rounds of one benchmark program."""

    def __init__(self, title):
        self.title = title
        self.absent_peers = []
        self.order = []  # cases as they first appeared
        self.times = {}  # (case, party) -> {round: [nanoseconds]}
        self.counters = {}  # (case, party) -> {counter: [values]}

    def add_run(self, round_index, run):
        if run.get("error_occurred"):
            raise ReportError(f"{run['name']}: {run.get('error_message', 'failed')}")
        if run.get("run_type", "iteration") != "iteration":
            return  # the framework's own mean, median and deviation
        case, party = split_name(run.get("run_name", run["name"]))
        if case not in self.order:
            self.order.append(case)
        nanoseconds = run["real_time"] * NANOSECONDS[run.get("time_unit", "ns")]
        self.times.setdefault((case, party), {}).setdefault(round_index, []).append(nanoseconds)
        for field, value in run.items():
            if isinstance(value, (int, float)) and not isinstance(value, bool) and field not in FRAMEWORK_FIELDS:
                self.counters.setdefault((case, party), {}).setdefault(field, []).append(value)

    def peers(self, case):
        return [party for known, party in self.times if known == case and party != OURS]

    def median_time(self, case, party):
        return statistics.median(t for times in self.times[case, party].values() for t in times)

    def ratios(self, case, peer):
        ours, theirs = self.times[case, OURS], self.times[case, peer]
        common = sorted(set(ours) & set(theirs))
        return [statistics.median(ours[i]) / statistics.median(theirs[i]) for i in common]


def split_name(name):
    """Case/party/parameters -> (Case/parameters, party)."""
    parts = [part for part in name.split("/") if not RUN_SETTINGS.match(part)]
    if len(parts) < 2:
        raise ReportError(f"{name}: a name needs a case and a party")
    return "/".join([parts[0]] + parts[2:]), parts[1]


class Targets:
    """The table of what must be reached; remembers which of it was compared with a result."""

    def __init__(self, path):
        with open(path, encoding="utf-8") as file:
            table = json.load(file)
        self.limits = {("ratio", t["case"], t["peer"]): t["at_most"] for t in table["ratios"]}
        self.limits.update({("counter", t["case"], t["counter"]): t["at_most"] for t in table["counters"]})
        self.unused = set(self.limits)
        self.missed = []

    def cells(self, kind, case, name, value):
        """The two last cells of a row: the target, and whether it is met."""
        key = (kind, case, name)
        if key not in self.limits:
            return ["", ""]
        self.unused.discard(key)
        limit = self.limits[key]
        if value > limit:
            self.missed.append(f"{case} ({name}): {number(value)}, at most {number(limit)}")
        return [f"≤ {number(limit)}", "yes" if value <= limit else "**no**"]


def number(value):
    return f"{value:.3g}" if abs(value) < 1000 else f"{value:.0f}"


def duration(nanoseconds):
    for unit, factor in (("ns", 1), ("µs", 1e3), ("ms", 1e6)):
        if nanoseconds < 1000 * factor:
            return f"{number(nanoseconds / factor)} {unit}"
    return f"{number(nanoseconds / 1e9)} s"


def table(heads, rows):
    lines = ["| " + " | ".join(heads) + " |", "|" + " --- |" * len(heads)]
    return lines + ["| " + " | ".join(row) + " |" for row in rows] + [""]


def ratio_rows(program, targets):
    rows = []
    for case in program.order:
        for peer in program.peers(case) if (case, OURS) in program.times else []:
            ratios = program.ratios(case, peer)
            if not ratios:
                raise ReportError(f"{case}: no round has both {OURS} and {peer}")
            ratio = statistics.median(ratios)
            rows.append([case, duration(program.median_time(case, OURS)), peer,
                         duration(program.median_time(case, peer)), number(ratio),
                         f"{number(min(ratios))} to {number(max(ratios))}" if len(ratios) > 1 else ""]
                        + targets.cells("ratio", case, peer, ratio))
    return rows


def counter_rows(program, targets):
    rows = []
    for (case, party), counters in program.counters.items():
        for name, values in counters.items():
            # The worst of all runs: a counter has no noise to average away.
            worst = max(values)
            shown = case if party == OURS else f"{case} ({party})"
            cells = targets.cells("counter", case, name, worst) if party == OURS else ["", ""]
            rows.append([shown, name, number(worst)] + cells)
    return rows


def program_section(program, targets):
    lines = [f"## {program.title}", ""]
    rows = ratio_rows(program, targets)
    if rows:
        lines += table(["Case", "Ours", "Peer", "Peer's", "Ratio", "Rounds", "Target", "Met"], rows)
    rows = counter_rows(program, targets)
    if rows:
        lines += table(["Case", "Counter", "Value", "Target", "Met"], rows)
    for peer in program.absent_peers:
        lines += [f"Left out, because it is not installed: {peer}.", ""]
    return lines


def cpu_model():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        for line in file:
            if line.startswith("model name"):
                return line.split(":", 1)[1].strip()
    return platform.machine()


def machine_section(compilers):
    libc = " ".join(platform.libc_ver())
    return ["| | |", "| --- | --- |",
            f"| Date | {datetime.datetime.now(datetime.timezone.utc):%Y-%m-%d %H:%M} UTC |",
            f"| Processor | {cpu_model()}, {os.cpu_count()} cores |",
            f"| Kernel | {platform.system()} {platform.release()} |",
            f"| C library | {libc} |",
            f"| Compiler | {', '.join(sorted(compilers))} |", ""]


def load(paths):
    """-> ({title: Program} in the order of the files, names of compilers)."""
    programs, compilers, rounds = {}, set(), {}
    for path in paths:
        with open(path, encoding="utf-8") as file:
            result = json.load(file)
        context = result["context"]
        title = context["title"]
        program = programs.setdefault(title, Program(title))
        rounds[title] = rounds.get(title, 0) + 1
        compilers.add(context["compiler"])
        absent = context.get("peers_not_installed", "")
        program.absent_peers = [peer.strip() for peer in absent.split(",") if peer.strip()]
        if not result["benchmarks"]:
            raise ReportError(f"{path}: no results")
        for run in result["benchmarks"]:
            program.add_run(rounds[title], run)
    return programs, compilers


def report(paths, targets):
    programs, compilers = load(paths)
    lines = ["# Performance", "",
             "Written by `scripts/bench.sh`; do not edit. Times are medians of one operation; with two",
             "threads, the wall time divided by the operations of both. A ratio is our time divided by the",
             "peer's, so smaller is better; it is the median of several rounds, each in a fresh process with",
             "both parties side by side, and \"Rounds\" is the range it had in them. Counters are the worst of",
             "all rounds. Targets stand in `bench/targets.json`.", ""]
    lines += machine_section(compilers)
    for program in programs.values():
        lines += program_section(program, targets)
    if targets.unused:
        unused = ", ".join(sorted("/".join(key) for key in targets.unused))
        raise ReportError(f"targets without a result: {unused}")
    lines += ["## Targets", ""]
    lines += [f"- missed: {text}" for text in targets.missed] or ["All targets are met."]
    return "\n".join(lines) + "\n"


def main():
    parser = argparse.ArgumentParser(description="Writes a report of benchmark results.")
    parser.add_argument("--targets", required=True, help="JSON table of ratios and counters to reach")
    parser.add_argument("--output", help="file to write; standard output without it")
    parser.add_argument("results", nargs="+", help="JSON results of the benchmark programs")
    arguments = parser.parse_args()
    try:
        text = report(arguments.results, Targets(arguments.targets))
    except (ReportError, KeyError, json.JSONDecodeError) as error:
        print(f"bench_report: {error!r}" if isinstance(error, KeyError) else f"bench_report: {error}",
              file=sys.stderr)
        return 1
    if arguments.output:
        with open(arguments.output, "w", encoding="utf-8") as file:
            file.write(text)
    else:
        sys.stdout.write(text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
