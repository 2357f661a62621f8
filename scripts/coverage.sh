#!/usr/bin/env bash
# Line and branch coverage of src/ and include/ by the whole suite: scripts/coverage.sh.
# Fails below 97 % of lines or 90 % of branches, and lists the lines that no test reaches.
# Branches that only an exception takes (the compiler makes two of every call) are not counted;
# the tests of failing allocations take them.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"
"$root/scripts/setup.sh" coverage

build coverage ${TNROBOT_CMAKE_ARGUMENTS:-}
# Counts of earlier runs would be added to.
find "$root/build/coverage" -name '*.gcda' -delete
say "testing: coverage"
# The tests that run against the shared library run against the static one too. Programs that are killed and refused
# at each system call would be so while they write their counts down, which are most of their calls.
ctest --preset coverage -j "$jobs" --exclude-regex '^(shared|crash)\.' >"$root/build/coverage/tests.log" || { cat "$root/build/coverage/tests.log"; exit 1; }
tail -n 4 "$root/build/coverage/tests.log"

say "coverage"
# A fork writes the counts down while other threads count on. A branch that lies between two of them may come out below
# zero, which gcovr would take for an error and, with several jobs, wait for ever.
gcovr --gcov-ignore-parse-errors -j "$jobs" --root "$root" --filter "$root/src/" --filter "$root/include/" --exclude-unreachable-branches \
    --txt - --json "$root/build/coverage/report.json" "$root/build/coverage"
scripts/lib/coverage_summary.py "$root/build/coverage/report.json" 97 90
