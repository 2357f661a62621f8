#!/usr/bin/env bash
# Line coverage of src/ and include/ by the whole suite.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
"$root/scripts/test.sh" coverage
dpkg-query -W gcovr >/dev/null 2>&1 || { echo "install gcovr to see the report"; exit 1; }
gcovr --root "$root" --filter "$root/src/" --filter "$root/include/" --exclude-throw-branches "$root/build/coverage"
