#!/usr/bin/env bash
# Fuzzes whatever takes untrusted bytes or any sequence of calls:
#   scripts/fuzz.sh [SECONDS] [TARGET...]        so long for each target (60), all of them by default
#   scripts/fuzz.sh --runs N [TARGET...]         so many executions of each
#   scripts/fuzz.sh --replay [TARGET...]         only the seeds, past findings and what was found here
# Stops at the first finding and says where its input lies. What was found useful stays in
# build/fuzz/corpus and is where the next run starts from.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

usage() {
    sed -n '3,5s/^#   //p' "$0" >&2
    exit 2
}
is_number() { [[ "$1" =~ ^[0-9]+$ ]]; }

limit=(-max_total_time=60)
case "${1:-}" in
    --replay) limit=(-runs=0); shift ;;
    --runs) is_number "${2:-}" || usage; limit=(-runs="$2"); shift 2 ;;
    -*) usage ;;
    *) if is_number "${1:-}"; then limit=(-max_total_time="$1"); shift; fi ;;
esac

mapfile -t known < <(sed -n 's/^tnrobot_add_fuzz_target(.*\/\(.*\))$/\1/p' fuzz/CMakeLists.txt)
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
    cat "$fuzz/logs/"*.row 2>/dev/null || true
}

# record TARGET LOG MICROSECONDS: a line of the table. libFuzzer's own rate is 0 below a second.
record() {
    local executions
    executions="$(sed -n 's/^stat::number_of_executed_units: *//p' "$2")"
    printf '%-20s %12d %10d\n' "$1" "$executions" "$((executions * 1000000 / ($3 + 1)))" >"$fuzz/logs/$1.row"
}
now() { echo "${EPOCHREALTIME/[.,]/}"; }

# Text that libjpeg prints for every picture it refuses is muted; reports are not.
fuzz() {
    local target="$1" corpus="$fuzz/corpus/$1" artifacts="$fuzz/artifacts/$1" log="$fuzz/logs/$1.log"
    mkdir -p "$corpus" "$artifacts" "$fuzz/logs"
    local options=("$options_of_run" -max_len="$(longest_input "$target")" -timeout=20 -rss_limit_mb=4096
                   -close_fd_mask=2 -print_final_stats=1 -artifact_prefix="$artifacts/")
    local dictionary
    dictionary="$(dictionary_of "$target")"
    [ -z "$dictionary" ] || options+=(-dict="$dictionary")
    local start
    start="$(now)"
    if ! "$fuzz/fuzz/fuzz_$target" "${options[@]}" "$corpus" "$fuzz/fuzz/seeds/$target" \
            "fuzz/corpus/regressions/$target" >"$log" 2>&1; then
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

"$root/scripts/setup.sh" checks
build fuzz
fuzz="$root/build/fuzz"
"$fuzz/fuzz/write_fuzz_seeds" "$fuzz/fuzz/seeds"
say "fuzzing: ${limit[*]}"
rm -f "$fuzz/logs/"*.row
# As many at a time as there are cores; after a finding no other begins.
export fuzz options_of_run="${limit[*]}"
export -f say now record longest_input dictionary_of fuzz
result=0
printf '%s\n' "${targets[@]}" | xargs -n 1 -P "$jobs" bash -c 'fuzz "$1" || exit 255' fuzz || result=1
print_table
exit "$result"
