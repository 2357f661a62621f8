#!/usr/bin/env bash
# Prints what a build of the shared library exports, one name a line, sorted: the form of
# abi/exports.txt. Names that the standard library's headers leave in every C++ library are not
# ours and are left out.
# scripts/list_exports.sh LIBRARY
set -euo pipefail
nm -DC --defined-only "$1" | cut -d' ' -f3- |
    # What counts is the name itself, not the types of its arguments.
    awk '{ name = $0; sub(/\(.*/, "", name) } name !~ /(^| )(std|__gnu_cxx)::/ && $0 !~ /^decltype .* std::/' |
    grep -vE '^(_init|_fini|__bss_start|_edata|_end)$' |
    LC_ALL=C sort -u
