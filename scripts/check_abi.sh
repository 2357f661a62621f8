#!/usr/bin/env bash
# Compares the binary interface of the library (slots, records, enumerators, names) with
# abi/TnRobotKernel.abi, which describes what has shipped: scripts/check_abi.sh [--update|--self-test].
#   --update     writes the description and abi/exports.txt anew, for an addition that is meant
#   --self-test  shows on a small sample that every kind of change is noticed
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

description="$root/abi/TnRobotKernel.abi"
directory="$(mktemp -d)"
trap 'rm -rf "$directory"' EXIT

# describe LIBRARY HEADERS OUTPUT: only what the public headers show, nothing of the machine or of
# the lines that declarations happen to stand on.
describe() {
    abidw --headers-dir "$2" --drop-private-types --drop-undefined-syms --exported-interfaces-only \
        --no-architecture --no-elf-needed --no-corpus-path --no-comp-dir-path --no-show-locs \
        --no-parameter-names --no-write-default-sizes --type-id-style hash "$1" |
        sed "s|path='[^']*src/|path='src/|" >"$3"
}

# compare OLD NEW: prints every difference, harmless ones too. 0 when there is none, 1 when NEW has
# names that OLD has not and nothing else differs, 2 otherwise.
compare() {
    abidiff --harmless --no-show-locs "$1" "$2" && return 0
    abidiff --harmless --no-show-locs --no-added-syms "$1" "$2" >/dev/null && return 1
    return 2
}

check() {
    local result=0
    compare "$description" "$1" || result=$?
    case $result in
        0) ;;
        1) cat >&2 <<'TEXT'
The library exports names that abi/TnRobotKernel.abi does not know. When they are meant:
  - a new function, or a new interface or record with its creation function, may be added, under a
    new version in src/TnRobotKernel.map that inherits from the last one;
  - never add a slot to an interface that has shipped, a field to a record, or a second function
    of a name whose address somebody may take.
Then run scripts/check_abi.sh --update, and commit what it has written with the reason.
TEXT
            ;;
        *) cat >&2 <<'TEXT'
The binary interface differs from what has shipped, so programs built earlier would break: slots,
records, enumerators, argument and result types and names stay as they are. Put the change back;
what is new goes into a new interface, record or function. Only an enumerator after the last one
may be accepted as it is (scripts/check_abi.sh --update), where every caller may meet a number
that it does not know.
TEXT
            ;;
    esac
    return $result
}

# sample OUTPUT [MACRO]: the description of the sample with one change.
sample() {
    local source="$root/tests/abi/sample"
    "${CXX:-c++}" -std=c++17 -g -fPIC -shared -fvisibility=hidden ${2:+-D"$2"} "$source/Sample.cpp" -o "$1.so"
    describe "$1.so" "$source" "$1"
}

self_test() {
    local failures=0 macro expected result
    sample "$directory/shipped"
    while read -r expected macro; do
        sample "$directory/changed" "$macro"
        result=0
        compare "$directory/shipped" "$directory/changed" >"$directory/differences" || result=$?
        if [ "$result" -eq "$expected" ]; then
            echo "ok: ${macro:-as it shipped}"
        else
            echo "FAILED: ${macro:-as it shipped}: $result instead of $expected"
            cat "$directory/differences"
            failures=$((failures + 1))
        fi
    done <<'CASES'
0
1 SAMPLE_NAME_ADDED
2 SAMPLE_NAME_REMOVED
2 SAMPLE_ARGUMENT_CHANGED
2 SAMPLE_RESULT_CHANGED
2 SAMPLE_SLOTS_SWAPPED
2 SAMPLE_SLOT_ADDED
2 SAMPLE_FIELDS_SWAPPED
2 SAMPLE_FIELD_ADDED
2 SAMPLE_ENUMERATOR_CHANGED
2 SAMPLE_ENUMERATOR_ADDED
CASES
    return "$failures"
}

case "${1:-}" in
    "" | --update) ;;
    --self-test) self_test; exit ;;
    *) echo "usage: $0 [--update|--self-test]" >&2; exit 2 ;;
esac

"$root/scripts/setup.sh" test
build abi ${TNROBOT_CMAKE_ARGUMENTS:-}
say "comparing the binary interface"
describe "$root/build/abi/src/libTnRobotKernel.so" "$root/include" "$directory/now.abi"
if [ "${1:-}" = --update ]; then
    cp "$directory/now.abi" "$description"
    "$root/scripts/lib/check_exports.sh" "$root/build/abi/src/libTnRobotKernel.so" --update
else
    check "$directory/now.abi"
fi
