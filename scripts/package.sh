#!/usr/bin/env bash
# Makes the Debian packages, those of debug symbols (-dbgsym) too, into build/packages, and looks them over
# with lintian:
# scripts/package.sh [--test [--keep DIRECTORY] | --arch ARCHITECTURE].
#   --test  also installs them in a clean system and uses them there, see scripts/lib/check_packages.sh
#   --arch  makes them for another architecture than this machine's, into build/packages-arm64: arm64
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"
usage() { echo "usage: $0 [--test [--keep DIRECTORY] | --arch ARCHITECTURE]" >&2; exit 2; }

preset=packages
case "${1:-}" in
    "" | --test) ;;
    --arch)
        case "${2:-}" in
            "$(dpkg --print-architecture)") ;;
            arm64) preset=packages-arm64 ;;
            *) usage ;;
        esac
        [ $# -eq 2 ] || usage
        ;;
    *) usage ;;
esac
"$root/scripts/setup.sh" package
[ "$preset" = packages ] || "$root/scripts/setup.sh" arm64
"$root/scripts/docs.sh"

build "$preset"
say "packing"
packages="$root/build/$preset"
# The time of the change log, so that packing again gives the same bytes.
SOURCE_DATE_EPOCH="$(dpkg-parsechangelog -l packaging/changelog -S Timestamp)"
export SOURCE_DATE_EPOCH
rm -f "$packages"/*.deb "$packages"/*.ddeb
quietly cmake --build --preset "$preset" --target package
# Packages of debug symbols end like all others in Debian.
for symbols in "$packages"/*.ddeb; do
    mv "$symbols" "${symbols%.ddeb}.deb"
done
ls -1 "$packages"/*.deb

say "lintian"
# No bug of Debian's asks for these packages.
lintian --allow-root --fail-on error,warning --suppress-tags initial-upload-closes-no-bugs "$packages"/*.deb

if [ "${1:-}" = --test ]; then
    "$root/scripts/lib/check_packages.sh" "${@:2}"
fi
