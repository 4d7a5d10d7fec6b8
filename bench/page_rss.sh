#!/usr/bin/env bash
# The peak memory of brindlex-cli page over a 5 GiB sparse file, in every
# display mode and row format, the page running from the first byte to the
# end (no --block); and of page --save given what is no page text
# (/dev/zero, a directory). Goal: every peak at most 32 MiB.
#
#   bash bench/page_rss.sh [path/to/brindlex-cli]
#
# Variables: BRINDLEX_BUILD (a build tree whose brindlex-cli is measured
# when no path is given), PAGE_GIB (the file's size, 5), PAGE_TIMEOUT
# (seconds a page may take before it is stopped; none by default). Needs GNU
# time (/usr/bin/time). The byte modes format all 5 GiB, about 28 GB of page
# text: several minutes each on a quiet machine. The memory of a streamed
# page is flat from its first stretch on, so PAGE_TIMEOUT=60 gives the same
# peaks in minutes; each line says how much page text came out.
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
  local limit=() kib secs out
  [ -n "${PAGE_TIMEOUT:-}" ] && limit=(timeout "$PAGE_TIMEOUT")
  # GNU time's rusage of timeout includes the page it waited for.
  out=$( { /usr/bin/time -f '%M %e %x' -o "$dir/time" "${limit[@]}" "$cli" page "$@" 2>"$dir/err" || true; } | wc -c)
  read -r kib secs status < <(tail -n 1 "$dir/time")
  (( kib > worst )) && worst=$kib
  printf '%-30s %7d KiB %7.1f s exit %3d %14d bytes out  %s\n' "$label" "$kib" "$secs" "$status" "$out" \
    "$(head -c 60 "$dir/err" | tr '\n' ' ')"
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
