#!/usr/bin/env bash
# Builds Brindlex with warnings as errors and runs every test; then builds the
# engine once more under AddressSanitizer + UndefinedBehaviorSanitizer and
# runs its tests and the fuzz replays there.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
jobs=$(nproc)

cmake -S . -B build-test -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBRINDLEX_WERROR=ON >/dev/null
cmake --build build-test -j "$jobs"
(cd build-test && QT_QPA_PLATFORM=offscreen ctest --output-on-failure -j "$jobs" --timeout 600)

cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DBRINDLEX_WERROR=ON \
  -DBRINDLEX_SANITIZE=ON -DBRINDLEX_GUI=OFF -DBRINDLEX_BENCH=OFF >/dev/null
cmake --build build-asan -j "$jobs"
# The kill, big-file and memory-footprint tests ran in the tree above: under
# the sanitizers they take minutes and measure the sanitizers' own memory.
(cd build-asan && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --output-on-failure -j "$jobs" --timeout 900 -E '^cli\.[A-Za-z]+\.(Killed|.*Gigabytes)|InLittleMemory')
