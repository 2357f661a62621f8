#!/usr/bin/env bash
# Changes one thing in src at a time and looks whether a test notices: scripts/mutate.sh [COUNT | --again | --report].
# Goes on until COUNT (default 300) of the mutants that a fixed seed draws have been tried, two at a time, and
# writes the section "Mutants" of docs/reliability.md. Takes hours; it goes on where it was stopped, with the
# tests as they are committed by then.
#   --again   tries those that survived once more, for instance after tests were added
#   --report  tries nothing
# build/mutants/table.txt says of each what became of it. Who survives is for a person to judge: either it is
# the same program in other words, then tests/mutants/equivalent.txt says why; or a test is missing.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

task="${1:-300}"
[[ "$task" =~ ^([0-9]+|--again|--report)$ ]] || { sed -n '2s/^# //p' "$0" >&2; exit 2; }

# What is asked beside tnrobot_tests, which has the tests of every part, once a mutant has got past those.
others=(tnrobot_allocation_tests tnrobot_plugin_tests_own tests/logger/all fuzz/all)

# prepare NAME "TARGET..." [CMAKE-ARGUMENT...]: copies the project to build/mutants/NAME, builds it and runs its
# tests without a mutant, unless that was done for the same commit.
prepare() {
    local tree="$root/build/mutants/$1" targets="$2" commit
    shift 2
    commit="$(git rev-parse HEAD)"
    [ "$(cat "$tree/commit.txt" 2>/dev/null)" != "$commit" ] || return 0
    say "building and testing without a mutant: $tree"
    mkdir -p "$tree"
    find "$tree" -mindepth 1 -maxdepth 1 ! -name build -exec rm -rf {} +
    git archive HEAD | tar -xm -C "$tree"  # as new, so that all that has changed is built
    (cd "$tree" && quietly cmake --preset release -DTNROBOT_OPTIMISE_TOGETHER=OFF -DTNROBOT_BUILD_EXAMPLES=OFF \
        -DTNROBOT_BUILD_TOOLS=OFF "$@")
    # shellcheck disable=SC2086  # several words
    quietly cmake --build "$tree/build/release" -j "$jobs" --target $targets
    (ulimit -c 0 && ctest --test-dir "$tree/build/release" --exclude-regex '_NOT_BUILT$|^(abi|gdb|headers|ptr|shared|tn)\.' \
        -j "$jobs" >"$tree/unchanged.log" 2>&1) || true # a test that fails without a mutant is not asked
    echo "$commit" >"$tree/commit.txt"
}

if [ "$task" != --report ]; then
    "$root/scripts/setup.sh" asan  # clang reads the sources
    prepare 0 "tnrobot_tests ${others[*]}"
    prepare 1 "tnrobot_tests ${others[*]}"
    prepare checked tnrobot_tests -DTNROBOT_CHECKED=ON
fi
CCACHE_READONLY=1 PYTHONPATH="$root/scripts/lib" PYTHONDONTWRITEBYTECODE=1 \
    python3 scripts/lib/try_mutants.py "$task" "${others[@]}"
