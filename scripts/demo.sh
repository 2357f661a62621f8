#!/usr/bin/env bash
# Builds the library and shows its main jobs on real input. This machine is sampled into a value
# group, which is saved, read back by a second process and compared. Then pictures are inspected:
# scripts/demo.sh [--keep-bmp] [PICTURE...], .jpg or .bmp files; without any, the program draws its own.
# Where GStreamer is installed (scripts/setup.sh camera), the frames of a test picture are inspected as they
# come. BMP files are removed at the end, since each is 64 MiB larger than its picture: --keep-bmp leaves them.
usage="usage: $0 [--keep-bmp] [PICTURE...]"
pictures=()
keep_bmp=false
for picture in "$@"; do
    case "$picture" in
        -h | --help) break ;; # what every script does for it
        --keep-bmp) keep_bmp=true; continue ;;
        -*) echo "there is no option $picture; $usage" >&2; exit 2 ;;
    esac
    [ -f "$picture" ] || { echo "there is no picture $picture; $usage" >&2; exit 2; }
    pictures+=("$(realpath -- "$picture")") # before the directory changes
done
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

# What an earlier run has left is removed, unless it is what this one is to look at.
output="build/demo/pictures"
for picture in "${pictures[@]}"; do
    case "$picture" in
        "$(realpath -m -- "$output")"/*) echo "move $picture elsewhere first: its directory is emptied" >&2; exit 2 ;;
    esac
done
"$root/scripts/setup.sh" build

build demo
say "sampling this machine"
directory="$(mktemp -d)"
trap 'rm -rf "$directory"' EXIT
"$root/build/demo/examples/machine_samples" save "$directory"
"$root/build/demo/examples/machine_samples" check "$directory"

say "inspecting pictures"
rm -rf "$output"
"$root/build/demo/examples/inspection" "$output" "${pictures[@]}"
$keep_bmp || rm -f "$output"/*.bmp

camera="$root/build/demo/examples/camera"
if [ -x "$camera" ]; then
    say "inspecting frames"
    rm -rf build/demo/frames
    mkdir -p build/demo/frames
    "$camera" build/demo/frames 200
else
    say "frames are left out: scripts/setup.sh camera installs GStreamer"
fi
say "everything that was saved came back: look at the pictures in $output"
