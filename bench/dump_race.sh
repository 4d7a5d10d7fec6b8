#!/usr/bin/env bash
# Races brindlex-cli dump against od on the same 256 MiB file, and measures
# the peak memory of each with /usr/bin/time -v: the dump must be faster
# and its memory flat (the same for a file of any length).
#
#   bash bench/dump_race.sh [path/to/brindlex-cli]
#
# Variables: RACE_RUNS (runs per command, 5), BRINDLEX_BUILD (a build tree
# whose brindlex-cli is raced when no path is given), DUMP_MIB (the file's
# size, 256). Without either, a Release build is made in build-bench.
# Needs hyperfine, od and GNU time (/usr/bin/time).
set -euo pipefail
cd "$(dirname "$0")/.."

. bench/clibuild.sh
for tool in hyperfine od /usr/bin/time; do
  command -v "$tool" >/dev/null || { echo "dump_race.sh: $tool is missing" >&2; exit 2; }
done

base=/dev/shm
[ -d "$base" ] && [ -w "$base" ] || base=${TMPDIR:-/tmp}
dir=$(mktemp -d "$base/brindlex-dump-XXXXXX")
trap 'rm -rf "$dir"' EXIT
runs=${RACE_RUNS:-5}
mib=${DUMP_MIB:-256}

head -c $((mib << 20)) /dev/urandom > "$dir/big.bin"
head -c $((1 << 20)) "$dir/big.bin" > "$dir/small.bin"

# The same rows as od's: 8 values of 4 bytes a line.
hyperfine -N -w 1 -r "$runs" --export-json "$dir/race.json" \
  -n dump "$cli dump --size 4 --cols 8 $dir/big.bin" \
  -n od "od -An -td4 -v -w32 -- $dir/big.bin" --output=null >&2
python3 - "$dir/race.json" <<'PY'
import json, sys
r = {x["command"]: x["mean"] for x in json.load(open(sys.argv[1]))["results"]}
print(f"dump {r['dump']:.3f} s, od {r['od']:.3f} s, ratio {r['dump'] / r['od']:.2f}"
      f" (goal < 1: {'met' if r['dump'] < r['od'] else 'missed'})")
PY

peak() { /usr/bin/time -f %M "$@" 2>&1 >/dev/null | tail -1; }
small=$(peak "$cli" dump --size 4 --cols 8 "$dir/small.bin")
big=$(peak "$cli" dump --size 4 --cols 8 "$dir/big.bin")
od=$(peak od -An -td4 -v -w32 -- "$dir/big.bin")
echo "peak RSS: dump of 1 MiB ${small} KiB, dump of ${mib} MiB ${big} KiB, od ${od} KiB"
