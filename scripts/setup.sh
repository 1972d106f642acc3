#!/usr/bin/env bash
# Sets everything up on a fresh machine, builds, and runs the main job on the
# bundled plug-ins.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default
exec scripts/main-job.sh
