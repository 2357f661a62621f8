#!/usr/bin/env bash
# Installs the packages of scripts/package.sh in a clean Debian system below a directory of its own
# and uses them there: scripts/lib/check_packages.sh [--keep DIRECTORY]. Needs root, for chroot.
#
# --keep DIRECTORY leaves the system there, with the packages installed: DIRECTORY/usr is then a
# prefix to build against. Without it the system goes away again.
#
# The clean system itself, Debian with a compiler, is fetched once and kept as
# build/clean-system.tar. TNROBOT_MIRROR names the mirror to fetch from. Where none can be reached
# the packages are unpacked into an empty directory, and used from there by this machine's compiler.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

usage() { echo "usage: $0 [--keep DIRECTORY]" >&2; exit 2; }
if [ $# -eq 0 ]; then
    system="$(mktemp -d)"
    trap 'rm -rf "$system"' EXIT
elif [ $# -eq 2 ] && [ "$1" = --keep ]; then
    [ ! -e "$2" ] || { echo "$2 is there already" >&2; exit 1; }
    mkdir -p "$2"
    system="$(cd "$2" && pwd)"
else
    usage
fi
[ "$(id -u)" -eq 0 ] || { echo "$0 needs root: it works in a system of its own, by chroot" >&2; exit 1; }
"$root/scripts/setup.sh" package

# within COMMAND...: runs it in the clean system.
within() {
    chroot "$system" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"
}

fetch_system() {
    local tar="$root/build/clean-system.tar" fetched
    [ ! -f "$tar" ] || return 0
    say "fetching a clean system"
    mkdir -p "$root/build"
    fetched="$(mktemp -d)"
    chmod 755 "$fetched"
    quietly debootstrap --variant=minbase --include=g++,cmake,make,pkg-config \
        bookworm "$fetched" "${TNROBOT_MIRROR:-http://deb.debian.org/debian}" || return 1
    rm -f "$fetched"/var/cache/apt/archives/*.deb
    tar -C "$fetched" -cf "$tar.part" .
    mv "$tar.part" "$tar"
    rm -rf "$fetched"
}

# Everything but what apt and dpkg keep for themselves.
list_files() {
    (cd "$system" && find . \( -path ./proc -o -path ./sys -o -path ./dev -o -path ./tmp -o -path ./var/log \
        -o -path ./var/cache -o -path ./var/lib/apt -o -path ./var/lib/dpkg \) -prune -o -print | sort)
}

install_packages() {
    quietly within sh -c 'apt-get install -y --no-install-recommends /tmp/packages/*.deb'
}

# Programs find the headers, the library and the logger where the compiler and the loader look anyway.
use_library() {
    cp -r "$root/tests/consumer" "$system/tmp/consumer"
    quietly within cmake -S /tmp/consumer/installed -B /tmp/consumer/build
    quietly within cmake --build /tmp/consumer/build
    within /tmp/consumer/build/consumer

    # shellcheck disable=SC2016  # the system's own shell asks pkg-config
    within sh -c 'c++ /tmp/consumer/main.cpp $(pkg-config --cflags --libs TnRobotKernel) -o /tmp/consumer/with-pkg-config'
    within /tmp/consumer/with-pkg-config

    # shellcheck disable=SC2016
    within sh -c 'c++ /tmp/consumer/logger.cpp $(pkg-config --cflags --libs TnRobotKernel) -o /tmp/consumer/logger'
    within env TNROBOT_LOG_FILE= /tmp/consumer/logger
    rm -rf "$system/tmp/consumer"
}

# show_lines GDB...: the packages of debug symbols have gdb know where each function of ours begins; it finds them
# by the build id of what it looks at.
show_lines() {
    local -A known=(
        [TnCreateRobotValueDataGroup]="libTnRobotKernel.so.1 src/values/TnRobotDataValueGroup.cpp"
        [TnCreateRobotLogger]="libTnRobotLog.so logger/TnCreateRobotLogger.cpp"
        [main]="tnrobot-inspect tools/inspect/main.cpp"
    )
    local name file source shown
    for name in "${!known[@]}"; do
        read -r file source <<<"${known[$name]}"
        file="$(cd "$system" && find usr/bin usr/lib -name "$file" -not -path '*/debug/*')"
        shown="$("$@" -batch -ex "info line $name" "/$file" 2>&1)"
        grep -q "Line [0-9]* of \"$source\"" <<<"$shown" || { printf '%s\n' "$shown" >&2; return 1; }
    done
}

# This machine's gdb, for files below the directory of the system.
outer_gdb() {
    local arguments=("${@:1:$#-1}")
    gdb -iex "set debug-file-directory $system/usr/lib/debug" "${arguments[@]}" "$system${*: -1}"
}

# Without a clean system: what the packages contain is used from where it was unpacked.
use_unpacked() {
    local package libraries
    for package in "$root"/build/packages/*.deb; do
        dpkg-deb -x "$package" "$system"
    done
    libraries="$(dirname "$(find "$system" -name libTnRobotKernel.so.1)")"
    cmake -S "$root/tests/consumer/installed" -B "$system/tmp/build" -DCMAKE_PREFIX_PATH="$system/usr" >/dev/null
    cmake --build "$system/tmp/build" >/dev/null
    "$system/tmp/build/consumer"
    # shellcheck disable=SC2046  # the flags are words
    c++ "$root/tests/consumer/main.cpp" -o "$system/tmp/with-pkg-config" \
        $(PKG_CONFIG_PATH="$libraries/pkgconfig" pkg-config --cflags --libs TnRobotKernel)
    LD_LIBRARY_PATH="$libraries" "$system/tmp/with-pkg-config"
    LD_LIBRARY_PATH="$libraries" "$system/usr/bin/tnrobot-inspect" --version
    if command -v gdb >/dev/null; then
        show_lines outer_gdb
    fi
    rm -r "$system/tmp"
}

if ! fetch_system; then
    say "no clean system can be fetched: using the packages unpacked"
    use_unpacked
    exit
fi
say "a clean system"
tar -C "$system" -xf "$root/build/clean-system.tar"
cp /etc/resolv.conf "$system/etc/resolv.conf"
mkdir "$system/tmp/packages"
cp "$root"/build/packages/*.deb "$system/tmp/packages"
quietly within apt-get update
# What the Python package is tried with.
quietly within apt-get install -y --no-install-recommends python3-matplotlib python3-numpy
list_files >"$system/tmp/before"

say "installing and purging"
install_packages
mapfile -t packages < <(for package in "$root"/build/packages/*.deb; do dpkg-deb -f "$package" Package; done)
quietly within apt-get purge -y --autoremove "${packages[@]}"
list_files | diff "$system/tmp/before" - || { echo "purging does not leave the system as it was" >&2; exit 1; }

say "installing and using"
install_packages
within dpkg-query -W "${packages[@]}"
use_library
within tnrobot-inspect --version
within tnrobot-inspect -h >/dev/null
say "debug symbols"
quietly within apt-get install -y --no-install-recommends gdb
show_lines within gdb
within python3 /usr/share/doc/libtnrobotkernel-doc/examples/python/inspect_scene.py --output /tmp/scene
rm -r "$system/tmp/scene"
rm -r "$system/tmp/packages" "$system/tmp/before"
[ $# -eq 0 ] || say "the system stays in $system"
