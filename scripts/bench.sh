#!/usr/bin/env bash
# Measures the library beside its peers: scripts/bench.sh [AREA] [--quick], where an area is memory,
# values, archive, image, concurrency, work, pipeline, startup, utils or ptr, and all of them without one.
#
# Results are kept in build/bench/results. As soon as every area has some, the whole report and its plots
# are written to build/bench/report, and what is worth keeping of it to docs/performance.md and docs/plots;
# an area measured alone replaces its own part.
# --quick only shows that every case runs: short, printed, nothing kept. Missed targets are reported,
# never an error: timings depend on the machine.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

areas=(memory values archive image concurrency work pipeline startup utils ptr)
area=""
quick=false
for argument in "$@"; do
    if [ "$argument" = --quick ]; then
        quick=true
    elif [[ -z "$area" && " ${areas[*]} " == *" $argument "* ]]; then
        area="$argument"
    else
        echo "usage: $0 [${areas[*]}] [--quick]" >&2
        exit 2
    fi
done
"$root/scripts/setup.sh" bench

build bench ${TNROBOT_CMAKE_ARGUMENTS:-}

# A library that is loaded late finds room for its thread-local data only if the loader keeps some.
export GLIBC_TUNABLES="glibc.rtld.optional_static_tls=65536"

# Files lie in memory where there is room, so that the programs are compared and not the disk.
if [ -d /dev/shm ] && [ "$(df --output=avail -k /dev/shm | tail -n 1)" -gt $((4 << 20)) ]; then
    export TMPDIR=/dev/shm
fi

results="$root/build/bench/results"
if $quick; then
    results="$(mktemp -d)"
    trap 'rm -rf "$results"' EXIT
fi
mkdir -p "$results"

# measure PROGRAM RESULT ARGUMENT...: the framework's notes about the machine are shown only on failure.
measure() {
    local program="$1" result="$2" notes
    shift 2
    notes="$(mktemp)"
    say "measuring: $(basename "$result" .json)"
    if "$program" --benchmark_format=json "$@" >"$result.part" 2>"$notes"; then
        mv "$result.part" "$result"
        rm -f "$notes"
    else
        cat "$notes" >&2
        rm -f "$notes" "$result.part"
        return 1
    fi
}

for program in "$root"/build/bench/bench/"tnrobot_$area"*_bench; do
    name="$(basename "$program" _bench)"
    result="$results/${name#tnrobot_}"
    if $quick; then
        measure "$program" "$result.json" --quick --benchmark_min_time=0.001
    else
        # The parties of a case take turns, so that a busy moment of the machine meets all of them.
        measure "$program" "$result.json" --benchmark_filter=-Scaling --benchmark_min_time=0.1 \
            --benchmark_repetitions=5 --benchmark_enable_random_interleaving=true
        # What comes near its limit is looked at longer, before anybody believes that it misses it.
        rm -f "$result.near.json"
        near="$(python3 "$root/scripts/lib/bench_report.py" --targets "$root/bench/targets.json" --near "$result.json")"
        if [ -n "$near" ]; then
            measure "$program" "$result.near.json" --benchmark_filter="$near" --benchmark_min_time=0.1 \
                --benchmark_repetitions=15 --benchmark_enable_random_interleaving=true
        fi
        # Growing sizes go one after the other, in a process of their own: what a large case leaves in
        # the pools would slow the small ones down.
        if grep -q '^Scaling' <<<"$("$program" --benchmark_list_tests)"; then
            measure "$program" "$result.scaling.json" --benchmark_filter=^Scaling --benchmark_min_time=0.05 \
                --benchmark_repetitions=3
        fi
    fi
done

report=(python3 "$root/scripts/lib/bench_report.py" --targets "$root/bench/targets.json")
if $quick; then
    "${report[@]}" --partial "$results"/*.json
    say "every case runs; the times of a quick run mean nothing"
    exit
fi

# Only those of today's areas: others may be left from earlier.
measured=()
for each in "${areas[@]}"; do
    if [ ! -f "$results/$each.json" ]; then
        say "not written: $each has not been measured yet, so docs/performance.md stays as it is"
        "${report[@]}" --partial "$results"/*.json
        exit
    fi
    measured+=("$results/$each"*.json)
done
whole="$root/build/bench/report"
mkdir -p "$whole"
"${report[@]}" --output "$whole/performance.md" --page "$root/docs/performance.md" "${measured[@]}"
# Debian's own interpreter is the one that has Debian's matplotlib.
/usr/bin/python3 "$root/scripts/lib/bench_plots.py" "$whole/plots" "$results"/*.scaling.json
for plot in "$root"/docs/plots/*.svg; do
    cp "$whole/plots/$(basename "$plot")" "$plot"
done
cat "$whole/performance.md"
