#!/usr/bin/env bash
# Changes one thing in src at a time and looks whether a test notices: scripts/mutate.sh [COUNT] [SUBSYSTEM...].
# Tries up to COUNT (default 300) of the mutants that a fixed seed has drawn, those that have not been tried
# yet: it goes on where it stopped. Each is built in a copy of the tree below build/mutants and meets the tests
# of its subsystem, in core those of all. build/mutants/table.txt has a line for each: killed, survived, or not built. What survives
# is for a person to judge: the same program in other words, or a test that is missing. Takes hours.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"
"$root/scripts/setup.sh" asan

count=300
if [[ "${1:-}" =~ ^[0-9]+$ ]]; then
    count="$1"
    shift
fi
tree="$root/build/mutants/tree"
table="$root/build/mutants/table.txt"
mkdir -p "$tree"
git archive HEAD | tar -x -C "$tree"
touch "$table"
say "building what mutants are compared with"
(cd "$tree" && quietly cmake --preset release -DTNROBOT_BUILD_EXAMPLES=OFF -DTNROBOT_BUILD_TOOLS=OFF)

# try FILE: builds the tree and runs the tests of the file's subsystem; prints what became of it.
try() {
    local file="$1" subsystem
    subsystem="$(cut -d/ -f2 <<<"$file")"
    [ "$subsystem" != core ] && [ -d "tests/$subsystem" ] || subsystem='.*'  # everybody stands on core
    if ! cmake --build "$tree/build/release" -j "$jobs" --target tnrobot_shared_tests tnrobot_tests >"$tree/build/log" 2>&1; then
        echo "not-built"
    elif ctest --test-dir "$tree/build/release" --label-regex "^$subsystem\$" --stop-on-failure --timeout 200 \
        -j "$jobs" >"$tree/build/log" 2>&1; then
        echo survived
    else
        echo killed
    fi
}

unchanged="$(try src/core/none)"
[ "$unchanged" = survived ] || { cat "$tree/build/log"; say "the tests fail without a mutant"; exit 1; }
tried=0
mapfile -t mutants < <(python3 scripts/lib/mutants.py "$@")
for mutant in "${mutants[@]}"; do
    IFS=$'\t' read -r file offset length text name <<<"$mutant"
    [ "$tried" -lt "$count" ] || break
    ! grep -qF "$name" "$table" || continue
    tried=$((tried + 1))
    python3 scripts/lib/mutants.py --apply "$tree/$file" "$offset" "$length" "$text"
    result="$(try "$file")"
    cp "$root/$file" "$tree/$file"
    printf '%-9s  %s\n' "$result" "$name" | tee -a "$table"
done
say "$(cut -d' ' -f1 "$table" | sort | uniq -c | tr '\n' ' ')in $table"
