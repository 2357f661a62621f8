#!/usr/bin/env bash
# Compares the instructions of hot calls with bench/instructions.json, where 10 % more is a failure:
# scripts/check_instructions.sh [--update]. --update writes the table; say in the commit why it grew.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

case "${1:-}" in
    "" | --update) ;;
    *) echo "usage: $0 [--update]" >&2; exit 2 ;;
esac
"$root/scripts/setup.sh" bench
build bench ${TNROBOT_CMAKE_ARGUMENTS:-}

directory="$(mktemp -d)"
trap 'rm -rf "$directory"' EXIT
say "counting instructions"
# The C library chooses among variants of a function by the processor: without the newer extensions
# every machine counts the same one.
GLIBC_TUNABLES="glibc.cpu.hwcaps=-AVX512VL,-AVX512BW,-AVX512F,-AVX2,-AVX,-ERMS,-FSRM" \
    valgrind --tool=callgrind --collect-atstart=no --callgrind-out-file="$directory/counts" \
    "$root/build/bench/bench/tnrobot_instruction_counts" >"$directory/log" 2>&1 ||
    { cat "$directory/log" >&2; exit 1; }
python3 "$root/scripts/lib/instruction_table.py" "$root/bench/instructions.json" "$directory" "$@"
