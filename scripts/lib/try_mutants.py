#!/usr/bin/env python3
"""Tries mutants for scripts/mutate.sh, two at a time, each in a copy of the tree of its own.

try_mutants.py COUNT [TARGET...]    goes on until COUNT mutants have been built and are in the table
try_mutants.py --again [TARGET...]  tries those that survived once more, after tests were added
try_mutants.py --report             only writes the table into docs/reliability.md

tests/mutants/table.txt gets a line as soon as a mutant is done: result, part, name, what noticed it. It is kept in the
repository, since 300 take hours."""

import collections
import hashlib
import json
import os
import pathlib
import queue
import re
import resource
import signal
import subprocess
import sys
import threading

import mutants

ROOT = pathlib.Path(__file__).resolve().parents[2]
PLACE = ROOT / "build/mutants"
DRAWN = PLACE / "drawn"    # the sources that mutants are drawn from
TABLE = ROOT / "tests/mutants/table.txt"
EQUIVALENT = ROOT / "tests/mutants/equivalent.txt"
DOCUMENT = ROOT / "docs/reliability.md"
MEMORY = 12 << 30          # bytes of address space, for those that allocate without end
QUICK, SLOW = 1.0, 20.0    # seconds that a suite takes without a mutant
OTHER_TARGETS = sys.argv[2:]  # test programs beside the one that has the tests of every part

# Whose tests reach a part beside its own: what stands on it. Everybody stands on core, and the tests of failures,
# of plug-ins and of fuzzing reach all.
ABOVE = {"archive": (), "concurrency": (), "image": (), "utils": (), "values": ("archive",),
         "memory": ("archive", "image", "values"), "logger look-up": ("logger",)}
ALL = ("abi", "failure", "fuzz")
LOCKS = ".Fork"  # the end of the name of a suite that asks for every part's locks


class Tree:
    """A copy of the project, in which one mutant after the other is built and tried."""

    def __init__(self, name):
        self.path = PLACE / name
        self.restore()
        self.unchanged = self.objects()
        self.suites = self.read_suites(PLACE / ("0" if name == "1" else name) / "unchanged.log")

    def restore(self):
        """Takes back what an interruption has left of a mutant."""
        for path in filter(pathlib.Path.is_file, DRAWN.glob("src/**/*")):
            own = self.path / path.relative_to(DRAWN)
            if own.read_bytes() != path.read_bytes():
                own.write_bytes(path.read_bytes())
        self.make("tnrobot_objects")

    def objects(self):
        found = sorted((self.path / "build/release/src/CMakeFiles/tnrobot_objects.dir").rglob("*.o"))
        return hashlib.sha256(b"".join(hashlib.sha256(path.read_bytes()).digest() for path in found)).digest()

    def read_suites(self, log):
        """(name, label, seconds) of each suite, from the run without a mutant."""
        labels = {}
        for test in json.loads(self.run("ctest", "--test-dir", "build/release", "--show-only=json-v1")[0])["tests"]:
            properties = {entry["name"]: entry["value"] for entry in test.get("properties", [])}
            labels[test["name"]] = (properties.get("LABELS") or [test["name"].split(".")[0]])[0]
        times = re.findall(r"Test +#\d+: (\S+) \.+ +Passed +([\d.]+) sec", log.read_text(encoding="utf-8"))
        known = {name for name, _ in times}
        return [(name, labels[name], float(seconds)) for name, seconds in times
                if name in labels and name != "fuzz.seeds" and name.replace("static.", "shared.") not in known - {name}]

    def run(self, *command, seconds=3600):
        """What the command says; None for a result when its time is up. What it has started ends with it."""
        def limit():
            if self.path.name != "checked":  # LeakSanitizer reserves terabytes
                resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        with subprocess.Popen(command, cwd=self.path, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              errors="replace", preexec_fn=limit, start_new_session=True) as process:
            try:
                return process.communicate(timeout=seconds)[0], process.returncode
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, signal.SIGKILL)
                return process.communicate()[0], None

    def make(self, *targets):
        return self.run("cmake", "--build", "build/release", "-j", "1", "--target", *targets)[1] == 0

    def noticed_by(self, names, seconds):
        """The first of these suites that fails twice, since a busy machine may fail one once, or the one that was at
        work when the time was up; None when there is none."""
        while names:
            pattern = "^(" + "|".join(map(re.escape, names)) + ")$"
            said, code = self.run("ctest", "--test-dir", "build/release", "--tests-regex", pattern,
                                  "--fixture-exclude-any", ".*", "--stop-on-failure", seconds=seconds)
            if code == 0:
                return None
            begun = re.findall(r"^ *Start +\d+: (\S+)", said, re.MULTILINE)
            if code is None or not begun:
                return (begun or ["the run of the tests"])[-1] + ", time limit"
            alone = ("ctest", "--test-dir", "build/release", "--tests-regex", f"^{re.escape(begun[-1])}$",
                     "--fixture-exclude-any", ".*")
            if self.run(*alone, seconds=seconds)[1] != 0:
                return begun[-1]
            names = [name for name in names if name not in begun]
        return None

    def stages(self, part):
        """(targets, suites, time limit) in the order in which they are asked: through the shared library, for which
        no test is linked anew; in the program with the hidden classes; in the other programs. In each the part's own
        come first. The slow ones come last, and only those of the part."""
        own = {"logger look-up": "core"}.get(part, part)
        reached = {own, *ABOVE[part], *ALL} if part in ABOVE else {label for _, label, _ in self.suites}
        if self.path.name == "checked":
            reached.add("checked")
        programs = {"shared": ["TnRobotKernel"], "static": ["tnrobot_tests"]}
        stages = collections.defaultdict(list)
        for name, label, seconds in self.suites:
            if label not in reached and not name.endswith(LOCKS):
                continue
            program = name.split(".")[0]
            kind = list(programs).index(program) if program in programs else 2
            if seconds < SLOW:
                stages[label != own or kind == 2, kind, seconds >= QUICK].append((seconds, name))
            elif label == own:
                stages[True, 3, True].append((seconds, name))
        for (_, kind, _), suites in sorted(stages.items()):
            targets = [*programs.values(), OTHER_TARGETS, []][kind]
            yield targets, [name for _, name in suites], 60 + 2 * sum(seconds for seconds, _ in suites)

    def outcome(self, mutant):
        """(result, what noticed it)."""
        if not self.make("tnrobot_objects"):
            return "not-built", "-"
        if self.objects() == self.unchanged:
            return "same-code", "-"
        for targets, names, seconds in self.stages(mutant.part):
            if targets and not self.make(*targets):
                return "killed", "the build of the tests"
            by = self.noticed_by(names, seconds)
            if by:
                return "killed", by
        return "survived", "-"

    def attempt(self, mutant):
        path = self.path / mutant.path
        text = path.read_text(encoding="utf-8")
        path.write_text(mutant.of(text), encoding="utf-8")
        try:
            return self.outcome(mutant)
        finally:
            path.write_text(text, encoding="utf-8")


def read_table():
    if not TABLE.exists():
        return {}
    lines = TABLE.read_text(encoding="utf-8").splitlines()
    return {name: (result, part, by) for result, part, name, by in (line.split("\t") for line in lines)}


def forget_changed_lines(drawn):
    """Leaves out of the table what was tried on lines that are written in another way since."""
    names = {mutant.name for mutant in drawn}
    table = read_table()
    kept = {name: row for name, row in table.items() if name in names}
    if len(kept) < len(table):
        print(f"{len(table) - len(kept)} were mutants of lines that have changed since", flush=True)
        lines = ["\t".join((result, part, name, by)) for name, (result, part, by) in kept.items()]
        TABLE.write_text("".join(line + "\n" for line in lines), encoding="utf-8")


class Record:
    """The table, which grows by a line as soon as a mutant is done; a later line holds."""

    def __init__(self, before):
        self.before = before
        self.lock = threading.Lock()

    def add(self, mutant, result, by):
        if result == "killed" and self.before.get(mutant.name, [""])[0] == "survived":
            result = "killed-later"
        with self.lock, open(TABLE, "a", encoding="utf-8") as table:
            print(result, mutant.part, mutant.name, by, sep="\t", file=table)
        print(f"{result:12} {mutant.name}  [{by}]", flush=True)


def try_in(trees, chosen, record, keep_same_code=True):
    """Tries the chosen mutants, one at a time in each tree. @return those that the build does not differ by."""
    waiting, same = queue.SimpleQueue(), []
    for mutant in chosen:
        waiting.put(mutant)

    def work(tree):
        while not waiting.empty():
            try:
                mutant = waiting.get_nowait()
            except queue.Empty:
                return
            result, by = tree.attempt(mutant)
            if result == "same-code" and not keep_same_code:
                same.append(mutant)
            else:
                record.add(mutant, result, by)

    threads = [threading.Thread(target=work, args=(Tree(name),)) for name in trees]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    return same


def try_all(chosen, record):
    """What an ordinary build does not differ by may be part of the checks."""
    ordinary = [mutant for mutant in chosen if mutant.part != "checked"]
    checks = [mutant for mutant in chosen if mutant.part == "checked"]
    checks += try_in(("0", "1"), ordinary, record, keep_same_code=False)
    if checks:
        try_in(("checked",), checks, record)


def try_up_to(count):
    drawn = mutants.draw(DRAWN)
    forget_changed_lines(drawn)
    while True:
        table = read_table()
        missing = count - sum(result != "not-built" for result, _, _ in table.values())
        new = [mutant for mutant in drawn if mutant.name not in table][:max(0, missing)]
        if not new:
            return
        try_all(new, Record(table))


def judged():
    """Name of an equivalent mutant -> why; a line each, the reason indented below."""
    text = EQUIVALENT.read_text(encoding="utf-8") if EQUIVALENT.exists() else ""
    return dict(re.findall(r"^([^#\s].*)\n {4}(.+)$", text, re.MULTILINE))


def report(table):
    """Writes counts and survivors between the two marks of the document."""
    why = judged()
    counts = collections.defaultdict(collections.Counter)
    for name, (result, part, _) in table.items():
        alike = result == "survived" and not why.get(name, "missing:").startswith("missing:")
        counts[part]["equivalent" if alike else result] += 1
    total = sum(counts.values(), collections.Counter())
    tried = total.total() - total["not-built"]
    lines = [f"Tried so far: {tried}, of a sample that is made for {mutants.SAMPLE}.", "",
             "| Part | tried | same code | equivalent | killed at once | killed by tests added since | survived | killed |",
             "|---|---|---|---|---|---|---|---|"]
    for part, count in [*sorted(counts.items()), ("all", total)]:
        killed = count["killed"] + count["killed-later"]
        rate = 100 * killed / max(1, killed + count["survived"])
        tried = count.total() - count["not-built"]
        lines.append(f"| {part} | {tried} | {count['same-code']} | {count['equivalent']} | {count['killed']} | "
                     f"{count['killed-later']} | {count['survived']} | {rate:.1f} % |")
    survivors = [name for name, (result, _, _) in sorted(table.items()) if result == "survived"]
    lines += ["", "Those that no test noticed, as `FILE: KIND OLD -> NEW @COLUMN in LINE`:", ""]
    lines += [f"- {name}: {why.get(name, 'not yet judged')}" for name in survivors]
    text = DOCUMENT.read_text(encoding="utf-8")
    begin, end = "<!-- mutants -->\n", "<!-- /mutants -->"
    head, rest = text.split(begin)
    DOCUMENT.write_text(head + begin + "\n".join(lines) + "\n" + end + rest.split(end)[1], encoding="utf-8")


def main():
    if sys.argv[1] == "--again":
        table, why = read_table(), judged()
        again = {name for name, (result, _, _) in table.items()
                 if result == "survived" and why.get(name, "missing:").startswith("missing:")}
        try_all([mutant for mutant in mutants.draw(DRAWN) if mutant.name in again], Record(table))
    elif sys.argv[1] != "--report":
        try_up_to(int(sys.argv[1]))
    report(read_table())


if __name__ == "__main__":
    main()
