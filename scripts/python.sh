#!/usr/bin/env bash
# Builds the Python package and runs its tests, the check of its types among them:
# scripts/python.sh [release|asan|debug [PYTEST-ARGUMENT...]], release by default.
#   asan   with the library and the module under AddressSanitizer, preloaded into the interpreter
#   debug  with Debian's debug interpreter, which checks reference counts, and the debug build
# The package is in build/PRESET/python afterwards: PYTHONPATH=build/release/python /usr/bin/python3
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

preset="${1:-release}"
shift || true
interpreter=/usr/bin/python3
case "$preset" in
    release) ;;
    asan | debug) [ "$preset" = asan ] || interpreter=/usr/bin/python3-dbg ;;
    *) echo "usage: $0 [release|asan|debug [PYTEST-ARGUMENT...]]" >&2; exit 2 ;;
esac
"$root/scripts/setup.sh" python
[ "$preset" != asan ] || "$root/scripts/setup.sh" asan

say "building: $preset, the Python package"
# shellcheck disable=SC2086  # the arguments are words
quietly cmake --preset "$preset" ${TNROBOT_CMAKE_ARGUMENTS:-} -DTNROBOT_BUILD_PYTHON=ON -DPython3_EXECUTABLE="$interpreter"
compile "$preset" --target tnrobot_python tnrobot_python_golden

say "testing: $preset, the Python package"
export PYTHONPATH="$root/build/$preset/python" PYTHONDONTWRITEBYTECODE=1
export TNROBOT_GOLDEN_PROGRAM="$root/build/$preset/python/tnrobot_python_golden"
# A test that hangs is ended, and says where it was.
run=(timeout --signal=ABRT 1200 "$interpreter" -X faulthandler -m pytest -q -p no:cacheprovider "$@" python/tests)
if [ "$preset" != asan ]; then
    exec "${run[@]}"
fi
# An interpreter leaves much behind at its end on purpose, so leaks are looked for by the tests themselves.
export ASAN_OPTIONS="detect_leaks=0:strict_string_checks=1:${ASAN_OPTIONS:-}"
export UBSAN_OPTIONS="print_stacktrace=1:${UBSAN_OPTIONS:-}"
runtime="$(clang++ -print-file-name=libclang_rt.asan-x86_64.so)"
exec env LD_PRELOAD="$runtime" "${run[@]}"
