#!/usr/bin/env bash
# The main job: load each bundled example plug-in through the platform's
# module loader and print what it is.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${ZQ_BUILD_DIR:-build/default}
exec "$build/bin/zqplugcheck" "$build"/plugins/zqgain.so "$build"/plugins/zqdelay.so \
  "$build"/plugins/zqchunk.so "$build"/plugins/zqbiquad.so
