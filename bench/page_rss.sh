#!/usr/bin/env bash
# The peak memory of brindlex-cli page over a 5 GiB sparse file, in every
# display mode and row format, the page running from the first byte to the
# end (no --block); and of page --save given what is no page text
# (/dev/zero, a directory). Goal: every peak at most 32 MiB.
#
#   bash bench/page_rss.sh [path/to/brindlex-cli]
#
# Variables: BRINDLEX_BUILD (a build tree whose brindlex-cli is measured
# when no path is given), PAGE_GIB (the file's size, 5). Needs GNU time
# (/usr/bin/time). The byte modes format all 5 GiB to /dev/null: minutes.
set -euo pipefail
cd "$(dirname "$0")/.."

. bench/clibuild.sh
[ -x /usr/bin/time ] || { echo "page_rss.sh: /usr/bin/time is missing" >&2; exit 2; }

dir=$(mktemp -d "${TMPDIR:-/tmp}/brindlex-page-rss-XXXXXX")
trap 'rm -rf "$dir"' EXIT
export BRINDLEX_TEMP="$dir/work"
big=$dir/sparse.bin
truncate -s "${PAGE_GIB:-5}G" "$big"
goal=$((32 * 1024))
worst=0

# measure LABEL ARGS...: peak RSS in KiB, seconds and exit status of one page.
measure() {
  local label=$1; shift
  local status=0
  /usr/bin/time -f '%M %e' -o "$dir/time" "$cli" page "$@" >/dev/null 2>"$dir/err" || status=$?
  read -r kib secs <"$dir/time"
  (( kib > worst )) && worst=$kib
  printf '%-34s %8d KiB %8.1f s  exit %d  %s\n' "$label" "$kib" "$secs" "$status" "$(head -c 70 "$dir/err")"
}

echo "brindlex-cli page over a ${PAGE_GIB:-5} GiB sparse file ($cli)"
for mode in 0 1 2 3; do
  for format in 0 1 2 3; do
    measure "--mode $mode --format $format" --mode "$mode" --format "$format" "$big"
  done
done
measure "--mode 0 --block 600000000" --mode 0 --block 600000000 "$big"
measure "--save /dev/zero" --mode 0 --block 16 --save /dev/zero "$big"
measure "--save (a directory)" --mode 0 --block 16 --save "$dir" "$big"
if (( worst <= goal )); then verdict=MET; else verdict=MISSED; fi
echo "page-rss: worst peak $worst KiB (goal <= $goal KiB) $verdict"
