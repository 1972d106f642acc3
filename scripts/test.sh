#!/usr/bin/env bash
# Builds (when needed) and runs the whole test suite of the normal build.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ ! -f build/default/build.ninja ]; then
  cmake --preset default >/dev/null
fi
cmake --build --preset default
ctest --preset default "$@"
