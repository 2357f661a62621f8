#!/usr/bin/env bash
# Compares what the shared library exports with abi/exports.txt: nothing missing, nothing extra.
# scripts/lib/check_exports.sh LIBRARY [--update]
set -euo pipefail
scripts="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
list="$scripts/../../abi/exports.txt"
if [ "${2:-}" = --update ]; then
    "$scripts/list_exports.sh" "$1" >"$list"
    exit 0
fi
diff -u "$list" <("$scripts/list_exports.sh" "$1") || { echo "exports differ from abi/exports.txt" >&2; exit 1; }
