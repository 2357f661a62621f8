"""Draws mutants of src: programs that differ from the library in one condition, boundary, operator, constant,
call, lock, memory order or order of arguments. Positions are those of clang's tokens, so comments and texts stay
as they are. A fixed seed gives the order, and each part of the library has its share of every beginning of it."""

import collections
import dataclasses
import glob
import os
import random
import re
import subprocess

SEED = 18
SAMPLE = 300  # which the shares are made for
LEAST = 15    # of them for each part, however small it is
OPERATORS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "&&": "||", "||": "&&",
             "+": "-", "-": "+", "++": "--", "--": "++", "+=": "-=", "-=": "+=", "!": " ", "true": "false",
             "false": "true", "|": "&", "%": "/", "<<": ">>", ">>": "<<"}
TOKEN = re.compile(r"^(\w+) '(.*)'\t.*Loc=<[^>]*:(\d+):(\d+)>$")


@dataclasses.dataclass(frozen=True)
class Mutant:
    part: str
    path: str
    offset: int
    length: int
    new: str
    name: str

    def of(self, text):
        return text[:self.offset] + self.new + text[self.offset + self.length:]


def part_of(path):
    if "TnRobotLogUtils" in path:
        return "logger look-up"
    directory = path.split("/")[1]
    return "core" if directory == "library" else directory


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
    if found[i - 1][1] not in ("{", "}", ";", ")") or found[i][0] != "raw_identifier":
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


def changes_of(found, text):
    """Yields (offset, length, new text, kind) of every change that can be made to a source."""
    for i, (kind, word, offset) in enumerate(found):
        around = found[i - 1][1] if i else ""
        if around in ("template", "#", "include", "operator"):
            continue
        lone = text[offset - 1].isspace() or word not in ("<", ">", ">>", "&&", "|")  # no template, no reference
        if word in OPERATORS and lone:
            yield offset, len(word), OPERATORS[word], "operator"
        elif kind == "numeric_constant" and word.isdigit():
            yield offset, len(word), str(int(word) + 1), "constant"
        elif kind == "raw_identifier" and word in ("memory_order_acquire", "memory_order_release"):
            yield offset, len(word), "memory_order_relaxed", "memory order"
        whole = statement(found, i, text) if i else None
        if whole:
            yield offset, whole[0], ";", whole[1]
        swap = re.match(r"\((\w+), (\w+)\)", text[offset:]) if word == "(" else None
        if swap and swap[1] != swap[2]:
            yield offset, swap.end(), f"({swap[2]}, {swap[1]})", "swapped arguments"


def mutants_of(path):
    """Named by the line's own text, so that a judgement stands until that line changes."""
    with open(path, encoding="utf-8") as source:
        text = source.read()
    same = collections.Counter()
    for offset, length, new, kind in changes_of(list(tokens(path, text)), text):
        begin = text.rfind("\n", 0, offset) + 1
        end = text.find("\n", offset)
        line = " ".join(text[begin:end].split())
        old = " ".join(text[offset:offset + length].split())
        name = f"{path[4:]}: {kind} {old} -> {new} @{offset - begin} in `{line}`"
        same[name] += 1
        name += f" #{same[name]}" if same[name] > 1 else ""
        yield Mutant(part_of(path), path, offset, length, new, name)


def shares(paths):
    """How many of SAMPLE mutants each part gets: as it has lines, but LEAST for the small ones."""
    lines = collections.Counter()
    for path in paths:
        with open(path, encoding="utf-8") as source:
            lines[part_of(path)] += sum(1 for _ in source)
    return {part: max(LEAST, round(SAMPLE * count / lines.total())) for part, count in lines.items()}


def draw(tree):
    """All mutants of a tree, in an order that gives each part its share of every beginning."""
    os.chdir(tree)
    paths = sorted(glob.glob("src/**/*.cpp", recursive=True) + glob.glob("src/**/*.h", recursive=True))
    share = shares(paths)
    drawn = [mutant for path in paths for mutant in mutants_of(path)]
    random.Random(SEED).shuffle(drawn)
    place = collections.Counter()
    order = []
    for mutant in drawn:
        place[mutant.part] += 1
        order.append((place[mutant.part] / share[mutant.part], len(order), mutant))
    return [mutant for _, _, mutant in sorted(order)]
