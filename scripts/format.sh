#!/usr/bin/env bash
# Formats every source of ours; with --check only says whether something would change.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"
"$root/scripts/setup.sh" checks

mode=(-i)
[ "${1:-}" = --check ] && mode=(--dry-run --Werror)
git ls-files -z --cached --others --exclude-standard '*.h' '*.cpp' | xargs -0 clang-format "${mode[@]}"
