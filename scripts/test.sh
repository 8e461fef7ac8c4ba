#!/usr/bin/env bash
# Sets up, builds (warnings are errors) and runs the whole test suite.
# VEK_SANITIZE=address runs it under ASan+UBSan (in build-asan), thread under
# TSan (in build-tsan). Arguments go to ctest.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/setup.sh"
"$here/scripts/build.sh"
. "$here/scripts/builddir.sh"
build=$(vek_build_dir)
cd "$build"
ctest --output-on-failure -j"$(nproc)" "$@"
