#!/usr/bin/env bash
# Installs the Debian packages that are missing:
# scripts/setup.sh [build|camera|test|asan|containers|libcxx|bench|coverage|docs|models|package|python|checks|arm64|all].
#   build     compiler, CMake, libraries           (enough for scripts/demo.sh)
#   camera    and GStreamer, for the example with a camera
#   test      and the test framework               (enough for scripts/test.sh)
#   asan      and clang                            (enough for scripts/test.sh asan)
#   containers  and the framework's sources        (enough for scripts/test.sh containers)
#   libcxx    and LLVM's C++ library, which cannot be beside GStreamer's development files
#                                                  (enough for scripts/test.sh libcxx)
#   bench     or the benchmark framework and peers (enough for scripts/bench.sh)
#   coverage  the tests' and gcovr                 (enough for scripts/coverage.sh)
#   docs      Doxygen and Graphviz                 (enough for scripts/docs.sh)
#   models    the model checker                    (enough for scripts/models.sh)
#   python    or pybind11, NumPy, pytest and mypy   (enough for scripts/python.sh)
#   package   or Debian's packaging programs       (enough for scripts/package.sh)
#   checks    all of these, and clang's tools      (enough for scripts/tidy.sh and format.sh)
#   arm64     or the cross compiler, an emulator, and the libraries of arm64, which go to
#             build/arm64-sysroot                  (enough for scripts/test.sh arm64)
#   all       all of these                         (enough for scripts/ci.sh)
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

wanted="${1:-all}"
packages=(g++ cmake ninja-build libjpeg62-turbo-dev)
# What the logger and the inspector stand on.
modules=(libspdlog-dev libcli11-dev nlohmann-json3-dev)
tests=(libgtest-dev binutils libssl-dev strace abigail-tools "${modules[@]}")
# What the Python package is built from, and what it is used and tried with.
binding=(pybind11-dev python3-dev python3-numpy)
python=("${binding[@]}" python3-pytest python3-mypy python3-matplotlib python3-pip python3-venv python3-setuptools
        python3-wheel)
packaging=(dpkg-dev file lintian debootstrap "${binding[@]}")
benchmarks=(libbenchmark-dev python3 python3-matplotlib valgrind)
# What the example with a camera stands on: its headers, and the elements of its test picture.
frames=(pkg-config libgstreamer-plugins-base1.0-dev gstreamer1.0-plugins-base)
sanitizing=(clang libclang-rt-14-dev)
checks=("${sanitizing[@]}" llvm clang-format clang-tidy pkg-config git gcovr mandoc gdb libopencv-core-dev "${frames[@]}")
documents=(doxygen graphviz python3 git)
modelling=(gcc libc6-dev spin)
cross=(g++-aarch64-linux-gnu binutils qemu-user debian-archive-keyring)
# Only measured beside: benchmarks leave out what is missing, so whatever a system does not have is
# passed over.
peers=(libmimalloc-dev libjemalloc-dev libtbb-dev libcereal-dev libmsgpack-cxx-dev nlohmann-json3-dev
       libopencv-core-dev libopencv-imgcodecs-dev libopencv-imgproc-dev libturbojpeg0-dev libssl-dev libboost-dev
       pkg-config)
optional=()
case "$wanted" in
    build) ;;
    camera) packages+=("${frames[@]}") ;;
    test) packages+=("${tests[@]}") ;;
    asan) packages+=("${tests[@]}" "${sanitizing[@]}") ;;
    containers) packages+=("${tests[@]}" googletest) ;;
    libcxx) packages+=("${tests[@]}" "${sanitizing[@]}" googletest libc++-dev libc++abi-dev) ;;
    coverage) packages+=("${tests[@]}" gcovr) ;;
    docs) packages=("${documents[@]}") ;;
    models) packages=("${modelling[@]}") ;;
    arm64) packages=(cmake ninja-build "${cross[@]}") ;;
    package) packages+=("${modules[@]}" "${packaging[@]}" "${documents[@]}") ;;
    python) packages+=("${tests[@]}" "${python[@]}"); optional=(python3-dbg python3-opencv python3-pil) ;;
    bench) packages+=("${benchmarks[@]}"); optional=("${peers[@]}") ;;
    checks | all)
        packages+=("${tests[@]}" "${benchmarks[@]}" "${checks[@]}" "${documents[@]}" "${packaging[@]}"
            "${python[@]}" "${modelling[@]}")
        [ "$wanted" = checks ] || packages+=("${cross[@]}")
        optional=("${peers[@]}" python3-dbg python3-opencv python3-pil)
        ;;
    *) echo "usage: $0 [build|camera|test|asan|containers|libcxx|bench|coverage|docs|models|package|python|checks|arm64|all]" >&2; exit 2 ;;
esac

# select_missing PACKAGE...: those of them that are not installed, into the array "missing".
select_missing() {
    missing=()
    local package
    for package in "$@"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q '^install ok installed' || missing+=("$package")
    done
}

# Without the superuser nothing can be installed: says what is missing and how to get it. Only what is
# needed ends the script.
name_missing() {
    select_missing "${packages[@]}"
    local needed=("${missing[@]}")
    select_missing "${optional[@]}"
    if [ ${#needed[@]} -eq 0 ]; then
        [ ${#missing[@]} -eq 0 ] || say "left out, as there is no sudo to install them: ${missing[*]}"
        return 0
    fi
    {
        echo "These packages are missing, and there is no sudo to install them: ${needed[*]}"
        echo "As the superuser: apt-get update && apt-get install --no-install-recommends ${needed[*]}"
    } >&2
    return 1
}

as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)
# Nothing that a user has put on the machine goes for it.
install() {
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends --no-remove "$@"
}

install_missing() {
    select_missing "${packages[@]}" "${optional[@]}"
    [ ${#missing[@]} -ne 0 ] || return 0
    if [ ${#as_root[@]} -ne 0 ] && ! command -v sudo >/dev/null; then
        name_missing
        return
    fi
    say "installing: ${missing[*]}"
    "${as_root[@]}" apt-get update -q || true
    install "${missing[@]}" && return 0

    # Something cannot be installed: what is needed must be, the rest is tried one by one.
    select_missing "${packages[@]}"
    [ ${#missing[@]} -eq 0 ] || install "${missing[@]}"
    select_missing "${optional[@]}"
    local package
    for package in "${missing[@]}"; do
        install "$package" || say "left out: $package cannot be installed"
    done
}

install_missing
case "$wanted" in
    arm64 | all) "$root/scripts/lib/fetch_sysroot.sh" ;;
esac
