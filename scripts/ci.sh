#!/usr/bin/env bash
# Everything that must hold before a change lands, step by step; each is a command that a person can
# type: scripts/ci.sh [--night] [--from STEP | --only STEP | --list]. Ends with how long each step took.
# --night is what takes hours, once before a release: a step that fails does not keep the next ones from running.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"
export TNROBOT_CMAKE_ARGUMENTS="-DTNROBOT_WARNINGS_AS_ERRORS=ON"

# A clean system to install the packages in takes the superuser. The examples are built against what was
# installed there.
[ "$(id -u)" -ne 0 ] || system="$(mktemp -d)"
try_packages() {
    if [ -n "${system:-}" ]; then
        scripts/package.sh --test --keep "$system/tree" && scripts/lib/check_examples.sh "$system/tree/usr"
    else
        scripts/package.sh && scripts/lib/check_examples.sh
    fi
}

# scripts/test.sh asan, which is clang's build: everything goes through its warnings, benchmarks too.
test_asan() {
    TNROBOT_CMAKE_ARGUMENTS+=" -DTNROBOT_BUILD_BENCHMARKS=ON" scripts/test.sh asan
}

# What a step leaves in the tree, beside build/, goes into somebody's next commit.
changed_files() { git status --porcelain 2>/dev/null || true; }
changed_before="$(changed_files)"

# What mostly waits, or needs one core, runs beside the steps after it.
waiting=" load soak rough models packages "

# NAME COMMAND, in this order: what fails most often comes first, what another step needs before it.
steps=(
    "test          scripts/test.sh"
    "setup         scripts/setup.sh all"
    "format        scripts/format.sh --check"
    "sync-docs     scripts/docs.sh --sync --check"
    "load          env TNROBOT_FULL_SOAK=1 build/release/tests/tnrobot_shared_tests --gtest_brief=1 --gtest_filter=TaskPoolLoad.*"
    "soak          scripts/soak.sh 0.5"
    "rough         scripts/soak.sh --rough 0.75"
    "models        scripts/models.sh"
    "packages      try_packages"
    "demo          scripts/demo.sh"
    "install       scripts/check_install.sh"
    "arm64         scripts/test.sh arm64 --public"
    "python        scripts/python.sh"
    "abi           scripts/check_abi.sh"
    "layers        scripts/lib/check_layers.py src build/abi/src/CMakeFiles/tnrobot_objects.dir"
    "asan          test_asan"
    "python-asan   scripts/python.sh asan"
    "tsan          scripts/test.sh tsan"
    "schedules     scripts/schedules.sh 20 tsan"
    "soak-tsan     scripts/soak.sh 0.25 tsan"
    "coverage      scripts/coverage.sh"
    "tidy          scripts/tidy.sh"
    "fuzz          scripts/fuzz.sh 10"
    "fuzz-tsan     scripts/fuzz.sh --tsan 10"
    "bench         scripts/bench.sh --quick"
    "instructions  scripts/check_instructions.sh"
)

# More schedules, hours of load, bytes from outside for an hour a target, other libraries, the whole suite on arm64.
night=false
if [ "${1:-}" = --night ]; then
    night=true
    waiting=""
    shift
    steps=(
        "schedules-tsan  scripts/schedules.sh 1000 tsan"
        "schedules-asan  scripts/schedules.sh 1000 asan"
        "soak            scripts/soak.sh 120"
        "rough           scripts/soak.sh --rough 120"
        "arm64           scripts/test.sh arm64"
        "containers      scripts/test.sh containers"
        "valgrind        scripts/valgrind.sh"
        "python-debug    scripts/python.sh debug"
        "fuzz            scripts/fuzz.sh 3600"
        "fuzz-tsan       scripts/fuzz.sh --tsan 3600"
    )
fi

usage() {
    echo "usage: $0 [--night] [--from STEP | --only STEP | --list]" >&2
    exit 2
}

# select_steps MODE STEP: leaves the chosen ones in "steps".
select_steps() {
    local chosen=() each
    for each in "${steps[@]}"; do
        if [ "${each%% *}" = "$2" ] || { [ "$1" = --from ] && [ ${#chosen[@]} -gt 0 ]; }; then
            chosen+=("$each")
        fi
    done
    [ ${#chosen[@]} -gt 0 ] || { echo "no such step: $2; scripts/ci.sh --list names them" >&2; exit 2; }
    steps=("${chosen[@]}")
}

names=()
seconds=()
print_table() {
    local i
    printf '\n%-14s %8s %6s\n' step seconds share
    for i in "${!names[@]}"; do
        printf '%-14s %8d %5d%%\n' "${names[$i]}" "${seconds[$i]}" "$((SECONDS > 0 ? seconds[i] * 100 / SECONDS : 0))"
    done
    printf '%-14s %8d\n' all "$SECONDS"
}

# ended NAME SECONDS RESULT: a line for the table, and by day the end of everything when the step failed.
failed=()
ended() {
    names+=("$1")
    seconds+=("$2")
    if [ "$3" -ne 0 ] && $night; then
        failed+=("$1")
    elif [ "$3" -ne 0 ]; then
        print_table
        say "FAILED: $1; go on with scripts/ci.sh --from $1"
        exit "$3"
    fi
}

run_step() {
    local name="$1" begun="$SECONDS" result=0
    shift
    say "step $name: $*"
    "$@" || result=$?
    ended "$name" "$((SECONDS - begun))" "$result"
}

# Steps that run beside others, by name: the process, and what it says. A file tells how long it took.
declare -A beside=()
notes="$(mktemp -d)"
trap 'jobs -p | xargs -r kill 2>/dev/null || true; rm -rf "$notes" ${system:+"$system"}' EXIT

start_step() {
    local name="$1"
    shift
    say "step $name, beside the next ones: $*"
    {
        begun="$SECONDS" result=0
        "$@" >"$notes/$name.log" 2>&1 || result=$?
        echo "$((SECONDS - begun))" >"$notes/$name.seconds"
        exit "$result"
    } &
    beside[$name]=$!
}

join_steps() {
    local name result
    for name in "${!beside[@]}"; do
        result=0
        wait "${beside[$name]}" || result=$?
        [ "$result" -eq 0 ] || cat "$notes/$name.log"
        ended "$name" "$(cat "$notes/$name.seconds")" "$result"
    done
    beside=()
}

case "${1:-}" in
    "") ;;
    --from | --only) [ $# -eq 2 ] || usage; select_steps "$1" "$2" ;;
    --list) printf '%s\n' "${steps[@]}"; exit ;;
    *) usage ;;
esac

for each in "${steps[@]}"; do
    run=run_step
    [[ "$waiting" != *" ${each%% *} "* ]] || run=start_step
    # shellcheck disable=SC2086  # a step is words
    $run $each
done
join_steps
print_table
[ ${#failed[@]} -eq 0 ] || { say "FAILED: ${failed[*]}"; exit 1; }
changed_after="$(changed_files)"
[ "$changed_before" = "$changed_after" ] || { say "FAILED: the tree has changed meanwhile:"; echo "$changed_after"; exit 1; }
say "all checks passed"
