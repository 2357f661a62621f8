#!/usr/bin/env bash
# Runs the storms of threads in the checked library under schedules that follow from a seed: scripts/schedules.sh
# [N [PRESET [FIRST]]], seeds FIRST to FIRST+N-1; 20, debug and 1 by default, tsan and asan are the other presets.
# A seed that fails is printed with its output; TNROBOT_SCHEDULE_SEED=SEED build/PRESET/tests/tnrobot_schedules
# replays it, with a filter (--gtest_filter) as often as it takes (--gtest_repeat).
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"
count="${1:-20}"
preset="${2:-debug}"
first="${3:-1}"
case "$preset" in
    debug | asan | tsan) ;;
    *) sed -n '2,3s/^# //p' "$0" >&2; exit 2 ;;
esac
"$root/scripts/setup.sh" test

storms=(
    AlarmClock.MayBeUsedByManyThreadsAtOnce
    AlarmClock.NobodySeesItRunningWithAnOldStart
    CircleMemBlockPool.ABlockTakenBackMayBeReleasedWhileThePoolIsBeingDestroyed
    CircleMemBlockPool.ARequestMayRunWhileTheLastBlockOfASpentBufferComesBack
    CircleMemBlockPool.BlocksMayBeReleasedWhileThePoolIsBeingDestroyed
    CircleMemBlockPool.BlocksOfFourThreadsNeverOverlap
    FixedMemBlockPool.AFreeBlockMayBeReleasedWhileThePoolSweepsAndGoes
    FixedMemBlockPool.MayBeDestroyedWhileBlocksAreReleased
    FixedMemBlockPool.ThreadsNeverShareABlock
    GeneralBlockPool.MayBeDestroyedWhileBlocksAreReleased
    GeneralBlockPool.ThreadsNeverShareABlock
    Interrupt.HandsOverBetweenThreadsWithoutLosingOne
    LostRaceThreads.NobodyGoesWithoutABlockOfASharedCircularPool
    ManualEvent.AThousandEventsWakeAllTheirWaiters
    ManualEvent.MayBeDestroyedByTheWaiterThatSawItSet
    ManualEvent.MayBeUsedByManyThreadsAtOnce
    MemoryBlock.ManyHoldersReturnItExactlyOnce
    RandomMemBlockPool.LargeBlocksKeepTheirPatternWhileThePoolIsSwept
    RandomMemBlockPool.MayBeSweptWhileThreadsUseIt
    Signal.OfSignalAndCancelTheFirstWinsForEverybody
    Task.ManyMayStartAndStopItAtOnce
    TaskOwnJob.EveryStartIsARunThoughEachEndsItself
    TaskOwnJob.MayReleaseTheLastReferenceToATaskWithoutItsPool
    TaskPool.ANoticeDuringTheLastReleaseDoesNotMakeTheTaskIdleTwice
    TaskPool.ItsEndMayMeetNoticesAndReleases
    TaskPool.ReadsEveryNotice
    TaskPool.TheCountMayBeReadWhileTasksComeAndGo
    TaskPoolLoad.AThousandPoolsComeAndGoWithTasksInEveryState
    TaskPoolLoad.RunsEveryJobOnceAndKeepsItsMemory
    TaskPoolLoad.ServesManyCallersAtOnce
    TaskStress.CallersAndJobsThatActOnTheirOwnTasksKeepOutOfEachOthersWay
    Thread.AJobMayReleaseTheLastReference
    Thread.ManyMayRunAndStopItAtOnce
)

say "building: $preset"
# shellcheck disable=SC2086  # the arguments are words
quietly cmake --preset "$preset" ${TNROBOT_CMAKE_ARGUMENTS:-}
compile "$preset" --target tnrobot_schedules

say "schedules: $preset, seeds $first to $((first + count - 1))"
TNROBOT_STORMS="$(IFS=:; echo "${storms[*]}")"
export TNROBOT_STORMS
export ASAN_OPTIONS="detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1:${ASAN_OPTIONS:-}"
export UBSAN_OPTIONS="print_stacktrace=1:${UBSAN_OPTIONS:-}"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:${TSAN_OPTIONS:-}"
directory="$(mktemp -d)"
trap 'rm -rf "$directory"' EXIT

# try_seed PROGRAM DIRECTORY SEED: one that fails leaves its output behind. One that hangs is ended.
try_seed() {
    TNROBOT_SCHEDULE_SEED="$3" timeout --signal=ABRT 300 "$1" --gtest_brief=1 --gtest_filter="$TNROBOT_STORMS" \
        >"$2/$3" 2>&1 || return 0
    rm "$2/$3"
}
export -f try_seed

# Threads mostly wait, so there are more at once than cores.
begun="$SECONDS"
seq "$first" "$((first + count - 1))" |
    xargs -P "$((jobs * 2))" -I {} bash -c 'try_seed "$@"' bash "$root/build/$preset/tests/tnrobot_schedules" "$directory" {}

failed=0
for each in $(find "$directory" -type f -printf '%f\n' | sort -n); do
    failed=$((failed + 1))
    say "FAILED: seed $each; TNROBOT_SCHEDULE_SEED=$each build/$preset/tests/tnrobot_schedules replays it"
    tail -n 60 "$directory/$each"
done
echo "$count seeds of ${#storms[@]} storms in $((SECONDS - begun)) s, $failed failed"
[ "$failed" -eq 0 ]
