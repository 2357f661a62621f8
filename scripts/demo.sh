#!/usr/bin/env bash
# Builds the library and shows its main job on real input: this machine is sampled into a value
# group, the group is saved to a file, and a second process reads it back and compares.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
"$root/scripts/setup.sh" build

build demo
directory="$(mktemp -d)"
trap 'rm -rf "$directory"' EXIT
"$root/build/demo/examples/machine_samples" save "$directory"
"$root/build/demo/examples/machine_samples" check "$directory"
say "everything that was saved came back"
