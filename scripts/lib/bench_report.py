#!/usr/bin/env python3
"""Turns benchmark results into a report of everything, and into the page docs/performance.md.

    bench_report.py --targets bench/targets.json [--partial] [--output FILE] [--page FILE] RESULT.json...
    bench_report.py --targets bench/targets.json --near RESULT.json...

Each RESULT is what one program printed with --benchmark_format=json; several files with one title
are parts of one section. Names follow Case/party[/parameter...]: the party "ours" is compared with
every other party of the same case and parameters. Times are medians of all repetitions, and a ratio
is that of two medians. Cases whose names begin with "Scaling" end in a size; they are told by the
time of one element.

A case that was measured again, in a later file, is told by its new repetitions. With --near the cases
to measure again are printed: those whose ratio is near its limit or above it, as a filter for the programs.

The report goes to the output file, or to standard output without one. The page holds what a person
wants to read of it: the cases with a target, what was missed and why, and a few plots. A target whose case
does not appear is an error, unless the results are said to be partial or its peer is missing.
"""

import argparse
import json
import os
import platform
import re
import statistics
import sys

OURS = "ours"
SCALING = "Scaling"
# From this part of its limit on, a ratio is near it: a busy machine may well move it to the other side.
NEAR = 0.85
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
# Parts of a name that say how a case is run, not what it is.
RUN_SETTINGS = re.compile(r"^(real_time|process_time|manual_time|(repeats|iterations|min_time):.*)$")
# What the framework itself writes for each run; every other number is a counter.
FRAMEWORK_FIELDS = {
    "family_index", "per_family_instance_index", "repetitions", "repetition_index", "threads",
    "iterations", "real_time", "cpu_time", "bytes_per_second", "items_per_second",
}
# The plots that the page shows; bench_plots.py draws all of them beside the report.
PAGE_PLOTS = {
    "ScalingLiveBlocks": "Memory blocks: the more are alive, the more one costs to take and return.",
    "ScalingGroupGet": "Groups: looking a name up among more and more of them.",
    "ScalingArchiveLoad": "Archive: loading longer and longer values.",
}
# Scaling cases whose sizes are numbers of threads: the page shows what the threads do together.
THREADS = SCALING + "Threads"
THREADS_TEXT = """Threads that have nothing in common, all at work at once: how much they do together in a second. `OwnPools`
takes a block and gives it back, each thread in a pool of its own. `OwnGroups` sets and reads a number in a group of its
own, without locks. `OwnValues` makes and destroys values, and there the threads do meet: all values of a process come
from one pool with one lock, because callers rely on its order of reuse and its counts, so more threads do
not make more values. Whoever needs many at once makes them once and keeps them, as a group does."""
# Counters of scaling cases, which have columns of their own.
SCALING_FIELDS = {"elements", "peak_MiB"}
# Cases that the page shows as tables of their own, a row for each party, and what it says about them.
PAGE_TABLES = {
    "RegionsOfFrames": """300 frames of 1280 x 960, one after the other: a JPEG is decoded, twelve regions are cut out, mean,
minimum and maximum of each are found on 4 workers, the named results are appended to a file, and the darkest
and brightest region of every tenth frame are joined and encoded. `ours` shares the regions out by `tn::ForEach`,
`ours_queue` by a `tn::WorkQueue`, `ours_alone` does them itself. `opencv` is obvious code (`clone`, `parallel_for_`),
`opencv_kept` keeps all matrices. `floor` is by hand: TurboJPEG, threads with a queue, `memcpy`, `fwrite`, everything
kept. CPU, allocations and page faults are of one frame. "Differs by" is the largest difference of a mean from the
first party's: 0 where all of them find the same.""",
    "WholeFrames": """The same frames side by side: 4 workers of a `tn::WorkQueue`, each a whole frame, beside one worker;
the floor's threads share nothing. Latencies are those of a frame on its worker.""",
    "Startup": """A program loads a module with the library behind it (`dlopen`), makes a value and decodes a picture of
64 x 64. Resident memory is what the process grows by, relocations and libraries are all that came with it.
`limit_libjpeg` calls libjpeg directly, `limit_nothing` needs no library.""",
}
# The columns of these tables: the counters that their parties have.
PAGE_COLUMNS = {
    "frames_per_second": "Frames/s", "p50_ms": "p50 ms", "p99_ms": "p99 ms", "cpu_ms": "CPU ms",
    "heap_calls": "Allocations", "page_faults": "Page faults", "peak_MiB": "Peak MiB", "differs_by": "Differs by",
    "value_us": "First value µs", "picture_us": "First picture µs", "file_KiB": "Files KiB",
    "resident_KiB": "Resident KiB", "above_libjpeg_KiB": "Above libjpeg's", "relocations": "Relocations",
    "libraries": "Libraries",
}


class ReportError(Exception):
    """The results cannot be reported as they are."""


class Program:
    """What one section of the report tells."""

    def __init__(self, title, area):
        self.title = title
        self.area = area
        self.date = ""
        self.cores = os.cpu_count()
        self.peers_present = ""
        self.absent_peers = []
        self.order = {}  # (case, party) -> position in the program, which may have run them in any order
        self.times = {}  # (case, party) -> {repetition: nanoseconds}
        self.cpu_times = {}  # the same, for those that the clock on the wall measured in one thread
        self.counters = {}  # (case, party) -> {counter: [values]}
        self.names = {}  # (case, party) -> what the program calls it

    def add_context(self, context):
        self.date = max(self.date, context["date"])
        self.cores = int(context.get("cores", self.cores))
        self.peers_present = context.get("peers", "")
        self.absent_peers = [peer.strip() for peer in context.get("absent_peers", "").split(";") if peer.strip()]

    def add_run(self, run):
        if run.get("error_occurred"):
            raise ReportError(f"{run['name']}: {run.get('error_message', 'failed')}")
        if run.get("run_type", "iteration") != "iteration":
            return  # the framework's own mean, median and deviation
        case, party = split_name(run.get("run_name", run["name"]))
        self.order.setdefault((case, party), run.get("family_index", 0))
        self.names[case, party] = run.get("run_name", run["name"])
        nanoseconds = run["real_time"] * NANOSECONDS[run.get("time_unit", "ns")]
        repetition = run.get("repetition_index", 0)
        self.times.setdefault((case, party), {})[repetition] = nanoseconds
        if run.get("threads", 1) == 1 and "manual_time" not in run["name"]:
            cpu = run["cpu_time"] * NANOSECONDS[run.get("time_unit", "ns")]
            self.cpu_times.setdefault((case, party), {})[repetition] = cpu
        for field, value in run.items():
            if isinstance(value, (int, float)) and not isinstance(value, bool) and field not in FRAMEWORK_FIELDS:
                self.counters.setdefault((case, party), {}).setdefault(field, []).append(value)

    def peers(self, case):
        return [party for party in self.parties(case) if party != OURS]

    def parties(self, case):
        return sorted((party for known, party in self.order if known == case),
                      key=lambda party: self.order[case, party])

    def cases(self):
        first = {}
        for (case, _), index in self.order.items():
            first[case] = min(index, first.get(case, index))
        return sorted(first, key=first.get)

    def median_time(self, case, party):
        return statistics.median(self.times[case, party].values())

    def ratio(self, case, peer):
        return self.median_time(case, OURS) / self.median_time(case, peer)

    def cpu_ratio(self, case, peer):
        """-> None where the threads' own times say nothing."""
        times = [self.cpu_times.get((case, party)) for party in (OURS, peer)]
        if None in times:
            return None
        ours, theirs = (statistics.median(each.values()) for each in times)
        return ours / theirs if theirs > 0 else None

    def ratios(self, case, peer):
        """Of each repetition's turn."""
        ours, theirs = self.times[case, OURS], self.times[case, peer]
        return [ours[i] / theirs[i] for i in sorted(set(ours) & set(theirs))]

    def counter(self, case, party, name):
        return statistics.median(self.counters[case, party][name])

    def page_tables(self):
        return [case for case in self.cases() if case in PAGE_TABLES]

    def table_cases(self):
        return [case for case in self.cases() if not case.startswith(SCALING)]

    def scaling_cases(self):
        """-> {case without its size: [cases in the order of their sizes]}"""
        cases = {}
        for case in self.cases():
            if case.startswith(SCALING):
                cases.setdefault(case.rpartition("/")[0], []).append(case)
        for sizes in cases.values():
            sizes.sort(key=lambda case: int(case.rpartition("/")[2]))
        return cases

    def per_element(self, case, party):
        return self.median_time(case, party) / self.counters[case, party]["elements"][0]

    def is_absent(self, peer):
        """Whether a party may be missing because the machine does not have it."""
        return bool(self.absent_peers) and not any(party == peer for _, party in self.times)


def split_name(name):
    """Case/party/parameters -> (Case/parameters, party)."""
    parts = [part for part in name.split("/") if not RUN_SETTINGS.match(part)]
    if len(parts) < 2:
        raise ReportError(f"{name}: a name needs a case and a party")
    return "/".join([parts[0]] + parts[2:]), parts[1]


def limit_for(cores, at_most):
    """A limit, or one for each number of cores: that of the next smaller number holds. -> None without one."""
    if not isinstance(at_most, dict):
        return at_most
    known = [int(number) for number in at_most if int(number) <= cores]
    return at_most[str(max(known))] if known else None


def beside(counter, peer):
    """How the ratio of a counter to a peer's is called."""
    return f"{counter} beside {peer}"


class Targets:
    """The table of what must be reached; remembers which of it was compared with a result.

    A limit may be a table of its own, from the number of cores to the limit."""

    def __init__(self, path, cores):
        with open(path, encoding="utf-8") as file:
            areas = json.load(file)
        self.limits = {}
        self.reasons = {}
        self.areas = {}
        for area, tables in areas.items():
            for kind, field in (("ratios", "peer"), ("counters", "counter"), ("scaling", "peer"),
                                ("counter_ratios", "counter")):
                for target in tables.get(kind, []):
                    name = target[field] if kind != "counter_ratios" else beside(target["counter"], target["peer"])
                    key = (kind, target["case"], name)
                    limit = limit_for(cores, target["at_most"])
                    if limit is None:
                        continue
                    self.limits[key] = limit
                    self.reasons[key] = target.get("floor", "")
                    self.areas[key] = area
        self.unused = set(self.limits)
        self.missed = []

    def cells(self, kind, case, name, value, cpu=None):
        """The two last cells of a row: the target, and whether it is met."""
        key = (kind, case, name)
        if key not in self.limits:
            return ["", ""]
        self.unused.discard(key)
        limit = self.limits[key]
        if value > limit:
            reason = self.reasons[key]
            if not reason and cpu is not None and cpu <= limit:
                reason = f"In the processor's own time it is {number(cpu)}."
            reason = reason or "Not explained yet."
            self.missed.append(f"{case} ({name}): {number(value)}, at most {number(limit)}. {reason}")
        return [f"≤ {number(limit)}", "yes" if value <= limit else "**no**"]

    def without_result(self, programs):
        """-> targets that nothing was compared with, though nothing excuses it."""
        absent = {(kind, case, name) for kind, case, name in self.unused if kind != "counters"
                  for program in programs
                  if program.area == self.areas[kind, case, name] and program.is_absent(name.split(" beside ")[-1])}
        return sorted("/".join(key) for key in self.unused - absent)


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
    for case in program.table_cases():
        for peer in program.peers(case) if (case, OURS) in program.times else []:
            ratio, ratios = program.ratio(case, peer), program.ratios(case, peer)
            cpu = program.cpu_ratio(case, peer)
            rows.append([case, duration(program.median_time(case, OURS)), peer,
                         duration(program.median_time(case, peer)), number(ratio),
                         f"{number(min(ratios))} to {number(max(ratios))}" if len(ratios) > 1 else "",
                         number(cpu) if cpu is not None else ""]
                        + targets.cells("ratios", case, peer, ratio, cpu))
    return rows


def counter_rows(program, targets):
    rows = []
    for (case, party), counters in sorted(program.counters.items(), key=lambda item: program.order[item[0]]):
        for name, values in counters.items():
            if case.startswith(SCALING) and name in SCALING_FIELDS:
                continue
            value = statistics.median(values)
            shown = case if party == OURS else f"{case} ({party})"
            cells = targets.cells("counters", case, name, value) if party == OURS else ["", ""]
            rows.append([shown, name, number(value)] + cells)
    return rows


def counter_ratio_rows(program, targets):
    rows = []
    for kind, case, name in list(targets.limits):
        value = counter_ratio(program, case, name) if kind == "counter_ratios" else None
        if value is not None:
            rows.append([case, name, number(value)] + targets.cells(kind, case, name, value))
    return rows


def counter_ratio(program, case, name):
    """-> None where one of the two was not measured."""
    counter, _, peer = name.partition(" beside ")
    if not all(counter in program.counters.get((case, party), {}) for party in (OURS, peer)):
        return None
    theirs = program.counter(case, peer, counter)
    return program.counter(case, OURS, counter) / theirs if theirs > 0 else None


def growth(values):
    """How much more one element costs at most than it did at some smaller size."""
    return max(value / min(values[: i + 1]) for i, value in enumerate(values))


def scaling_section(program, targets):
    lines = []
    growths = []
    for case, sizes in program.scaling_cases().items():
        parties = program.parties(sizes[0])
        rows = []
        for sized in sizes:
            rows.append([sized.rpartition("/")[2]]
                        + [duration(program.per_element(sized, party)) for party in parties]
                        + [number(max(program.counters[sized, OURS]["peak_MiB"]))])
        lines += [f"### {case}", ""]
        lines += table(["Size"] + parties + ["Peak MiB (ours)"], rows)
        own = growth([program.per_element(sized, OURS) for sized in sizes])
        for peer in parties:
            if peer != OURS:
                value = growth([program.per_element(sized, OURS) / program.per_element(sized, peer)
                                for sized in sizes])
                growths.append([case, number(own), peer, number(value)] + targets.cells("scaling", case, peer, value))
    if growths:
        lines += ["### Growth", "",
                  "How much more an element costs at most than at some smaller size: by itself, and as a ratio to",
                  "the peer, which meets the same caches and the same system.", ""]
        lines += table(["Case", "Ours", "Peer", "Ratio's", "Target", "Met"], growths)
    return lines


def program_section(program, targets):
    lines = [f"## {program.title}", "", f"Measured {program.date}."]
    if program.peers_present:
        lines += [f"Beside: {program.peers_present}."]
    lines += [f"Left out, because it is not there: {peer}." for peer in program.absent_peers]
    lines += [""]
    rows = ratio_rows(program, targets)
    if rows:
        lines += table(["Case", "Ours", "Beside", "Its time", "Ratio", "Repetitions", "CPU", "Target", "Met"], rows)
    rows = counter_rows(program, targets) + counter_ratio_rows(program, targets)
    if rows:
        lines += table(["Case", "Counter", "Value", "Target", "Met"], rows)
    scaling = scaling_section(program, targets)
    if scaling:
        lines += [f"Plots: [{case}](plots/{case}.svg)" for case in program.scaling_cases()] + [""] + scaling
    return lines


def cpu_model():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        for line in file:
            if line.startswith("model name"):
                return line.split(":", 1)[1].strip()
    return platform.machine()


def machine(compilers):
    return ", ".join([f"{cpu_model()} with {os.cpu_count()} cores", f"{platform.system()} {platform.release()}",
                      " ".join(platform.libc_ver()), *sorted(compilers)])


def machine_section(compilers):
    libc = " ".join(platform.libc_ver())
    return ["| | |", "| --- | --- |",
            f"| Processor | {cpu_model()}, {os.cpu_count()} cores |",
            f"| Kernel | {platform.system()} {platform.release()} |",
            f"| C library | {libc} |",
            f"| Compiler | {', '.join(sorted(compilers))} |", ""]


def load(paths):
    """-> ({title: Program} in the order of the files, names of compilers)."""
    programs, compilers = {}, set()
    for path in paths:
        with open(path, encoding="utf-8") as file:
            result = json.load(file)
        context = result["context"]
        program = programs.setdefault(context["title"], Program(context["title"], context["area"]))
        program.add_context(context)
        compilers.add(context["compiler"])
        if not result["benchmarks"]:
            raise ReportError(f"{path}: no results")
        for run in result["benchmarks"]:
            program.add_run(run)
    return programs, compilers


def near_limits(programs, targets):
    """-> a filter of all parties of the cases to measure again; empty without any."""
    names = set()
    for program in programs.values():
        for kind, case, peer in targets.limits:
            known = kind == "ratios" and (case, OURS) in program.times and (case, peer) in program.times
            if known and program.ratio(case, peer) > NEAR * targets.limits[kind, case, peer]:
                names.update(program.names[case, party] for party in program.parties(case))
    return "|".join(f"^{re.escape(name)}$" for name in sorted(names))


def target_cells(program, targets):
    """{case: [ratio or counter with its target]} for what has a target, in the order of the program."""
    cells = {}
    for kind, case, name in targets.limits:
        limit = targets.limits[kind, case, name]
        if kind == "ratios" and (case, OURS) in program.times and (case, name) in program.times:
            value, label = program.ratio(case, name), name
        elif kind == "counter_ratios" and counter_ratio(program, case, name) is not None:
            value, label = counter_ratio(program, case, name), name
        elif kind == "counters" and name in program.counters.get((case, OURS), {}):
            value, label = statistics.median(program.counters[case, OURS][name]), name
        elif kind == "scaling" and case in program.scaling_cases():
            sizes = program.scaling_cases()[case]
            value = growth([program.per_element(sized, OURS) / program.per_element(sized, name) for sized in sizes])
            label = f"growth beside {name}"
        else:
            continue
        shown = number(value) if value <= limit else f"**{number(value)}**"
        cells.setdefault(case, []).append(f"{label} {shown} (≤ {number(limit)})")
    order = {case: place for place, case in enumerate(program.cases())}
    return dict(sorted(cells.items(), key=lambda item: order.get(item[0], len(order))))


def page_rows(program, targets):
    rows = []
    for case, cells in target_cells(program, targets).items():
        timed = any(kind == "ratios" and case == known for kind, known, _ in targets.limits)
        rows.append([program.area, case, duration(program.median_time(case, OURS)) if timed else "", "; ".join(cells)])
    return rows


def party_cell(program, case, party, name):
    values = program.counters[case, party].get(name)
    if values is None:
        return ""
    # Pools of earlier repetitions are still there in later ones.
    return number(max(values) if name == "peak_MiB" else statistics.median(values))


def page_tables(programs):
    lines = []
    for program in programs.values():
        if program.page_tables():
            lines += [f"## {program.title}", "", f"Measured {program.date[:10]} on {program.cores} cores.", ""]
        for case in program.page_tables():
            parties = program.parties(case)
            known = set().union(*(program.counters[case, party] for party in parties))
            names = [name for name in PAGE_COLUMNS if name in known]
            rows = [[party] + [party_cell(program, case, party, name) for name in names] for party in parties]
            lines += [PAGE_TABLES[case], ""]
            lines += table([case] + [PAGE_COLUMNS[name] for name in names], rows)
    return lines


def threads_section(programs):
    """What threads do together: a row for each party of the cases about them."""
    rows = []
    counts = []
    for program in programs.values():
        for case, sizes in program.scaling_cases().items():
            if not case.startswith(THREADS):
                continue
            counts = [sized.rpartition("/")[2] for sized in sizes]
            for party in program.parties(sizes[0]):
                rates = [number(1e3 / program.per_element(sized, party)) for sized in sizes]
                rows.append([case.removeprefix(THREADS), party] + rates)
    if not rows:
        return []
    heads = ["Millions a second", "Party"] + [f"{count} thread{'s' if count != '1' else ''}" for count in counts]
    return ["## Threads", "", THREADS_TEXT, ""] + table(heads, rows)


def page(programs, compilers, targets):
    """What is kept: targets, ratios, what was missed and why, three plots."""
    met = len(targets.limits) - len(targets.unused) - len(targets.missed)
    lines = ["# Performance", "",
             "How fast the library is beside others that do the same, in the cases for which",
             "`bench/targets.json` sets a target. Written by `scripts/bench.sh`, which leaves all else that it",
             "measures (every case, repetitions, processor times, all plots) in `build/bench/report`.", "",
             "A ratio is our time divided by the other's: below 1 we are faster. All parties of a case run in one",
             "process and take turns, with a second thread alive; times are medians of one operation. Names that begin",
             "with `floor` or `limit` are no products but what cannot be undercut: a hand-written program of the same",
             "locks and copies, or what the system itself needs. Growth is how much more one element costs at most",
             "than at some smaller size, as a ratio to the peer. Numbers in bold miss their target.", ""]
    dates = sorted(program.date[:10] for program in programs.values())
    peers = sorted({peer.strip() for program in programs.values()
                    for peer in program.peers_present.split(";") if peer.strip()})
    measured = " to ".join(sorted({dates[0], dates[-1]}))
    lines += [f"{met} of {met + len(targets.missed)} targets are met. Measured {measured} on {machine(compilers)};",
              f"beside {', '.join(peers)}.", ""]
    lines += table(["Area", "Case", "Ours", "Ratio to others, or counter, and its target"],
                   [row for program in programs.values() for row in page_rows(program, targets)])
    lines += page_tables(programs)
    lines += threads_section(programs)
    lines += ["## What was missed, and why", ""]
    lines += [f"- {text}" for text in targets.missed] or ["Nothing."]
    lines += ["", "## How it grows", ""]
    for case, text in PAGE_PLOTS.items():
        lines += [f"![{text}](plots/{case}.svg)", ""]
    return "\n".join(lines).rstrip("\n") + "\n"


def report(programs, compilers, targets, partial):
    lines = ["# Performance", "",
             "Written by `scripts/bench.sh`. Each program measures our times beside those of",
             "peers in one process, all parties in turns, with a second thread alive; times are medians of one",
             "operation, with two threads the wall time divided by the operations of both. A ratio is our time",
             "divided by the other's, so smaller is better; \"Repetitions\" is the range it had in them, and \"CPU\"",
             "the ratio of the threads' own times, which a busy machine disturbs less. Parties named \"floor\"",
             "or \"limit\" are no products but what cannot be undercut: a hand-written program of the same locks,",
             "counts and copies, or what the system itself needs. Targets stand in `bench/targets.json`.", ""]
    lines += machine_section(compilers)
    for program in programs.values():
        lines += program_section(program, targets)
    unused = [] if partial else targets.without_result(programs.values())
    if unused:
        raise ReportError(f"targets without a result: {', '.join(unused)}")
    lines += ["## Targets", ""]
    lines += [f"- missed: {text}" for text in targets.missed] or ["All targets are met."]
    return "\n".join(lines) + "\n"


def main():
    parser = argparse.ArgumentParser(description="Writes a report of benchmark results.")
    parser.add_argument("--targets", required=True, help="JSON table of ratios and counters to reach")
    parser.add_argument("--partial", action="store_true", help="targets without a result are no error")
    parser.add_argument("--output", help="where the report goes; standard output without it")
    parser.add_argument("--page", help="where the page goes; none is written without it")
    parser.add_argument("--near", action="store_true", help="print a filter of the cases near their limits instead")
    parser.add_argument("results", nargs="+", help="JSON results of the benchmark programs")
    arguments = parser.parse_args()
    try:
        programs, compilers = load(arguments.results)
        targets = Targets(arguments.targets, min(program.cores for program in programs.values()))
        if arguments.near:
            print(near_limits(programs, targets))
            return 0
        text = report(programs, compilers, targets, arguments.partial)
        short = page(programs, compilers, targets)
    except (ReportError, KeyError, json.JSONDecodeError) as error:
        print(f"bench_report: {error!r}" if isinstance(error, KeyError) else f"bench_report: {error}",
              file=sys.stderr)
        return 1
    if arguments.page:
        with open(arguments.page, "w", encoding="utf-8") as file:
            file.write(short)
    if arguments.output:
        with open(arguments.output, "w", encoding="utf-8") as file:
            file.write(text)
    else:
        sys.stdout.write(text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
