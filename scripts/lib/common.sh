# Sourced by every script: strict shell, the project's directory, one way to say things.
# shellcheck shell=bash
set -euo pipefail

# Every script's help is the comment that it begins with.
case "${1:-}" in
    -h | --help)
        sed -nE '2,${/^#/!q; s/^# ?//p}' "$0"
        exit 0
        ;;
esac

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
jobs="${TNROBOT_JOBS:-$(nproc)}"
cd "$root"

say() { printf '\n== %s\n' "$*"; }

# quietly COMMAND...: shows what a command says only when it fails.
quietly() {
    local output
    output="$("$@" 2>&1)" || { printf '%s\n' "$output"; return 1; }
}

# A compiler cache is used where there is one; headers that are compiled ahead need its leave.
if command -v ccache >/dev/null; then
    export CMAKE_CXX_COMPILER_LAUNCHER="${CMAKE_CXX_COMPILER_LAUNCHER-ccache}"
    export CCACHE_SLOPPINESS="${CCACHE_SLOPPINESS-pch_defines,time_macros}"
fi

# compile PRESET [ARGUMENT...]: builds what is configured. A terminal sees how far it is, a file only
# what goes wrong.
compile() {
    local preset="$1" show=quietly
    shift
    [ ! -t 1 ] || show=""
    $show cmake --build --preset "$preset" -j "$jobs" "$@"
}

# build PRESET [CMAKE-ARGUMENT...]: configures and builds one preset.
build() {
    local preset="$1"
    shift
    say "building: $preset"
    quietly cmake --preset "$preset" "$@"
    compile "$preset"
}
