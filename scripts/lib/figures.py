#!/usr/bin/env python3
"""Prints figures of the house: what grows unseen when nobody counts it.

    figures.py [--objects DIRECTORY] [TREE...]

Each TREE is a checkout (or an unpacked `git archive`) and becomes a column; this one without any. With
the object files of a build that does not optimise the library's files together (the preset abi), the calls from
folder to folder of src are counted too, in the last TREE only.

What is counted is counted by the form that clang-format gives the code, not by a parser: the figures
are there to be compared with each other.
"""

import argparse
import collections
import pathlib
import re
import statistics
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
CODE_TREES = ["include", "src", "tests", "bench", "fuzz", "tools", "logger", "examples"]
TEXT_TREES = ["docs", "scripts"]
SUFFIXES = {"code": {".h", ".cpp"}, "text": {".md", ".sh", ".py"}}
COMMENT = re.compile(r"^\s*(//|/\*|\*)")
CONDITIONAL = re.compile(r"^\s*#\s*(if|ifdef|ifndef|elif)\b")
GUARD = re.compile(r"^#ifndef \w+_H_$")
CONTROL = re.compile(r"^\s*(if|for|while|switch|else|do|try|catch|namespace|class|struct|enum|union|extern|using)\b|^\s*\}")
FUNCTION_END = re.compile(r"\)[\w\s:&<>,*]*(->[^{]*)?\{$|^\s+: .*\{$|^\s+.*\) \{$")
LAMBDA = re.compile(r"\[[^\]]*\]\s*(\([^()]*\))?[^;]*\{$")
DUPLICATE_LINES = 8  # so many lines in a row, twice, are a duplicate


def files_of(tree, folder, kind):
    return sorted(path for path in (tree / folder).rglob("*")
                  if path.suffix in SUFFIXES[kind] and path.is_file())


def lines_of(path):
    return path.read_text(encoding="utf-8", errors="replace").splitlines()


def share(part, whole):
    return f"{100 * part / whole:.1f} %" if whole else "-"


def function_lengths(lines):
    """The lines from a function's opening brace to its closing one, both left out."""
    lengths, open_at = [], {}
    for number, line in enumerate(lines):
        stripped = line.lstrip()
        indent = len(line) - len(stripped)
        if re.match(r"^\};?$|^\}\)?;?$", stripped) and indent in open_at:
            lengths.append(number - open_at.pop(indent) - 1)
        elif line.endswith("{") and indent <= 4 and FUNCTION_END.search(line) \
                and not CONTROL.match(line) and not LAMBDA.search(line) and " = " not in line.split("(")[0]:
            open_at[indent] = number
    return lengths


def repeated_comments(files):
    """Comment lines that say what another comment line of the same tree says, word for word."""
    seen = collections.Counter()
    for path in files:
        for line in lines_of(path):
            text = line.strip().lstrip("/*<! ").strip()
            if COMMENT.match(line) and len(text) >= 25:
                seen[text] += 1
    return sum(count for count in seen.values() if count > 1)


def duplicate_lines(files):
    """Lines that belong to a run of DUPLICATE_LINES lines of code which stands twice or more."""
    places = collections.defaultdict(list)
    for path in files:
        code = [(number, line.strip()) for number, line in enumerate(lines_of(path))
                if len(line.strip()) > 1 and not COMMENT.match(line) and not line.startswith(("#", "using "))]
        for i in range(len(code) - DUPLICATE_LINES + 1):
            run = code[i:i + DUPLICATE_LINES]
            places["\n".join(text for _, text in run)].append((path, [number for number, _ in run]))
    repeated = {(path, number) for found in places.values() if len(found) > 1
                for path, numbers in found for number in numbers}
    return len(repeated)


def includes(tree):
    """(folder, folder) -> how many includes lead from files of the one to files of the other."""
    edges = collections.Counter()
    for path in files_of(tree, "src", "code"):
        here = path.relative_to(tree / "src").parts
        for line in lines_of(path):
            found = re.match(r'#include "(\w+)/\w+\.h"', line)
            if found and found.group(1) != "TnRobotKernel" and len(here) > 1 and found.group(1) != here[0]:
                edges[here[0], found.group(1)] += 1
    return edges


def calls(objects):
    """(folder, folder) -> how many names that the one asks for the other defines, by the object files."""
    owner, wanted = {}, []
    for path in sorted(objects.rglob("*.o")):
        parts = path.parts
        if "tnrobot_objects.dir" not in parts:
            continue
        folder = parts[parts.index("tnrobot_objects.dir") + 1]
        listed = subprocess.run(["nm", str(path)], capture_output=True, text=True, check=True).stdout
        for line in listed.splitlines():
            kind, name = line.split()[-2:]
            if kind in "TDBR":
                owner[name] = folder
            elif kind == "U":
                wanted.append((folder, name))
    edges = collections.Counter((folder, owner[name]) for folder, name in wanted if name in owner)
    return collections.Counter({edge: count for edge, count in edges.items() if edge[0] != edge[1]})


def figures(tree):
    """-> {what: value}, in the order in which it is printed."""
    found = {}
    for folder in CODE_TREES:
        files = files_of(tree, folder, "code")
        if not files:
            continue
        lines = [line for path in files for line in lines_of(path)]
        lengths = [length for path in files for length in function_lengths(lines_of(path))]
        found[f"{folder}: files, lines"] = f"{len(files)}, {len(lines)}"
        found[f"{folder}: longest file"] = max(len(lines_of(path)) for path in files)
        found[f"{folder}: comment share"] = share(sum(bool(COMMENT.match(line)) for line in lines), len(lines))
        if len(lengths) > 9:
            found[f"{folder}: functions: median, 9 of 10, longest"] = \
                f"{statistics.median(lengths):.0f}, {statistics.quantiles(lengths, n=10)[8]:.0f}, {max(lengths)}"
        found[f"{folder}: repeated comment lines"] = repeated_comments(files)
        found[f"{folder}: duplicate lines"] = duplicate_lines(files)
        found[f"{folder}: preprocessor conditionals"] = sum(
            bool(CONDITIONAL.match(line)) and not GUARD.match(line) for line in lines)
    for folder in TEXT_TREES:
        files = files_of(tree, folder, "text")
        found[f"{folder}: files, lines"] = f"{len(files)}, {sum(len(lines_of(path)) for path in files)}"
    found["scripts at the top"] = sum(path.is_file() for path in (tree / "scripts").iterdir())
    for (start, end), count in sorted(includes(tree).items()):
        found[f"src: includes {start} -> {end}"] = count
    return found


def main():
    parser = argparse.ArgumentParser(description="Prints figures of one tree or several side by side.")
    parser.add_argument("--objects", type=pathlib.Path, help="a build's directory, to count calls by folder")
    parser.add_argument("trees", nargs="*", type=pathlib.Path, default=[ROOT])
    arguments = parser.parse_args()
    columns = [figures(tree) for tree in arguments.trees]
    if arguments.objects:
        columns[-1].update({f"src: calls {start} -> {end}": count
                            for (start, end), count in sorted(calls(arguments.objects).items())})
    rows = list(dict.fromkeys(what for column in columns for what in column))
    heads = [""] + [tree.resolve().name for tree in arguments.trees]
    print("| " + " | ".join(heads) + " |")
    print("|" + " --- |" * len(heads))
    for what in rows:
        print("| " + " | ".join([what] + [str(column.get(what, "-")) for column in columns]) + " |")


if __name__ == "__main__":
    main()
