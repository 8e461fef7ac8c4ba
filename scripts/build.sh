#!/usr/bin/env bash
# Configures and builds into build/ (or $VEK_BUILD_DIR). Extra arguments go to cmake.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=${VEK_BUILD_DIR:-$here/build}
cmake -S "$here" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=${VEK_BUILD_TYPE:-RelWithDebInfo} "$@" >/dev/null
cmake --build "$build" -j"$(nproc)"
