#!/usr/bin/env bash
# Runs clang-tidy over the library, the logger, the tools, the examples, the fuzz targets and the Python module,
# warnings as errors. What has not changed since it was clean is not looked at again.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"
"$root/scripts/setup.sh" checks
quietly cmake --preset clang -DTNROBOT_BUILD_PYTHON=ON

# Where pkg-config does not find all that GStreamer stands on, the camera's example is not built.
left_out=()
if ! grep -q '/examples/camera/' "$root/build/clang/compile_commands.json"; then
    say "left out: examples/camera, as pkg-config finds no GStreamer here"
    left_out=(':!examples/camera')
fi

say "clang-tidy"
git ls-files -z --cached --others --exclude-standard 'src/*.cpp' 'logger/*.cpp' 'tools/*.cpp' 'examples/*.cpp' \
    'fuzz/*.cpp' 'python/src/*.cpp' "${left_out[@]}" |
    xargs -0 -n 1 -P "$jobs" scripts/lib/tidy_file.py "$root/build/clang"
