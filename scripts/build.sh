#!/usr/bin/env bash
# Configures and builds into build/ (or $VEK_BUILD_DIR).
#   scripts/build.sh [-DOPTION=VALUE ...] [TARGET ...]
# Options go to cmake; without targets everything is built. Warnings are
# errors in every build, so the main job and the tests share one
# configuration and one build folder: neither rebuilds what the other built.
# VEK_SANITIZE=address|thread makes a sanitizer build (default folder
# build-asan or build-tsan).
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
options=()
targets=()
for arg in "$@"; do
    case "$arg" in
        -D*) options+=("$arg") ;;
        *) targets+=(--target "$arg") ;;
    esac
done
. "$here/scripts/builddir.sh"
build=$(vek_build_dir)
if [ ! -f "$build/CMakeCache.txt" ]; then
    echo "Configuring $build (a first build takes several minutes on a small machine)..."
fi
cmake -S "$here" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=${VEK_BUILD_TYPE:-RelWithDebInfo} \
    -DVEK_WERROR=ON -DVEK_SANITIZE="${VEK_SANITIZE:-}" ${options[@]+"${options[@]}"} >/dev/null
cmake --build "$build" -j"$(nproc)" ${targets[@]+"${targets[@]}"}
