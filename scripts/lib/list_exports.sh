#!/usr/bin/env bash
# Prints what a build of the shared library exports, one name a line, sorted: the form of
# abi/exports.txt. Names that the standard library's headers leave in every C++ library are not
# ours and are left out.
# Every name belongs to the version of src/TnRobotKernel.map; one that does not says so.
# scripts/lib/list_exports.sh LIBRARY
set -euo pipefail
version=TNROBOTKERNEL_1.0
nm -DC --defined-only "$1" | cut -d' ' -f3- | grep -vx "$version" |
    sed -e "s/@@$version\$//; t" -e 's/$/ [not in the version]/' |
    # What counts is the name itself, not the types of its arguments.
    awk '{ name = $0; sub(/\(.*/, "", name) } name !~ /(^| )(std|__gnu_cxx)::/ && $0 !~ /^decltype .* std::/' |
    grep -vE '^(_init|_fini|__bss_start|_edata|_end)$' |
    LC_ALL=C sort -u
