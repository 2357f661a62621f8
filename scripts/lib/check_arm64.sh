#!/usr/bin/env bash
# Builds the library for arm64 on another processor, runs the tests of the public interface in an
# emulator and compares the exported names with those of x86-64. scripts/test.sh arm64 runs all
# tests; this is what is done before every change.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
"$root/scripts/setup.sh" arm64

say "building: arm64"
# shellcheck disable=SC2086  # the arguments are words
quietly cmake --preset arm64 ${TNROBOT_CMAKE_ARGUMENTS:-}
cmake --build --preset arm64 -j "$jobs" --target tnrobot_shared_tests

say "comparing exported names: arm64"
"$root/scripts/lib/check_exports.sh" "$root/build/arm64/src/libTnRobotKernel.so"

# Starting a program costs an emulator more than most tests do, so the tests are not started one by
# one: each of a few processes runs its share.
say "testing: arm64, the public interface"
cd "$root/build/arm64/tests"
pids=()
for ((share = 0; share < jobs; ++share)); do
    GTEST_TOTAL_SHARDS=$jobs GTEST_SHARD_INDEX=$share \
        qemu-aarch64 -L "$root/build/arm64-sysroot" -E TNROBOT_TEST_PATIENCE=2 ./tnrobot_shared_tests --gtest_brief=1 >"share-$share.log" 2>&1 &
    pids+=($!)
done
result=0
for share in "${!pids[@]}"; do
    if wait "${pids[$share]}"; then
        grep -h '^\[  PASSED\|^\[  SKIPPED' "share-$share.log"
    else
        result=1
        cat "share-$share.log"
    fi
done
exit $result
