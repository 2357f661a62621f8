#!/usr/bin/env bash
# Prints what a build of the shared library exports, one name a line, sorted: the form of
# abi/exports.txt. Names that the standard library's headers leave in every C++ library are not
# ours and are left out.
# scripts/list_exports.sh LIBRARY
set -euo pipefail
nm -DC --defined-only "$1" | cut -d' ' -f3- |
    grep -vE '(^| )(std|__gnu_cxx)::|^(typeinfo|typeinfo name|vtable) for (std|__gnu_cxx)::|^(_init|_fini|__bss_start|_edata|_end)$|^__(asan|ubsan|tsan|sanitizer|gcov|llvm|odr_asan)|^_?_?gcov|^mangled_path' |
    LC_ALL=C sort -u
