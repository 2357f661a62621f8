#!/usr/bin/env python3
"""Compares counted instructions with a table: instruction_table.py TABLE DIRECTORY [--update]

DIRECTORY holds callgrind's dumps. Each says in its trigger which call it counted and how often; what
the empty call costs is taken off. A count of more than a tenth above the table's fails, and so does a
call that the table or the dumps do not have. --update writes the table instead.
"""

import json
import pathlib
import re
import sys

ALLOWED_GROWTH = 1.10
BASELINE = "empty"
TRIGGER = re.compile(r"^desc: Trigger: Client Request: (\S+) (\d+)$", re.MULTILINE)
TOTALS = re.compile(r"^(?:summary|totals): (\d+)", re.MULTILINE)


def counts_of(directory):
    """-> {call: instructions of one}"""
    counts = {}
    for path in sorted(directory.glob("counts.*")):
        text = path.read_text(encoding="utf-8")
        trigger, totals = TRIGGER.search(text), TOTALS.search(text)
        if trigger and totals:
            counts[trigger.group(1)] = int(totals.group(1)) / int(trigger.group(2))
    if BASELINE not in counts:
        raise SystemExit("instruction_table: nothing was counted")
    baseline = counts.pop(BASELINE)
    return {name: round(count - baseline) for name, count in counts.items()}


def compare(table, counts):
    """Prints each call. -> whether all are as the table has them, or better."""
    ok = True
    for name in sorted(table.keys() | counts.keys()):
        if name not in table or name not in counts:
            print(f"{name}: {'not in the table' if name not in table else 'not counted'}")
            ok = False
            continue
        grown = counts[name] > ALLOWED_GROWTH * table[name]
        print(f"{name}: {counts[name]} instructions, the table has {table[name]}{' - TOO MANY' if grown else ''}")
        ok = ok and not grown
    return ok


def main():
    if len(sys.argv) not in (3, 4) or sys.argv[3:] not in ([], ["--update"]):
        print(__doc__, file=sys.stderr)
        return 2
    table, counts = pathlib.Path(sys.argv[1]), counts_of(pathlib.Path(sys.argv[2]))
    if sys.argv[3:]:
        table.write_text(json.dumps(counts, indent=2, sort_keys=True) + "\n", encoding="utf-8")
        print(f"written: {table}")
        return 0
    return 0 if compare(json.loads(table.read_text(encoding="utf-8")), counts) else 1


if __name__ == "__main__":
    sys.exit(main())
