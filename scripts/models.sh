#!/usr/bin/env bash
# Proves the protocols between threads on models of them, exhaustively within small bounds, with spin:
# scripts/models.sh [MODEL...]. Each model is models/MODEL.pml. Each line says what was looked for, whether it
# came out as it must, the states explored and the seconds. What takes a mend out (WITHOUT_...) must fail, and
# by the property that is named.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"
"$root/scripts/setup.sh" models

# MODEL RESULT BOUNDS...: RESULT is "safe" (assertions and no wait without end), "fair" (also no run without end
# when threads are scheduled fairly), or what a model without a mend must fail by: assert, wait or cycle.
# Bounds are explained at the top of each model.
models=(
    "task   safe    CALLERS=2 OPS=1 JOBOPS=1 JOB_EVENT"
    "task   safe    CALLERS=2 OPS=1 JOBOPS=1 JOB_COUNTS"
    "task   safe    CALLERS=2 OPS=1 JOBOPS=1 JOB_CALLS"
    "task   safe    CALLERS=1 OPS=1 JOBOPS=2 JOB_COUNTS"
    "task   safe    CALLERS=1 OPS=1 JOBOPS=2 JOB_COUNTS JOB_EVENT TAKER"
    "task   safe    CALLERS=2 OPS=1 ROUNDS=1 JOBOPS=0 RECYCLE"
    "task   safe    CALLERS=1 OPS=3 JOBOPS=0 OWNER_LAST"
    "task   safe    CALLERS=1 OPS=2 JOBOPS=0 OWNER_LAST MEMORY"
    "task   safe    TASKS=2 JOBOPS=0 OWNER_LAST SCRIPT"
    "task   fair    CALLERS=1 OPS=2 JOBOPS=0 ENDLESS"
    "task   fair    CALLERS=1 OPS=1 JOBOPS=2 JOB_COUNTS JOB_EVENT ENDLESS"
    "task   wait    CALLERS=2 OPS=1 JOBOPS=1 JOB_EVENT WITHOUT_CONTROL_LOCK"
    "task   wait    CALLERS=2 OPS=1 JOBOPS=1 JOB_EVENT WITHOUT_STATE_WAIT"
    "task   wait    CALLERS=2 OPS=1 JOBOPS=1 JOB_EVENT WITHOUT_START_WAIT"
    "task   wait    CALLERS=2 OPS=1 JOBOPS=1 JOB_EVENT WITHOUT_ONE_LOOK"
    "task   assert  CALLERS=2 OPS=1 JOBOPS=1 JOB_EVENT WITHOUT_RUN_NUMBER"
    "task   wait    CALLERS=2 OPS=1 JOBOPS=1 JOB_COUNTS WITHOUT_COUNT_HELD"
    "task   wait    CALLERS=2 OPS=1 JOBOPS=1 JOB_CALLS WITHOUT_SELF_TEST"
    "task   assert  CALLERS=2 OPS=1 JOBOPS=1 WITHOUT_PARENT_LOCK"
    "task   wait    CALLERS=2 OPS=1 JOBOPS=1 WITHOUT_DROPPING_NOTICES"
    "task   wait    CALLERS=1 OPS=3 JOBOPS=0 OWNER_LAST WITHOUT_FLAG_FIRST"
    "task   assert  CALLERS=1 OPS=3 JOBOPS=0 OWNER_LAST WITHOUT_LOAN"
    "task   wait    CALLERS=1 OPS=2 JOBOPS=0 OWNER_LAST MEMORY WITHOUT_TELLING_LATER"
    "task   wait    TASKS=2 JOBOPS=0 OWNER_LAST SCRIPT WITHOUT_RUN_LOOK"
    "task   wait    TASKS=2 JOBOPS=0 OWNER_LAST SCRIPT WITHOUT_LEAVING"
    "task   cycle   CALLERS=1 OPS=1 JOBOPS=2 JOB_COUNTS JOB_EVENT ENDLESS WITHOUT_MINDING"
    "thread fair    OPS=2 JOBOPS=2"
    "thread safe    OPS=2 JOBOPS=3"
    "thread safe    OPS=2 JOBOPS=1 EXITER"
    "thread wait    OPS=2 JOBOPS=2 WITHOUT_CONTROL_LOCK"
    "thread assert  OPS=2 JOBOPS=2 WITHOUT_LEAVING_FIRST"
    "thread wait    OPS=2 JOBOPS=2 WITHOUT_COUNT_HELD"
    "thread wait    OPS=2 JOBOPS=2 WITHOUT_SELF_TEST"
    "thread wait    OPS=2 JOBOPS=2 WITHOUT_EARLY_STATE"
    "thread wait    OPS=2 JOBOPS=2 WITHOUT_BEGINS"
    "thread cycle   OPS=2 JOBOPS=1 WITHOUT_ASKING_AGAIN"
    "thread wait    OPS=2 JOBOPS=1 EXITER WITHOUT_EXIT_LOCK"
    "block  fair    CALLERS=2"
    "block  safe    CALLERS=2 ROUNDS=2"
    "block  safe    CALLERS=3"
    "block  safe    CALLERS=2 STRANGER=1 SWEEPS=1"
    "block  assert  CALLERS=2 STRANGER=1 ANY_END"
    "block  assert  CALLERS=2 WITHOUT_EXCHANGE"
    "block  assert  CALLERS=2 WITHOUT_WAITING_FOR_RETURN"
    "block  assert  CALLERS=2 ROUNDS=2 STRANGER=1 WITHOUT_LENT_TEST"
    "block  assert  CALLERS=2 STRANGER=1 SWEEPS=1 WITHOUT_PLACES"
    "circle fair    CALLERS=2 ROUNDS=1"
    "circle safe    CALLERS=2 ROUNDS=2"
    "circle safe    CALLERS=3 ROUNDS=1"
    "circle assert  CALLERS=3 ROUNDS=1 WITHOUT_CHOSEN"
    "circle assert  CALLERS=2 ROUNDS=2 WITHOUT_BOTH_LOCKS"
    "circle assert  CALLERS=2 ROUNDS=2 WITHOUT_WAITING_FOR_RETURN"
    "circle assert  CALLERS=2 ROUNDS=2 WITHOUT_LAST_LOCK"
)

directory="$(mktemp -d)"
trap 'rm -rf "$directory"' EXIT

# explore MODEL MODE BOUNDS...: writes the verifier's report to "report", in a directory of its own.
explore() {
    local model="$1" mode="$2" checker=(-DSAFETY -DNOCLAIM) search=()
    shift 2
    if [ "$mode" = fair ] || [ "$mode" = cycle ]; then
        checker=(-DNFAIR=3)
        search=(-a -f)
    fi
    rm -rf "$directory/run"
    mkdir "$directory/run"
    (
        cd "$directory/run"
        spin "${@/#/-D}" -a "$root/models/$model.pml" >spin.log
        # Optimising takes longer than it spares, whatever the number of states.
        ${CMAKE_CXX_COMPILER_LAUNCHER:-} gcc -O0 -w -DCOLLAPSE -DVECTORSZ=1024 "${checker[@]}" -c pan.c
        gcc -o explore pan.o
        ./explore "${search[@]}" -m1000000 -w24
    ) >"$directory/report" 2>&1 || true
}

# outcome: what the report says; "unknown" when the search was cut short.
outcome() {
    if grep -q 'max search depth too small\|Search not completed\|out of memory' "$directory/report" &&
        ! grep -q 'errors: [1-9]' "$directory/report"; then
        echo unknown
    elif grep -q 'errors: 0$' "$directory/report"; then
        echo holds
    elif grep -q 'pan:1: invalid end state' "$directory/report"; then
        echo wait
    elif grep -q 'pan:1: acceptance cycle' "$directory/report"; then
        echo cycle
    elif grep -q 'pan:1: assertion violated' "$directory/report"; then
        echo assert
    else
        echo unknown
    fi
}

failed=0
printf '%-7s %-6s %-8s %10s %7s  %s\n' model must does states seconds bounds
for each in "${models[@]}"; do
    read -r model must bounds <<<"$each"
    [ $# -eq 0 ] || [[ " $* " == *" $model "* ]] || continue
    begun="$(date +%s%N)"
    # shellcheck disable=SC2086  # bounds are words
    explore "$model" "$must" $bounds
    does="$(outcome)"
    ms="$((($(date +%s%N) - begun) / 1000000))"
    states="$(sed -nE 's/^ *([0-9.e+]+) states, stored.*/\1/p' "$directory/report" | head -1)"
    printf '%-7s %-6s %-8s %10s %5d.%d  %s\n' "$model" "$must" "$does" "$states" $((ms / 1000)) $((ms % 1000 / 100)) "$bounds"
    case "$must:$does" in
        safe:holds | fair:holds | assert:assert | wait:wait | cycle:cycle) ;;
        *) failed=$((failed + 1)); tail -5 "$directory/report" ;;
    esac
done
[ "$failed" -eq 0 ] || { say "$failed lines are not as they must be"; exit 1; }
say "all models hold, and each fails without its mend"
