#!/usr/bin/env bash
# Fuzzes whatever takes untrusted bytes or any sequence of calls:
#   scripts/fuzz.sh [SECONDS] [TARGET...]        so long for each target (60), all of them by default
#   scripts/fuzz.sh --runs N [TARGET...]         so many executions of each
#   scripts/fuzz.sh --replay [TARGET...]         only the seeds, past findings, what is kept and what was found here
#   scripts/fuzz.sh --tsan [SECONDS | --runs N | --replay]   the targets with threads, under ThreadSanitizer
#   scripts/fuzz.sh --keep [TARGET...]           minimise what was found here and is kept, and pack it anew
#   scripts/fuzz.sh --coverage [TARGET...]       what each reaches in src, and what none does
# Stops at the first finding and says where its input lies. What was found useful stays in
# build/fuzz/corpus, where the next run starts from, beside fuzz/corpus/kept.tar.gz.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

usage() {
    sed -n '3,8s/^#   //p' "$0" >&2
    exit 2
}
is_number() { [[ "$1" =~ ^[0-9]+$ ]]; }

# targets_in [DIRECTORY]: the names that CMake knows.
targets_in() { sed -nE "s|^tnrobot_add_fuzz_target\(${1:-[a-z]+}/([a-z0-9_]+).*|\1|p" fuzz/CMakeLists.txt; }

preset=fuzz
work=fuzz
limit=(-max_total_time=60)
mapfile -t known < <(targets_in)
if [ "${1:-}" = --tsan ]; then
    preset=fuzz-tsan
    mapfile -t known < <(targets_in concurrency)
    shift
fi
case "${1:-}" in
    --replay) limit=(-runs=0); shift ;;
    --runs) is_number "${2:-}" || usage; limit=(-runs="$2"); shift 2 ;;
    --keep) work=keep; shift ;;
    --coverage) preset=fuzz-coverage; work=measure; shift ;;
    -*) usage ;;
    *) if is_number "${1:-}"; then limit=(-max_total_time="$1"); shift; fi ;;
esac

targets=("${known[@]}")
[ $# -eq 0 ] || targets=("$@")
for target in "${targets[@]}"; do
    [[ " ${known[*]} " == *" $target "* ]] || { echo "no such target: $target; there are: ${known[*]}" >&2; exit 2; }
done

# Short inputs are quick: as long as a target needs to show all it can do.
longest_input() {
    case "$1" in
        bmp_* | jpeg_load) echo 2048 ;;
        path_parts) echo 700 ;;
        base64) echo 512 ;;
        three_callers) echo 193 ;;
        archive_text) echo 128 ;;
        image_extension) echo 64 ;;
        *) echo 256 ;;
    esac
}

# A target's own dictionary, or that of its format: the first word of its name.
dictionary_of() {
    local name
    for name in "$1" "${1%%_*}"; do
        if [ -f "fuzz/dictionaries/$name.dict" ]; then
            echo "fuzz/dictionaries/$name.dict"
            return
        fi
    done
}

print_table() {
    printf '\n%-20s %12s %10s\n' target executions per\ second
    cat "$build/logs/"*.row 2>/dev/null || true
}

# record TARGET LOG MICROSECONDS: a line of the table. libFuzzer's own rate is 0 below a second.
record() {
    local executions
    executions="$(sed -n 's/^stat::number_of_executed_units: *//p' "$2")"
    printf '%-20s %12d %10d\n' "$1" "$executions" "$((executions * 1000000 / ($3 + 1)))" >"$build/logs/$1.row"
}
now() { echo "${EPOCHREALTIME/[.,]/}"; }

# options_for TARGET: into the array "options". Text that libjpeg prints for every picture it refuses is muted;
# reports are not.
options_for() {
    local dictionary
    mkdir -p "$build/artifacts/$1"
    options=(-max_len="$(longest_input "$1")" -timeout=20 -rss_limit_mb=4096 -close_fd_mask=2 -print_final_stats=1
        -artifact_prefix="$build/artifacts/$1/")
    dictionary="$(dictionary_of "$1")"
    [ -z "$dictionary" ] || options+=(-dict="$dictionary")
}

# inputs_of TARGET: the directories with what it starts from, into the array "inputs"; new inputs go to the first.
inputs_of() {
    inputs=("$found/$1" "$kept/$1" "$seeds/$1" "fuzz/corpus/regressions/$1")
    mkdir -p "${inputs[@]}"
}

fuzz() {
    local target="$1" log="$build/logs/$1.log" options inputs
    options_for "$target"
    inputs_of "$target"
    local start
    start="$(now)"
    if ! "$build/fuzz/fuzz_$target" "$options_of_run" "${options[@]}" "${inputs[@]}" >"$log" 2>&1; then
        tail -n 60 "$log"
        say "FAILED: $target"
        echo "log: $log"
        local input
        input="$(sed -n 's/.*Test unit written to //p' "$log" | tail -n 1)"
        echo "input: ${input:-none was written}"
        echo "Mend it, and keep the input in fuzz/corpus/regressions/$target under a name that says what it is."
        return 1
    fi
    record "$target" "$log" "$(($(now) - start))"
}

# What seeds and past findings reach is not kept a second time.
keep() {
    local target="$1" least="$build/least/$1" log="$build/logs/$1.keep.log" options inputs
    options_for "$target"
    inputs_of "$target"
    rm -rf "$least"
    mkdir -p "$least"
    cp "${inputs[2]}"/* "${inputs[3]}"/* "$least"
    "$build/fuzz/fuzz_$target" -merge=1 "${options[@]}" "$least" "${inputs[@]:0:2}" >"$log" 2>&1 || { tail -n 30 "$log"; return 1; }
    local input
    for input in "${inputs[2]}"/* "${inputs[3]}"/*; do
        rm "$least/$(basename "$input")"
    done
    rm -rf "${kept:?}/$target"
    mv "$least" "$kept/$target"
}

# The same bytes for the same inputs, whoever packs them and when.
pack() {
    tar -C "$kept" --sort=name --format=ustar --owner=0 --group=0 --numeric-owner --mode=u=rwX,go=rX \
        --mtime=@0 -cf - . | gzip -9n >"$build/kept.tar.gz"
    mv "$build/kept.tar.gz" "$archive"
    say "kept: $(find "$kept" -type f | wc -l) inputs in $(stat -c %s "$archive") bytes"
    [ "$(stat -c %s "$archive")" -lt $((8 << 20)) ] || { echo "$archive is larger than 8 MiB" >&2; return 1; }
}

# measure TARGET: the lines that its inputs reach, as lcov writes them down.
measure() {
    local program="$build/fuzz/fuzz_$1" counts="$build/counts/$1" options inputs
    options_for "$1"
    inputs_of "$1"
    LLVM_PROFILE_FILE="$counts.profraw" "$program" -runs=0 "${options[@]}" "${inputs[@]}" >"$build/logs/$1.log" 2>&1 ||
        { tail -n 30 "$build/logs/$1.log"; return 1; }
    llvm-profdata merge -sparse "$counts.profraw" -o "$counts.profdata"
    llvm-cov export -format=lcov -instr-profile="$counts.profdata" "$program" >"$counts.lcov"
    find "${inputs[@]}" -type f | wc -l >"$counts.inputs"
}

"$root/scripts/setup.sh" checks
build "$preset"
build="$root/build/$preset"
found="$root/build/fuzz/corpus"
kept="$root/build/fuzz/kept"
seeds="$build/fuzz/seeds"
archive="$root/fuzz/corpus/kept.tar.gz"
LLVM_PROFILE_FILE=/dev/null "$build/fuzz/write_fuzz_seeds" "$seeds"
rm -rf "$kept" "$build/counts"
mkdir -p "$kept" "$build/logs" "$build/counts"
[ ! -f "$archive" ] || tar -C "$kept" -xzf "$archive"
rm -f "$build/logs/"*.row
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:${TSAN_OPTIONS:-}"

case "$work" in
    fuzz) say "fuzzing: ${limit[*]}" ;;
    keep) say "minimising" ;;
    measure) say "counting lines" ;;
esac
# As many at a time as there are cores; after a finding no other begins.
export root build found kept seeds options_of_run="${limit[*]}"
export -f say now record longest_input dictionary_of options_for inputs_of fuzz keep measure
result=0
printf '%s\n' "${targets[@]}" | xargs -n 1 -P "$jobs" bash -c '"$1" "$2" || exit 255' fuzz "$work" || result=1
case "$work" in
    fuzz) print_table ;;
    keep) [ "$result" -ne 0 ] || pack ;;
    measure) [ "$result" -ne 0 ] || scripts/lib/fuzz_coverage.py "$build/counts" "$root" ;;
esac
exit "$result"
