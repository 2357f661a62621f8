#!/usr/bin/env bash
# Makes the Debian packages, into build/packages, and looks them over with lintian. With --test they
# are also installed in a clean system and used there: scripts/package.sh [--test [--keep DIRECTORY]],
# see scripts/check_packages.sh.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
case "${1:-}" in
    "" | --test) ;;
    *) echo "usage: $0 [--test [--keep DIRECTORY]]" >&2; exit 2 ;;
esac
"$root/scripts/setup.sh" package
"$root/scripts/docs.sh"

build packages
say "packing"
# The time of the change log, so that packing again gives the same bytes.
SOURCE_DATE_EPOCH="$(dpkg-parsechangelog -l packaging/changelog -S Timestamp)"
export SOURCE_DATE_EPOCH
rm -f "$root"/build/packages/*.deb
quietly cmake --build --preset packages --target package
ls -1 "$root"/build/packages/*.deb

say "lintian"
# No bug of Debian's asks for these packages.
lintian --allow-root --fail-on error,warning --suppress-tags initial-upload-closes-no-bugs "$root"/build/packages/*.deb

if [ "${1:-}" = --test ]; then
    "$root/scripts/check_packages.sh" "${@:2}"
fi
