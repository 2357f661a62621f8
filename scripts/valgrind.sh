#!/usr/bin/env bash
# Runs the tests of the release build under valgrind's memcheck, which also sees bytes that nobody has written:
# scripts/valgrind.sh [ENTRY...], entries as "ctest --preset release -N" names them; by default everything that runs in
# a test program of this project or replays a fuzz target. Takes long.
# Prints the seconds of each entry, and what was left out and why. Reports are in build/release/valgrind.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

declare -A left_out=(
    [static.ArchiveDepth]="calls itself deeper than valgrind's stack"
    [static.ArchiveHostile]="has limits of time, and measures memory in forked processes"
    [static.ArchiveLimits]="saves 65,535 objects"
    [static.CircleMemBlockPool]="fills gigabytes with patterns"
    [static.HugePages]="asks how the system maps memory"
    [static.LargeMapping]="asks how the system maps memory"
    [static.LibraryLoad]="runs programs of its own"
    [static.LogUtils]="runs programs of its own"
    [static.Loggers/LogUtilsSlotOrder]="runs programs of its own"
    [static.LostRaceThreads]="fills gigabytes from eight threads"
    [static.MappedMemory]="asks how the system maps memory"
    [static.NamedValues]="has limits of time"
)
# Single tests of an entry: what its filter leaves out, and why.
declare -A left_out_of=(
    [static.CreateDataValues]="*.NobodyWaitsWhileALongBlockIsCopied reads a page that is taken away meanwhile"
    [ptr.GroupFiles]="*.AChildOfFork* leaves the parent's file alone in the child, which is a leak there"
    [ptr.ReplacedFile]="*.WithoutDescriptors* valgrind has descriptors of its own"
    [tn.WorkFork]="*.TheChild* leaves the parent's threads alone in the child, which is a leak there"
    [static.HostileImages]="*.AHuge*AtOnce:*.*InProportion:*.AHuge*BaselineJpeg:*.*EndsSoon measure memory or time"
    [static.RefusedPath]="*.WithoutADescriptor* valgrind has descriptors of its own"
)

"$root/scripts/setup.sh" test
command -v valgrind >/dev/null || "$root/scripts/setup.sh" bench
build release
reports="$root/build/release/valgrind"
rm -rf "$reports"
mkdir -p "$reports/kept"
tar -C "$reports/kept" -xzf fuzz/corpus/kept.tar.gz

# Lines "ENTRY <tab> DIRECTORY <tab> PROGRAM <tab> ARGUMENT ...". The public tests are linked twice, to the shared
# library and to its objects; once is enough. Replays also get what fuzzing has kept.
entries() {
    ctest --preset release --show-only=json-v1 | python3 -c '
import json, re, sys
for test in json.load(sys.stdin)["tests"]:
    program = test["command"][0].rsplit("/", 1)[-1]
    if re.fullmatch(r"tnrobot_\w*tests|replay_\w+", program) and not test["name"].startswith("shared."):
        directory = next(each["value"] for each in test["properties"] if each["name"] == "WORKING_DIRECTORY")
        kept = [sys.argv[1] + "/" + program[len("replay_"):]] if program.startswith("replay_") else []
        print("\t".join([test["name"], directory] + test["command"] + kept))' "$reports/kept"
}

# filter_of ENTRY: what goes behind its last argument, which is a filter.
filter_of() {
    local filter reason
    [ -n "${left_out_of[$1]:-}" ] || return 0
    read -r filter reason <<<"${left_out_of[$1]}"
    echo "$1: $filter is left out: $reason" >&2
    echo "-$filter"
}

# libjpeg's vector instructions work on whole words: what lies behind a row, and is dropped, would look as if it
# had taken part.
export JSIMD_FORCENONE=1

# check ENTRY DIRECTORY PROGRAM ARGUMENT...: threads take turns fairly, or one that polls keeps the others waiting.
check() {
    local entry="$1" report="$reports/${1//\//-}.txt" begin="$SECONDS"
    cd "$2" || return 1
    shift 2
    if timeout --signal=ABRT 1800 valgrind --quiet --error-exitcode=9 --fair-sched=yes --child-silent-after-fork=yes \
            --leak-check=full --errors-for-leak-kinds=definite "$@" >"$report" 2>&1; then
        echo "$entry $((SECONDS - begin)) s"
    else
        echo "$entry FAILED: $report"
        grep -m 20 -E '^==|FAILED  \]|Failure' "$report" || true
        return 1
    fi
}
export -f check
export reports

chosen=()
while IFS= read -r line; do
    entry="${line%%$'\t'*}"
    if [ $# -gt 0 ]; then
        [[ " $* " != *" $entry "* ]] || chosen+=("$line$(filter_of "$entry")")
    elif [ -n "${left_out[$entry]:-}" ]; then
        echo "$entry is left out: ${left_out[$entry]}"
    elif [[ "$line" == */tnrobot_allocation_tests$'\t'* ]]; then
        echo "$entry is left out: replaces the allocator, as valgrind does"
    else
        chosen+=("$line$(filter_of "$entry")")
    fi
done < <(entries)
[ ${#chosen[@]} -gt 0 ] || { echo "no such entry: $*" >&2; exit 2; }

say "memcheck: ${#chosen[@]} entries"
printf '%s\n' "${chosen[@]}" |
    xargs -d '\n' -n 1 -P "$jobs" bash -c 'IFS=$'\''\t'\'' read -ra words <<<"$1"; check "${words[@]}"' bash ||
    { echo "some of them failed" >&2; exit 1; }
