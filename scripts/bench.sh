#!/usr/bin/env bash
# Measures the library beside its peers and writes docs/performance.md: scripts/bench.sh [--quick].
# --quick only shows that every benchmark runs: short, printed, nothing overwritten. Missed targets
# are reported, never an error: timings depend on the machine.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

quick=false
case "${1:-}" in
    "") ;;
    --quick) quick=true ;;
    *) echo "usage: $0 [--quick]" >&2; exit 2 ;;
esac
"$root/scripts/setup.sh" bench

build bench ${TNROBOT_CMAKE_ARGUMENTS:-}

if $quick; then
    rounds=1
    settings=(--benchmark_min_time=0.01 --benchmark_repetitions=1)
else
    # Rounds in fresh processes, so that neither a busy moment of the machine nor the place where one
    # process happens to have its memory decides a ratio.
    rounds="${TNROBOT_BENCH_ROUNDS:-5}"
    settings=(--benchmark_min_time=0.05 --benchmark_repetitions=3)
fi

directory="$(mktemp -d)"
trap 'rm -rf "$directory"' EXIT
results=()
for program in "$root"/build/bench/bench/*_bench; do
    for round in $(seq "$rounds"); do
        say "measuring: $(basename "$program"), round $round of $rounds"
        result="$directory/$(basename "$program").$round.json"
        # The framework's notes about the machine go to a file, shown only when it fails.
        "$program" --benchmark_format=json "${settings[@]}" >"$result" 2>"$directory/notes" ||
            { cat "$directory/notes" >&2; exit 1; }
        results+=("$result")
    done
done

report=(python3 "$root/scripts/bench_report.py" --targets "$root/bench/targets.json")
if $quick; then
    "${report[@]}" "${results[@]}"
else
    "${report[@]}" --output "$root/docs/performance.md" "${results[@]}"
    cat "$root/docs/performance.md"
fi
