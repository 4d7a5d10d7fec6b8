# Sourced by the race scripts: sets `cli` to the brindlex-cli to race, the
# one named as the first argument, else the one of the build tree
# $BRINDLEX_BUILD brought up to date, else one of a Release build made in
# build-bench.
cli=${1:-}
if [ -z "$cli" ] && [ -n "${BRINDLEX_BUILD:-}" ]; then
  cmake --build "$BRINDLEX_BUILD" --target brindlex-cli >/dev/null
  cli=$BRINDLEX_BUILD/src/cli/brindlex-cli
fi
if [ -z "$cli" ]; then
  cmake -S . -B build-bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DBRINDLEX_GUI=OFF >/dev/null
  cmake --build build-bench --target brindlex-cli >/dev/null
  cli=$PWD/build-bench/src/cli/brindlex-cli
fi
cli=$(readlink -f "$cli")
