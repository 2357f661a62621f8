#!/usr/bin/env bash
# Installs the Debian packages that are missing: scripts/setup.sh [build|test|bench|coverage|all].
#   build  compiler, CMake, libraries        (enough for scripts/demo.sh)
#   test   and the test framework            (enough for scripts/test.sh)
#   bench  or the benchmark framework        (enough for scripts/bench.sh)
#   coverage  the tests' and gcovr           (enough for scripts/coverage.sh)
#   all    and clang, its tools, all of them (enough for scripts/ci.sh)
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

packages=(g++ cmake ninja-build libjpeg62-turbo-dev)
case "${1:-all}" in
    build) ;;
    test) packages+=(libgtest-dev binutils libssl-dev libspdlog-dev libcli11-dev nlohmann-json3-dev) ;;
    coverage) packages+=(libgtest-dev binutils libssl-dev gcovr) ;;
    bench) packages+=(libbenchmark-dev python3) ;;
    all) packages+=(libgtest-dev binutils libssl-dev libspdlog-dev libcli11-dev nlohmann-json3-dev mandoc
                    libbenchmark-dev clang clang-format clang-tidy libclang-rt-14-dev
                    pkg-config python3 git gcovr) ;;
    *) echo "usage: $0 [build|test|bench|coverage|all]" >&2; exit 2 ;;
esac

missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q '^install ok installed' || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

say "installing: ${missing[*]}"
as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)
"${as_root[@]}" apt-get update -q
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${missing[@]}"
