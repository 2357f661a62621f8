#!/usr/bin/env bash
# Runs clang-tidy over the library, the logger, the tools, the examples and the fuzz targets, warnings as errors.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"
"$root/scripts/setup.sh" checks
quietly cmake --preset clang

say "clang-tidy"
git ls-files -z --cached --others --exclude-standard 'src/*.cpp' 'logger/*.cpp' 'tools/*.cpp' 'examples/*.cpp' 'fuzz/*.cpp' |
    xargs -0 -n 1 -P "$jobs" scripts/lib/tidy_file.py "$root/build/clang"
