#!/usr/bin/env bash
# Installs the Debian packages that are missing: scripts/setup.sh [build|test|bench|all].
#   build  compiler, CMake, libraries        (enough for scripts/demo.sh)
#   test   and the test framework            (enough for scripts/test.sh)
#   bench  or the benchmark framework, peers (enough for scripts/bench.sh)
#   all    and clang, its tools, all of them (enough for scripts/ci.sh)
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

packages=(g++ cmake ninja-build libjpeg62-turbo-dev)
benchmarks=(libbenchmark-dev python3 python3-matplotlib valgrind)
# Only measured beside: benchmarks leave out what is missing, so whatever a system does not have is
# passed over.
peers=(libmimalloc-dev libjemalloc-dev libtbb-dev libcereal-dev libmsgpack-cxx-dev nlohmann-json3-dev
       libopencv-core-dev libopencv-imgcodecs-dev libopencv-imgproc-dev libturbojpeg0-dev libssl-dev libboost-dev
       pkg-config)
optional=()
case "${1:-all}" in
    build) ;;
    test) packages+=(libgtest-dev binutils libssl-dev) ;;
    bench) packages+=("${benchmarks[@]}"); optional=("${peers[@]}") ;;
    all) packages+=(libgtest-dev binutils libssl-dev clang clang-format clang-tidy libclang-rt-14-dev
                    pkg-config git "${benchmarks[@]}"); optional=("${peers[@]}") ;;
    *) echo "usage: $0 [build|test|bench|all]" >&2; exit 2 ;;
esac

installed() {
    dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q '^install ok installed'
}

missing=()
for package in "${packages[@]}"; do
    installed "$package" || missing+=("$package")
done
wanted=()
for package in "${optional[@]}"; do
    installed "$package" || wanted+=("$package")
done
[ $((${#missing[@]} + ${#wanted[@]})) -eq 0 ] && exit 0

say "installing: ${missing[*]} ${wanted[*]}"
as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)
install() {
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "$@"
}
"${as_root[@]}" apt-get update -q || [ ${#missing[@]} -eq 0 ]
[ ${#missing[@]} -eq 0 ] || install "${missing[@]}"
for package in "${wanted[@]}"; do
    install "$package" || say "left out: $package cannot be installed"
done
