#!/usr/bin/env bash
# Fuzzes what reads untrusted input: scripts/fuzz.sh [SECONDS], 60 for each target by default.
# scripts/fuzz.sh --replay only runs the seeds and past findings.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
"$root/scripts/setup.sh" all

build fuzz
for target in "$root"/build/fuzz/fuzz/fuzz_*; do
    [ -x "$target" ] && [ -f "$target" ] || continue
    name="$(basename "$target")"
    seeds="$root/fuzz/seeds/${name#fuzz_}"
    # A picture may claim any size, and its surface is as large; what is beyond that would show.
    limits=(-rss_limit_mb=8192 -timeout=20)
    say "$name"
    if [ "${1:-}" = --replay ]; then
        "$target" -runs=0 "${limits[@]}" "$seeds"
    else
        mkdir -p "$root/build/fuzz/corpus/$name"
        "$target" -max_total_time="${1:-60}" "${limits[@]}" "$root/build/fuzz/corpus/$name" "$seeds"
    fi
done
