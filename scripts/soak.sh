#!/usr/bin/env bash
# Uses the whole library from four threads for some minutes and watches that memory, descriptors and
# threads stay level: scripts/soak.sh [--rough] [MINUTES] [PRESET], 1 and release by default; 0.25 will do.
# --rough also forks, opens and closes a plug-in, and refuses memory (in builds without sanitizers and checks) and
# threads for seconds at a time.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"
rough=()
if [ "${1:-}" = --rough ]; then
    rough=(--rough)
    shift
fi
minutes="${1:-1}"
preset="${2:-release}"
"$root/scripts/setup.sh" test

log="$(mktemp)"
trap 'rm -f "$log"' EXIT
say "building: $preset"
cmake --preset "$preset" ${TNROBOT_CMAKE_ARGUMENTS:-} >"$log" 2>&1 || { cat "$log"; exit 1; }
cmake --build --preset "$preset" -j "$jobs" --target tnrobot_soak

say "soaking for $minutes minutes: $preset ${rough[*]}"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:${TSAN_OPTIONS:-}"
# One that hangs is ended: the run takes its minutes and, to begin and to end, a little more.
limit="$(awk -v minutes="$minutes" 'BEGIN { printf "%d", minutes * 60 + 120 }')"
timeout --signal=ABRT "$limit" "$root/build/$preset/tests/tnrobot_soak" "${rough[@]}" "$minutes"
