# Sourced by the other scripts: strict shell, the project's directory, one way to say things.
# shellcheck shell=bash
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
jobs="${TNROBOT_JOBS:-$(nproc)}"
cd "$root"

say() { printf '\n== %s\n' "$*"; }

# build PRESET [CMAKE-ARGUMENT...]: configures and builds one preset.
build() {
    local preset="$1"
    shift
    local log
    log="$(mktemp)"
    say "building: $preset"
    cmake --preset "$preset" "$@" >"$log" 2>&1 || { cat "$log"; return 1; }
    rm -f "$log"
    cmake --build --preset "$preset" -j "$jobs"
}
