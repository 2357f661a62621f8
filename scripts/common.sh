# Sourced by the other scripts: strict shell, the project's directory, one way to say things.
# shellcheck shell=bash
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
jobs="${TNROBOT_JOBS:-$(nproc)}"
cd "$root"

say() { printf '\n== %s\n' "$*"; }

# quietly COMMAND...: shows what a command says only when it fails.
quietly() {
    local output
    output="$("$@" 2>&1)" || { printf '%s\n' "$output"; return 1; }
}

# build PRESET [CMAKE-ARGUMENT...]: configures and builds one preset.
build() {
    local preset="$1"
    shift
    say "building: $preset"
    quietly cmake --preset "$preset" "$@"
    cmake --build --preset "$preset" -j "$jobs"
}
