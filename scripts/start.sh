#!/usr/bin/env bash
# Builds Brindlex and starts the window; arguments go to the program (a mask).
set -euo pipefail
here=$PWD
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build --target brindlex brindlex-cli
program=$PWD/build/src/gui/brindlex
# The window lists the directory it starts in: the caller's, not the sources'.
cd "$here"
exec "$program" "$@"
