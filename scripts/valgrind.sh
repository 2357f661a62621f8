#!/usr/bin/env bash
# Runs the suites of core, memory, values and archive of the release build under valgrind's memcheck, which
# also sees bytes that nobody has written: scripts/valgrind.sh [SUITE...]. Takes long.
# Prints the seconds of each suite, and what was left out and why. Reports are in build/release/valgrind.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

declare -A left_out=(
    [ArchiveDepth]="calls itself deeper than valgrind's stack"
    [ArchiveHostile]="has limits of time, and measures memory in forked processes"
    [ArchiveLimits]="saves 65,535 objects"
    [CircleMemBlockPool]="fills gigabytes with patterns"
    [HugePages]="asks how the system maps memory"
    [LargeMapping]="asks how the system maps memory"
    [LibraryLoad]="runs programs of its own"
    [LogUtils]="runs programs of its own"
    [Loggers/LogUtilsSlotOrder]="runs programs of its own"
    [LostRaceThreads]="fills gigabytes from eight threads"
    [MappedMemory]="asks how the system maps memory"
    [NamedValues]="has limits of time"
)

"$root/scripts/setup.sh" test
command -v valgrind >/dev/null || "$root/scripts/setup.sh" bench
say "building: release, the tests"
quietly cmake --preset release
compile release --target tnrobot_tests
reports="build/release/valgrind"
mkdir -p "$reports"

suites=("$@")
if [ ${#suites[@]} -eq 0 ]; then
    mapfile -t suites < <(ctest --preset release -N -L '^(core|memory|values|archive)$' | sed -n 's/.*: static\.//p')
fi
say "memcheck: ${#suites[@]} suites"
failed=0
for suite in "${suites[@]}"; do
    if [ $# -eq 0 ] && [ -n "${left_out[$suite]:-}" ]; then
        echo "$suite is left out: ${left_out[$suite]}"
        continue
    fi
    report="$reports/${suite//\//-}.txt"
    begin=$SECONDS
    valgrind --quiet --error-exitcode=9 --leak-check=full --errors-for-leak-kinds=definite --child-silent-after-fork=yes \
        build/release/tests/tnrobot_tests --gtest_brief=1 --gtest_filter="$suite.*" >"$report" 2>&1 || {
        failed=$((failed + 1))
        echo "$suite FAILED: $report"
        grep -m 20 -E '^==|FAILED  \]|Failure' "$report" || true
        continue
    }
    echo "$suite $((SECONDS - begin)) s"
done
[ "$failed" -eq 0 ] || { echo "$failed suites failed" >&2; exit 1; }
