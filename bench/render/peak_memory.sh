#!/usr/bin/env bash
# Peak resident memory of zqvst render, short against long.
#
# A render streams: the source reads (or makes) the audio as the graph
# pulls it and the sink writes it as it arrives, so its memory must not
# grow with the length.  For each plug-in this renders a generated stereo
# 48 kHz float signal and a file of that kind, once SHORT seconds long and
# once LONG seconds long (an hour by default), each in a process of its own
# measured by GNU time, and checks:
#   - every long render peaks below LIMIT_MB;
#   - a short render's peak is within TOLERANCE_PERCENT of the long one's.
#
# usage: bench/render/peak_memory.sh [BUILD_DIR] [PLUGIN.so ...]
#   BUILD_DIR  the build holding bin/zqvst (default: build/default)
#   PLUGIN.so  plug-ins to render through (default: the bundled zqdelay and
#              the distribution's Dragonfly room reverb and LSP compressor,
#              where installed)
# Environment: LONG (3600), SHORT (10), LIMIT_MB (64), TOLERANCE_PERCENT
# (10), WORK_DIR (a new folder under TMPDIR; the long files take about
# 1.4 GB each and are removed as the script goes).
# Exits 0 when every goal is met, 1 when one is missed, 2 on a failed run.
set -euo pipefail

here=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$here/build/default}
shift || true
zqvst=$build/bin/zqvst
long=${LONG:-3600}
short=${SHORT:-10}
limit_mb=${LIMIT_MB:-64}
tolerance=${TOLERANCE_PERCENT:-10}

if [ ! -x "$zqvst" ]; then
  echo "no zqvst in $build/bin; build the zqvst target first" >&2
  exit 2
fi
if [ ! -x /usr/bin/time ]; then
  echo "GNU time is missing: apt-get install time (scripts/install-deps.sh)" >&2
  exit 2
fi

plugins=("$@")
if [ ${#plugins[@]} -eq 0 ]; then
  for p in "$build/plugins/zqdelay.so" /usr/lib/lxvst/DragonflyRoomReverb-vst.so \
           /usr/lib/vst/lsp-plugins/compressor-stereo.so; do
    [ -e "$p" ] && plugins+=("$p")
  done
fi

work=${WORK_DIR:-$(mktemp -d "${TMPDIR:-/tmp}/zq_render_memory.XXXXXX")}
mkdir -p "$work"
trap 'rm -rf "$work"' EXIT

# Runs zqvst render with the arguments given and prints its peak resident
# set in KB; the render's own output goes to the log.
peak_kb() {
  local log=$work/run.log
  if ! /usr/bin/time -f '%M' -o "$work/time.txt" "$zqvst" render "$@" >"$log" 2>&1; then
    echo "failed: zqvst render $*" >&2
    cat "$log" >&2
    exit 2
  fi
  tail -n 1 "$work/time.txt"
}

# The inputs of the file renders, made once: the same signal without a
# plug-in's colour (zqdelay with its mix at 0 passes the input through).
signal=(--signal noise --rate 48000 --channels 2 --format f32)
make_input() {
  "$zqvst" render --plugin "$build/plugins/zqdelay.so" --set Mix=0 "${signal[@]}" --seconds "$1" \
    --output "$2" >/dev/null
}
make_input "$short" "$work/short.wav"
make_input "$long" "$work/long.wav"

failed=0
printf '%-40s %-10s %12s %12s %8s  %s\n' plug-in input "${short} s (MB)" "${long} s (MB)" change verdict
for plugin in "${plugins[@]}"; do
  for input in generated file; do
    if [ "$input" = generated ]; then
      a=$(peak_kb --plugin "$plugin" "${signal[@]}" --seconds "$short" --output "$work/out.wav")
      b=$(peak_kb --plugin "$plugin" "${signal[@]}" --seconds "$long" --output "$work/out.wav")
    else
      a=$(peak_kb --plugin "$plugin" --input "$work/short.wav" --output "$work/out.wav")
      b=$(peak_kb --plugin "$plugin" --input "$work/long.wav" --output "$work/out.wav")
    fi
    rm -f "$work/out.wav"
    verdict=ok
    if [ "$b" -ge $((limit_mb * 1024)) ]; then verdict="over ${limit_mb} MB"; fi
    # |long - short| within the tolerance, in percent of the long render.
    change=$(((b > a ? b - a : a - b) * 1000 / b))
    if [ "$change" -gt $((tolerance * 10)) ]; then verdict="${verdict/ok/}short differs by more than ${tolerance}%"; fi
    [ "$verdict" = ok ] || failed=1
    awk -v p="$(basename "$plugin")" -v i="$input" -v a="$a" -v b="$b" -v c="$change" -v v="$verdict" \
      'BEGIN { printf "%-40s %-10s %12.1f %12.1f %7.1f%%  %s\n", p, i, a / 1024, b / 1024, c / 10, v }'
  done
done
exit $failed
