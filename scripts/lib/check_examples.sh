#!/usr/bin/env bash
# Builds the examples against an installed library, from the installed sources where there are some, and
# compares what the guides' programs print: scripts/lib/check_examples.sh [PREFIX]. Without a prefix the
# release build is installed first.
if [ $# -gt 0 ]; then
    prefix="$(realpath -- "$1")" # before the directory changes
fi
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

directory="$(mktemp -d)"
trap 'rm -rf "$directory"' EXIT
if [ -z "${prefix:-}" ]; then
    "$root/scripts/setup.sh" build
    build demo
    prefix="$directory/installed"
    cmake --install "$root/build/demo" --prefix "$prefix" >/dev/null
fi

say "the examples against $prefix"
examples="$prefix/share/doc/libtnrobotkernel-doc/examples"
[ -d "$examples" ] || examples="$root/examples"
cmake -S "$examples" -B "$directory/build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$directory/build" -j "$jobs" >/dev/null
ctest --test-dir "$directory/build" --output-on-failure -j "$jobs"

# The first program once more, as its reader puts it together.
cp -r "$root/examples/guide/first_project" "$directory/first"
cp "$root/examples/guide/first_program.cpp" "$directory/first/main.cpp"
cmake -S "$directory/first" -B "$directory/first/build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$directory/first/build" >/dev/null
(cd "$directory/first" && build/settings) | diff "$root/examples/guide/expected/first_program.txt" -
