#!/usr/bin/env bash
# Checks that every include runs down the layers and never up or sideways.
#
#   base/                        the vocabulary: basic types, status codes
#   platform/                    operating-system calls        (uses base)
#   kernel/                      the kernel's families         (uses platform, base)
#   mediafw/                     the media framework           (uses kernel and below)
#   aplugins/zqvstwrap/*.h       the wrapper's public interfaces and shared records
#   aplugins/zqvstwrap/host/     VST hosting                   (uses the interfaces, kernel and below)
#   aplugins/zqvstwrap/filter/   the transform filter          (uses host, mediafw and below)
#   aplugins/zqvstwrap/discovery/ records, cache, scan, mapper (uses filter, host and below)
#   server/, tools/              programs                      (use anything but tests/)
#
# Product code never includes tests/.  Prints each offending include and
# exits 1 when there is one.
set -euo pipefail
cd "$(dirname "$0")/.."

status=0

# check FOLDER ALLOWED...: every quoted include of a file under FOLDER must
# match one of the allowed patterns (extended regular expressions, anchored
# at the start).
check() {
  local folder=$1
  shift
  [ -d "$folder" ] || return 0
  local pattern
  pattern=$(printf '%s\n' "$@" | paste -sd'|')
  while IFS= read -r line; do
    local target
    target=$(sed -E 's/.*#include "([^"]+)".*/\1/' <<<"${line#*:*:}")
    if ! grep -Eq "^(${pattern})" <<<"$target"; then
      echo "layer violation: $line"
      status=1
    fi
  done < <(grep -rnE '^\s*#\s*include\s+"' "$folder" --include='*.h' --include='*.cpp' --include='*.c' |
           grep -vE "^${folder}/[^:]*:[0-9]+:\s*#\s*include\s+\"[^/\"]+\"")
}

wrap=aplugins/zqvstwrap
check base base/
check platform base/ platform/
check kernel base/ platform/ kernel/
check mediafw base/ platform/ kernel/ mediafw/
check $wrap/host base/ platform/ kernel/ "$wrap/host/" "$wrap/[a-z0-9_]+[.]h$"
check $wrap/filter base/ platform/ kernel/ mediafw/ "$wrap/host/" "$wrap/filter/" "$wrap/[a-z0-9_]+[.]h$"
check $wrap/discovery base/ platform/ kernel/ mediafw/ "$wrap/host/" "$wrap/filter/" "$wrap/discovery/" \
  "$wrap/[a-z0-9_]+[.]h$"

# The public interfaces at the top of the wrapper use only what lies below
# the wrapper, each other, and the VST binary interface.
while IFS= read -r line; do
  target=$(sed -E 's/.*#include "([^"]+)".*/\1/' <<<"${line#*:*:}")
  if ! grep -Eq "^(base/|platform/|kernel/|$wrap/[a-z0-9_]+\.h$)" <<<"$target"; then
    echo "layer violation: $line"
    status=1
  fi
done < <(grep -nE '^\s*#\s*include\s+"' $wrap/*.h /dev/null | grep -v '^/dev/null')

# Nothing outside tests/ and bench/ includes the tests' helpers.
if hits=$(grep -rnE '#\s*include\s+"tests/' base platform kernel mediafw aplugins server tools plugins \
            --include='*.h' --include='*.cpp' 2>/dev/null); then
  echo "layer violation (product includes tests): $hits"
  status=1
fi

if [ $status -eq 0 ]; then echo "layers: every include runs down"; fi
exit $status
