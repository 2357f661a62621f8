#!/usr/bin/env bash
# Changes one thing in src at a time and looks whether a test notices: scripts/mutate.sh [COUNT | --again | --report].
# Goes on until COUNT (default 300) of the mutants that a fixed seed draws have been tried, two at a time, and
# writes the section "Mutants" of docs/reliability.md. Takes hours; it goes on where it was stopped, with the
# tests as they are committed by then.
#   --again   tries those that survived once more, for instance after tests were added
#   --report  tries nothing
# tests/mutants/table.txt says of each what became of it. Who survives is for a person to judge: either it is
# the same program in other words, then tests/mutants/equivalent.txt says why; or a test is missing.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

task="${1:-300}"
[[ "$task" =~ ^([0-9]+|--again|--report)$ ]] || { sed -n '2s/^# //p' "$0" >&2; exit 2; }

# What is asked once a mutant has got past the tests of the shared library and those of hidden classes.
others=(tnrobot_allocation_tests tnrobot_plugin_tests_own tests/logger/all fuzz/all)

# prepare NAME "TARGET..." [CMAKE-ARGUMENT...]: copies the project to build/mutants/NAME and builds it, unless that
# was done for the same commit.
prepare() {
    local tree="$root/build/mutants/$1" targets="$2"
    shift 2
    [ "$(cat "$tree/commit.txt" 2>/dev/null)" != "$commit" ] || return 0
    say "building without a mutant: $tree"
    mkdir -p "$tree"
    find "$tree" -mindepth 1 -maxdepth 1 ! -name build -exec rm -rf {} +
    git archive HEAD | tar -xm -C "$tree"  # as new, so that all that has changed is built
    (cd "$tree" && quietly cmake --preset release -DTNROBOT_OPTIMISE_TOGETHER=OFF -DTNROBOT_BUILD_EXAMPLES=OFF \
        -DTNROBOT_BUILD_TOOLS=OFF -DCMAKE_LINK_DEPENDS_NO_SHARED=ON -DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold "$@")
    # shellcheck disable=SC2086  # several words
    quietly cmake --build "$tree/build/release" -j "$jobs" --target $targets
    [[ "$targets" != *fuzz* ]] || quietly ctest --test-dir "$tree/build/release" --tests-regex '^fuzz.seeds$'
    echo "$commit" >"$tree/commit.txt"
}

# time_suites NAME: runs the tests of a tree without a mutant. One that fails so is not asked.
time_suites() {
    local tree="$root/build/mutants/$1"
    [ "$(head -1 "$tree/unchanged.log" 2>/dev/null)" != "$commit" ] || return 0
    say "testing without a mutant: $tree"
    echo "$commit" >"$tree/unchanged.log"
    ctest --test-dir "$tree/build/release" --exclude-regex '_NOT_BUILT$|^(abi|gdb|headers|ptr|tn)\.' -j "$jobs" \
        >>"$tree/unchanged.log" 2>&1 || true
}

export LSAN_OPTIONS=detect_leaks=0
if [ "$task" != --report ]; then
    "$root/scripts/setup.sh" asan  # clang reads the sources
    commit="$(git rev-parse HEAD)"
    rm -rf "$root/build/mutants/drawn"
    mkdir -p "$root/build/mutants/drawn"
    git archive HEAD src | tar -x -C "$root/build/mutants/drawn"
    prepare 0 "tnrobot_shared_tests tnrobot_tests ${others[*]}"
    prepare 1 "tnrobot_shared_tests tnrobot_tests ${others[*]}"
    # A checked build of the tests of hidden classes alone; it is not to look for leaks.
    prepare checked tnrobot_tests -DTNROBOT_SANITIZE=leak
    time_suites 0
    time_suites checked
fi
CCACHE_READONLY=1 PYTHONPATH="$root/scripts/lib" PYTHONDONTWRITEBYTECODE=1 \
    python3 scripts/lib/try_mutants.py "$task" "${others[@]}"
