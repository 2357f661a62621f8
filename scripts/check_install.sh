#!/usr/bin/env bash
# Uses the library as strangers' projects do: installed and moved, with find_package and with
# pkg-config, and as a part of the project, with add_subdirectory and with FetchContent.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"
"$root/scripts/setup.sh" checks

build release
directory="$(mktemp -d)"
trap 'rm -rf "$directory"' EXIT

# consume NAME [CMAKE-ARGUMENT...]: builds and runs a project of tests/consumer.
consume() {
    local name="$1"
    shift
    cmake -S "$root/tests/consumer/$name" -B "$directory/$name" "$@" >/dev/null
    cmake --build "$directory/$name" -j "$jobs" >/dev/null
    "$directory/$name/consumer"
}

# expect_installed NAME FILE...: what cmake --install of that project installs.
expect_installed() {
    local name="$1"
    shift
    cmake --install "$directory/$name" --prefix "$directory/$name/installed" >/dev/null
    diff <(printf '%s\n' "$@") <(cd "$directory/$name/installed" && find . ! -type d | sort)
}

say "installing, moving and consuming"
cmake --install "$root/build/release" --prefix "$directory/first" >/dev/null
mv "$directory/first" "$directory/moved"
consume installed -DCMAKE_PREFIX_PATH="$directory/moved"

say "consuming with pkg-config"
pc="$(find "$directory/moved" -name TnRobotKernel.pc)"
export PKG_CONFIG_PATH="${pc%/*}"
# shellcheck disable=SC2046  # the flags are words
c++ -std=c++17 "$root/tests/consumer/main.cpp" -o "$directory/with-pkg-config" $(pkg-config --cflags --libs TnRobotKernel)
LD_LIBRARY_PATH="$(pkg-config --variable=libdir TnRobotKernel)" "$directory/with-pkg-config"
readelf -d "$(pkg-config --variable=libdir TnRobotKernel)/libTnRobotKernel.so.1" | grep -q 'SONAME.*\[libTnRobotKernel.so.1\]'

say "consuming the sources with add_subdirectory"
consume subdirectory
expect_installed subdirectory ./bin/consumer

say "consuming the sources with FetchContent"
consume fetch
expect_installed fetch ./bin/consumer
