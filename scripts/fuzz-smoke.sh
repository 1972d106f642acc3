#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, the `fuzz` preset) and runs each for a
# short while on a copy of its seeds: a smoke run for CI that catches a
# reader that crashes, leaks or hangs on the first inputs a fuzzer finds.
# Longer runs are made by hand (see the CMakeLists.txt next to each target).
#
#   scripts/fuzz-smoke.sh [RUNS]      RUNS inputs per target (default 20000)
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${1:-20000}

# target  seeds (a folder of the source tree, or - for none)
targets=(
  "zq_fuzz_xml            tests/kernel/containers/corpus/xml"
  "zq_fuzz_riff           tests/kernel/containers/corpus/riff"
  "zq_fuzz_printf         tests/kernel/fuzz/corpus/printf"
  "zq_fuzz_timetext       tests/kernel/fuzz/corpus/timetext"
  "zq_fuzz_load_preset    tests/host/presets/corpus/preset"
  "zq_fuzz_load_bank      tests/host/presets/corpus/bank"
  "zq_fuzz_filter_load    tests/filter/state/corpus"
  "zq_fuzz_cache_store    -"
)

cmake --preset fuzz >/dev/null
names=()
for row in "${targets[@]}"; do names+=("${row%% *}"); done
cmake --build --preset fuzz --target "${names[@]}"

# The plug-in guards keep their own signal handlers, as in the test runs.
export ASAN_OPTIONS=handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0:allow_user_segv_handler=1:detect_leaks=1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
export ZQ_REGISTRY_DIR="$scratch/store"
mkdir -p "$ZQ_REGISTRY_DIR"

for row in "${targets[@]}"; do
  read -r target seeds <<<"$row"
  corpus="$scratch/$target"
  mkdir -p "$corpus"
  if [ "$seeds" != "-" ]; then cp -r "$seeds"/. "$corpus"/; fi
  echo "== $target: $runs inputs"
  "build/fuzz/bin/$target" -runs="$runs" -max_len=4096 -timeout=10 -print_final_stats=0 "$corpus" \
    >"$scratch/$target.log" 2>&1 || { tail -40 "$scratch/$target.log"; echo "$target failed"; exit 1; }
  grep -E '^Done [0-9]+ runs' "$scratch/$target.log" || tail -1 "$scratch/$target.log"
done
echo "fuzz smoke: every target ran $runs inputs without a finding"
