#!/usr/bin/env bash
# Installs the Debian packages the project needs.  Quick when everything is
# already there: apt is only asked for the packages that are missing.
set -euo pipefail

packages=(
  build-essential cmake ninja-build clang pkg-config
  # The generator of the string table and string resources.
  python3
  libgtest-dev libgmock-dev libbenchmark-dev
  libsqlite3-dev libicu-dev libsndfile1-dev libpng-dev zlib1g-dev
  libxcb1-dev libcairo2-dev libpango1.0-dev
  libswresample-dev
  # A virtual X server for the tests of editor windows.
  xvfb
  # Real third-party VST 2.x plug-ins for integration tests.
  lsp-plugins-vst dragonfly-reverb-vst
  # GNU time: the peak memory of long renders (bench/render).
  time
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if ((${#missing[@]})); then
  echo "Installing: ${missing[*]}"
  sudo_cmd=()
  if [ "$(id -u)" -ne 0 ]; then sudo_cmd=(sudo); fi
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
