#!/usr/bin/env bash
# Builds the library and its tests and runs them: scripts/test.sh [PRESET] [--only SUBSYSTEM | --public],
# release by default. asan and tsan are the same suite under the sanitizers, debug checks invariants,
# arm64 runs in an emulator; containers and libcxx are debug builds with GCC's checking containers and with LLVM's
# C++ library, without the logger and the examples.
#   --only SUBSYSTEM  builds and runs what is in tests/SUBSYSTEM, for the time between two changes
#   --public          builds and runs what meets the libraries from outside, as applications do, and
#                     compares the exported names with abi/exports.txt
# With TNROBOT_TEST_PRELOAD=FILE in the environment the tests run with that library before all others, such
# as another allocator: /usr/lib/x86_64-linux-gnu/libmimalloc.so.2 or libjemalloc.so.2.
# Prints what fails, and at the end what was left out and why; everything is in
# build/PRESET/Testing/Temporary/LastTest.log.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

usage() {
    sed -n '2,3s/^# //p' "$0" >&2
    echo "subsystems: $(find tests -mindepth 2 -name '*Test.cpp' -printf '%h\n' | sort -u | sed 's|^tests/||' | xargs)" >&2
    exit 2
}

preset=release
only=""
public=""
while [ $# -gt 0 ]; do
    case "$1" in
        --only) [ -n "${2:-}" ] && [ -d "tests/$2" ] || usage; only="$2"; shift 2 ;;
        --public) public=yes; shift ;;
        -*) usage ;;
        *) preset="$1"; shift ;;
    esac
done
[ -z "$only" ] || [ -z "$public" ] || usage
case "$preset" in
    release | debug | asan | tsan | coverage | arm64 | containers | libcxx) ;;
    *) echo "there is no preset $preset; there are release, debug, asan, tsan, coverage, arm64, containers, libcxx" >&2; usage ;;
esac
preload=()
if [ -n "${TNROBOT_TEST_PRELOAD:-}" ]; then
    # The dynamic loader would only warn, and go on without it.
    [ -f "$TNROBOT_TEST_PRELOAD" ] || { echo "there is no library $TNROBOT_TEST_PRELOAD" >&2; exit 2; }
    preload=(env "LD_PRELOAD=$TNROBOT_TEST_PRELOAD")
fi
case "$preset" in
    arm64 | asan | containers | libcxx) "$root/scripts/setup.sh" "$preset" ;;
    *) "$root/scripts/setup.sh" test ;;
esac

# Programs of a subsystem that are not part of the two large ones.
targets_of() {
    case "$1" in
        abi | ptr | tn | gdb | logger | tools) echo "tests/$1/all" ;;
        failure) echo "tnrobot_shared_tests tnrobot_tests tnrobot_allocation_tests tnrobot_crash_tests" ;;
        *) echo "tnrobot_shared_tests tnrobot_tests" ;;
    esac
}

# A case that could not be tried says why on the line behind the word.
print_skipped() {
    local skipped
    skipped="$(grep -hA1 ': Skipped$' "build/$preset/Testing/Temporary/LastTest.log" | grep -vE ': Skipped$|^--$' | sort | uniq -c || true)" # there may be none
    [ -z "$skipped" ] || printf 'cases left out, and why:\n%s\n' "$skipped"
}

log="build/$preset/tests.txt"
selection=()
part=""
targets=()
if [ -n "$only" ]; then
    part="$only"
    read -ra targets <<<"$(targets_of "$only")"
    selection=(--label-regex "^$only\$")
elif [ -n "$public" ]; then
    part="the public interface"
    targets=(tnrobot_shared_tests tests/abi/all tests/logger/all)
    selection=(--tests-regex '^(abi|logger|plugin|shared)\.')
fi
if [ -n "$part" ]; then
    say "building: $preset, $part"
    # shellcheck disable=SC2086  # the arguments are words
    quietly cmake --preset "$preset" ${TNROBOT_CMAKE_ARGUMENTS:-}
    compile "$preset" --target "${targets[@]}"
else
    build "$preset" ${TNROBOT_CMAKE_ARGUMENTS:-}
fi

say "testing: $preset${part:+, $part}"
export ASAN_OPTIONS="detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1:${ASAN_OPTIONS:-}"
export UBSAN_OPTIONS="print_stacktrace=1:${UBSAN_OPTIONS:-}"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:${TSAN_OPTIONS:-}"
result=0
if [ -t 1 ]; then
    "${preload[@]}" ctest --preset "$preset" -j "$jobs" --no-tests=error --progress "${selection[@]}" || result=$?
else
    "${preload[@]}" ctest --preset "$preset" -j "$jobs" --no-tests=error "${selection[@]}" >"$log" 2>&1 || result=$?
    # What failed comes with its output, what passed is only counted.
    if [ "$result" -eq 0 ]; then
        sed -n '/tests passed/p' "$log"
    else
        grep -vE '^ *(Start +[0-9]+:|[0-9]+/[0-9]+ .* Passed )' "$log"
    fi
fi
print_skipped
exit "$result"
