#!/usr/bin/env bash
# Everything that must hold before a change lands, in the words a person would type.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
export TNROBOT_CMAKE_ARGUMENTS="-DTNROBOT_WARNINGS_AS_ERRORS=ON"

"$root/scripts/test.sh"
"$root/scripts/setup.sh" all

say "formatting"
"$root/scripts/format.sh" --check
"$root/scripts/sync_docs.py" --check
"$root/scripts/docs.sh"

say "the full load on tasks"
TNROBOT_FULL_SOAK=1 "$root/build/release/tests/tnrobot_shared_tests" --gtest_brief=1 --gtest_filter='TaskPoolLoad.*'
"$root/scripts/soak.sh" 0.5

"$root/scripts/demo.sh"
"$root/scripts/check_install.sh"
if [ "$(id -u)" -eq 0 ]; then
    packages="$(mktemp -d)"
    trap 'rm -rf "$packages"' EXIT
    "$root/scripts/package.sh" --test --keep "$packages/system"
    "$root/scripts/check_examples.sh" "$packages/system/usr"
else
    "$root/scripts/package.sh"
    "$root/scripts/check_examples.sh"
fi
"$root/scripts/check_abi.sh"

"$root/scripts/test.sh" asan
"$root/scripts/test.sh" tsan
"$root/scripts/soak.sh" 0.25 tsan
"$root/scripts/coverage.sh"

build clang -DTNROBOT_WARNINGS_AS_ERRORS=ON
"$root/scripts/tidy.sh"

"$root/scripts/fuzz.sh" 10
"$root/scripts/bench.sh" --quick
"$root/scripts/check_instructions.sh"
say "all checks passed"
