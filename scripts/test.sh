#!/usr/bin/env bash
# Sets up, builds (warnings are errors) and runs the whole test suite.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/setup.sh"
"$here/scripts/build.sh" -DVEK_WERROR=ON
build=${VEK_BUILD_DIR:-$here/build}
cd "$build"
ctest --output-on-failure -j"$(nproc)" "$@"
