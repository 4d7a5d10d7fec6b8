#!/usr/bin/env bash
# Installs the Debian packages that building and testing Brindlex need, those
# that are missing only. Root runs apt-get itself; anyone else through sudo.
set -euo pipefail
need=(cmake ninja-build g++ qt6-base-dev qt6-qpa-plugins libgl-dev googletest libgtest-dev libbenchmark-dev
  desktop-file-utils man-db groff-base
  xvfb openbox xdotool x11-utils)
# xvfb, openbox, xdotool and x11-utils: the window-manager test (tests/wm).
# The fuzzers proper (cmake -DBRINDLEX_FUZZ=ON with clang) also need clang
# and libclang-rt-14-dev; the tests replay the fuzz corpora without them.
missing=()
for p in "${need[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
