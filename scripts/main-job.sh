#!/usr/bin/env bash
# The main job: render a generated signal through the bundled default
# plug-in with the command-line host, say where the result went, then load
# each bundled example plug-in through the platform's module loader and
# print what it is.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${ZQ_BUILD_DIR:-build/default}
mkdir -p out
"$build/bin/zqvst" render --output out/zqvst-demo.wav
echo "The rendered demo is in $(pwd)/out/zqvst-demo.wav"
exec "$build/bin/zqplugcheck" "$build"/plugins/zqgain.so "$build"/plugins/zqdelay.so \
  "$build"/plugins/zqchunk.so "$build"/plugins/zqbiquad.so
