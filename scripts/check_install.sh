#!/usr/bin/env bash
# Installs the release build, moves the install tree, and builds a stranger's project against it,
# once with find_package and once with pkg-config.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
"$root/scripts/setup.sh" all

build release
say "installing, moving and consuming"
directory="$(mktemp -d)"
trap 'rm -rf "$directory"' EXIT
cmake --install "$root/build/release" --prefix "$directory/first" >/dev/null
mv "$directory/first" "$directory/moved"

cmake -S "$root/tests/consumer" -B "$directory/with-cmake" -DCMAKE_PREFIX_PATH="$directory/moved" >/dev/null
cmake --build "$directory/with-cmake" >/dev/null
"$directory/with-cmake/consumer"

pc="$(find "$directory/moved" -name TnRobotKernel.pc)"
export PKG_CONFIG_PATH="${pc%/*}"
# shellcheck disable=SC2046  # the flags are words
c++ -std=c++17 "$root/tests/consumer/main.cpp" -o "$directory/with-pkg-config" $(pkg-config --cflags --libs TnRobotKernel)
LD_LIBRARY_PATH="$(pkg-config --variable=libdir TnRobotKernel)" "$directory/with-pkg-config"
readelf -d "$(pkg-config --variable=libdir TnRobotKernel)/libTnRobotKernel.so.1" | grep -q 'SONAME.*\[libTnRobotKernel.so.1\]'
