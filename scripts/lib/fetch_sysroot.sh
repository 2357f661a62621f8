#!/usr/bin/env bash
# Unpacks Debian's arm64 packages that the library, its tests and its programs are built with into
# build/arm64-sysroot: scripts/lib/fetch_sysroot.sh. scripts/setup.sh arm64 calls it.
#
# They are fetched by an apt with a state of its own: this machine's packages stay what they are, and
# root is not needed. What is there already is left as it is. TNROBOT_MIRROR names the mirror to
# fetch from.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

# The C++ library of the cross compiler's own version.
packages=(libc6-dev "libstdc++-$(aarch64-linux-gnu-g++ -dumpversion)-dev" libjpeg62-turbo-dev libgtest-dev libssl-dev
          libspdlog-dev libcli11-dev nlohmann-json3-dev)
suite=bookworm
mirror="${TNROBOT_MIRROR:-http://deb.debian.org/debian}"
sysroot="$root/build/arm64-sysroot"
wanted="$sysroot: $suite ${packages[*]}"
[ "$(cat "$sysroot/packages" 2>/dev/null)" != "$wanted" ] || exit 0

work="$root/build/arm64-sysroot.part"
unpacked="$work/sysroot"
database="$unpacked/var/lib/dpkg"
rm -rf "$work"
mkdir -p "$work"/{etc,lists/partial,cache/archives/partial} "$database/info"
trap 'rm -rf "$work"' EXIT

# An apt that knows no installed package and only arm64. The machine's way to the network is its too.
prepare_apt() {
    echo "deb [arch=arm64 signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror $suite main" \
        >"$work/etc/sources.list"
    : >"$work/status"
    apt-config dump | { grep -iE '^Acquire::(https?|retries)' || true; } >"$work/apt.conf"
    cat >>"$work/apt.conf" <<CONFIGURATION
APT::Architecture "arm64";
APT::Architectures { "arm64"; };
APT::Install-Recommends "false";
APT::Sandbox::User "root";
Acquire::Languages "none";
Dir::State "$work";
Dir::State::lists "$work/lists";
Dir::State::status "$work/status";
Dir::Cache "$work/cache";
Dir::Etc "$work/etc";
Dir::Etc::sourcelist "$work/etc/sources.list";
Dir::Etc::main "/dev/null";
Dir::Etc::parts "/dev/null";
Dir::Etc::sourceparts "/dev/null";
Dir::Etc::preferencesparts "/dev/null";
Dir::Etc::trustedparts "/dev/null";
CONFIGURATION
    export APT_CONFIG="$work/apt.conf"
}

# unpack PACKAGE-FILE: its files, and what dpkg would know of it: dpkg-shlibdeps asks which package,
# of which version, a library belongs to, by the path at which it has found the library.
unpack() {
    local name kept
    name="$(dpkg-deb -f "$1" Package)"
    [ "$(dpkg-deb -f "$1" Multi-Arch)" != same ] || name="$name:arm64"
    dpkg-deb -x "$1" "$unpacked"
    kept="$database/info/$name"
    dpkg-deb --fsys-tarfile "$1" | tar -t | sed -e 's|/$||' -e "s|^\.|$sysroot|" >"$kept.list"
    for part in shlibs symbols; do
        dpkg-deb -I "$1" "$part" >"$kept.$part" 2>/dev/null || rm -f "$kept.$part"
    done
    { dpkg-deb -f "$1" Package Version Architecture Multi-Arch Depends Provides Maintainer Description |
        sed 's|^Package:.*|&\nStatus: install ok installed|'; echo; } >>"$database/status"
}

download() {
    quietly apt-get update -q -o APT::Update::Error-Mode=any &&
        quietly apt-get install -q -y --download-only --no-install-recommends "${packages[@]}"
}

say "fetching arm64 packages"
prepare_apt
download || { echo "no arm64 packages from $mirror; TNROBOT_MIRROR may name another mirror" >&2; exit 1; }
unset APT_CONFIG
echo 1 >"$database/info/format"  # file names with architectures
for package in "$work"/cache/archives/*.deb; do
    unpack "$package"
done
# Links that name a place in the root mean the sysroot's.
find "$unpacked" -type l -lname '/*' -print0 | while IFS= read -r -d '' link; do
    ln -sfnr "$unpacked$(readlink "$link")" "$link"
done
echo "$wanted" >"$unpacked/packages"
rm -rf "$sysroot"
mv "$unpacked" "$sysroot"
