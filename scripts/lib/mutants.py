#!/usr/bin/env python3
"""Draws mutants of src for scripts/mutate.sh: mutants.py [SUBSYSTEM...] prints them in an order that a fixed
seed gives, one on a line: file, offset, length, new text, and what it is called. mutants.py --apply FILE OFFSET
LENGTH TEXT makes the change. Positions are those of clang's tokens, so comments and texts stay as they are."""

import glob
import random
import re
import subprocess
import sys

SEED = 18
OPERATORS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "&&": "||", "||": "&&",
             "+": "-", "-": "+", "++": "--", "--": "++", "+=": "-=", "-=": "+=", "!": " ", "true": "false",
             "false": "true"}
TOKEN = re.compile(r"^(\w+) '(.*)'\t.*Loc=<[^>]*:(\d+):(\d+)>$")


def tokens(path, text):
    """Yields (kind, spelling, offset) of every token that is no blank."""
    begins = [0]
    for line in text.splitlines(keepends=True):
        begins.append(begins[-1] + len(line))
    dump = subprocess.run(["clang", "-fsyntax-only", "-Xclang", "-dump-raw-tokens", path], capture_output=True,
                          text=True, check=False).stderr
    for line in dump.splitlines():
        match = TOKEN.match(line)
        if match and match[1] not in ("unknown", "comment"):
            yield match[1], match[2], begins[int(match[3]) - 1] + int(match[4]) - 1


def statement(found, i, text):
    """The call or the lock that begins with token i and ends with a semicolon: (length, kind), or None."""
    if found[i - 1][1] not in ("{", "}", ";") or found[i][0] != "raw_identifier":
        return None
    end = next((j for j in range(i, len(found)) if found[j][1] in (";", "{", "}")), None)
    if end is None or found[end][1] != ";":
        return None
    whole = text[found[i][2]:found[end][2] + 1]
    if re.match(r"(const )?(std::)?(lock_guard|unique_lock|auto \w*[lL]ock)\b", whole):
        return len(whole), "dropped lock"
    if re.match(r"[\w:.>()-]+\(", whole) and "=" not in whole and not whole.startswith(("return", "throw")):
        return len(whole), "removed call"
    return None


def mutants_of(path):
    with open(path, encoding="utf-8") as source:
        text = source.read()
    found = list(tokens(path, text))
    for i, (kind, word, offset) in enumerate(found):
        around = found[i - 1][1] if i else ""
        if around == "template" or around in ("#", "include", "operator"):
            continue
        if word in OPERATORS and not (word in "<>" and not text[offset - 1].isspace()):
            yield path, offset, len(word), OPERATORS[word], "operator"
        elif kind == "numeric_constant" and word.isdigit():
            yield path, offset, len(word), str(int(word) + 1), "constant"
        elif kind == "raw_identifier" and word in ("memory_order_acquire", "memory_order_release"):
            yield path, offset, len(word), "memory_order_relaxed", "memory order"
        whole = statement(found, i, text) if i else None
        if whole:
            yield path, offset, whole[0], ";", whole[1]
        swap = re.match(r"\((\w+), (\w+)\)", text[offset:]) if word == "(" else None
        if swap and swap[1] != swap[2]:
            yield path, offset, swap.end(), f"({swap[2]}, {swap[1]})", "swapped arguments"


def main():
    if sys.argv[1:2] == ["--apply"]:
        path, offset, length, new = sys.argv[2], int(sys.argv[3]), int(sys.argv[4]), sys.argv[5]
        with open(path, encoding="utf-8") as source:
            text = source.read()
        with open(path, "w", encoding="utf-8") as source:
            source.write(text[:offset] + new + text[offset + length:])
        return
    wanted = sys.argv[1:]
    paths = [path for path in sorted(glob.glob("src/**/*.cpp", recursive=True) + glob.glob("src/**/*.h", recursive=True))
             if "/checked/" not in path and (not wanted or path.split("/")[1] in wanted)]
    drawn = [mutant for path in paths for mutant in mutants_of(path)]
    random.Random(SEED).shuffle(drawn)
    for path, offset, length, new, kind in drawn:
        with open(path, encoding="utf-8") as source:
            text = source.read()
        old = " ".join(text[offset:offset + length].split())[:60]
        line = text.count("\n", 0, offset) + 1
        print(path, offset, length, new, f"{path}:{line}@{offset} {kind}: {old} -> {new}", sep="\t")


if __name__ == "__main__":
    main()
