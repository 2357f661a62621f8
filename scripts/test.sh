#!/usr/bin/env bash
# Builds the library and its tests and runs them: scripts/test.sh [PRESET], release by default.
# asan and tsan are the same suite under the sanitizers, debug checks invariants, arm64 runs in an
# emulator.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
preset="${1:-release}"
if [ "$preset" = arm64 ]; then
    "$root/scripts/setup.sh" arm64
else
    "$root/scripts/setup.sh" test
fi

build "$preset" ${TNROBOT_CMAKE_ARGUMENTS:-}
say "testing: $preset"
export ASAN_OPTIONS="detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1:${ASAN_OPTIONS:-}"
export UBSAN_OPTIONS="print_stacktrace=1:${UBSAN_OPTIONS:-}"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:${TSAN_OPTIONS:-}"
ctest --preset "$preset" -j "$jobs"
