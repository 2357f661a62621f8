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
    say "$name"
    if [ "${1:-}" = --replay ]; then
        "$target" -runs=0 -rss_limit_mb=1024 "$seeds"
    else
        mkdir -p "$root/build/fuzz/corpus/$name"
        "$target" -max_total_time="${1:-60}" -rss_limit_mb=1024 -timeout=5 "$root/build/fuzz/corpus/$name" "$seeds"
    fi
done
