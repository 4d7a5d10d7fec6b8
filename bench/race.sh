#!/usr/bin/env bash
# Races brindlex-cli find/replace against peer tools on the same data, with
# hyperfine, and prints each ratio with its goal.
#
#   bash bench/race.sh [path/to/brindlex-cli]
#
# Variables: RACE_RUNS (runs per command, 10), RACE_ROUNDS (rounds that
# share those runs and alternate the commands' order, 5), RACE_ONLY (a regular
# expression of the race names to run), RACE_CORPUS (a directory that keeps
# the corpus from one call to the next), BRINDLEX_BUILD (a build tree whose
# brindlex-cli is raced when no path is given), RACE_LOAD=1 (one busy
# process per core runs beside each race, and every race with a peer must
# then be within 1.3 times the peer's time).
#
# Without an argument a Release build is made in build-bench. The corpus
# lives in a temporary directory on /dev/shm (about 4.5 GiB with the pristine
# copies that every replace is restored from, and a sparse 5 GiB file that
# takes no room) and is removed at the end.
# Needs hyperfine, rg, bbe, perl, sed, python3 and cc (for the read() floor,
# bench/readloop.c). Every race's ratio and goal is printed again at the end.
set -euo pipefail
cd "$(dirname "$0")/.."

. bench/clibuild.sh
for tool in hyperfine rg bbe perl sed python3 cc; do
  command -v "$tool" >/dev/null || { echo "race.sh: $tool is missing" >&2; exit 2; }
done

base=/dev/shm
[ -d "$base" ] && [ -w "$base" ] || base=${TMPDIR:-/tmp}
# RACE_CORPUS names a directory that keeps the corpus between races: it is
# made on the first run and reused (not removed) afterwards.
if [ -n "${RACE_CORPUS:-}" ]; then
  corpus=$RACE_CORPUS
  mkdir -p "$corpus"
else
  corpus=$(mktemp -d "$base/brindlex-race-XXXXXX")
fi
# RACE_LOAD=1: one busy process per core for the length of each race.
cores=$(nproc)
load=${RACE_LOAD:-0}
loadpids=()
startload() {
  [ "$load" = 1 ] || return 0
  local i
  for ((i = 0; i < cores; i++)); do
    sh -c 'while :; do :; done' &
    loadpids+=($!)
  done
}
stopload() {
  [ ${#loadpids[@]} -eq 0 ] && return 0
  kill "${loadpids[@]}" 2>/dev/null || true
  wait "${loadpids[@]}" 2>/dev/null || true
  loadpids=()
}
cleanup() {
  stopload
  [ -n "${RACE_CORPUS:-}" ] || rm -rf "$corpus"
}
trap cleanup EXIT
export BRINDLEX_TEMP="$corpus/work"
runs=${RACE_RUNS:-10}
pat='QzXkPwVb'      # 8 bytes, letters only, so that folding has work to do
rep='Rr_replaced'
same='RrPlaced'     # as long as the pattern
model=$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -n 1)
host="host: ${model:-unknown processor}, $cores cores"
[ "$load" = 1 ] && host="$host, one busy process per core beside each race (RACE_LOAD=1)"
echo "$host"

echo "corpus in $corpus"
if [ ! -e "$corpus/tree.orig" ]; then
python3 - "$corpus" "$pat" <<'EOF'
import os, random, sys
root, pat = sys.argv[1], sys.argv[2].encode()
rng = random.Random(2026)

# 1 GiB of random bytes with the pattern planted 1000 times.
size = 1 << 30
with open(os.path.join(root, "big.bin"), "wb") as f:
    for _ in range(size // (64 << 20)):
        f.write(os.urandom(64 << 20))
with open(os.path.join(root, "big.bin"), "r+b") as f:
    for at in sorted(rng.sample(range(0, size - len(pat), 1 << 15), 1000)):
        f.seek(at + rng.randrange(0, 1 << 14))
        f.write(pat)

# 512 MiB of text whose lines end in CR only.
words = [w.encode() for w in "the quick brown fox jumps over a lazy dog while seven tired cats watch".split()]
line_count = 0
with open(os.path.join(root, "text.txt"), "wb") as f:
    written = 0
    chunk = []
    while written < (512 << 20):
        line = b" ".join(rng.choice(words) for _ in range(rng.randrange(4, 14))) + b"\r"
        chunk.append(line)
        written += len(line)
        if len(chunk) >= 20000:
            f.write(b"".join(chunk))
            chunk = []
    f.write(b"".join(chunk))

# 20,000 files of 1-64 KiB in 100 directories; 5% hold the pattern.
tree = os.path.join(root, "tree")
blob = os.urandom(64 << 10)
blob = blob.replace(pat[:1], b"q")  # no accidental first bytes of the pattern
for i in range(20000):
    d = os.path.join(tree, "d%03d" % (i % 100))
    os.makedirs(d, exist_ok=True)
    n = rng.randrange(1 << 10, 64 << 10)
    data = bytearray(blob[:n])
    if i % 20 == 0:
        at = rng.randrange(0, n - len(pat))
        data[at:at + len(pat)] = pat
    with open(os.path.join(d, "f%05d.dat" % i), "wb") as f:
        f.write(data)
EOF
cp "$corpus/big.bin" "$corpus/big.orig"
cp "$corpus/text.txt" "$corpus/text.orig"
cp -a "$corpus/tree" "$corpus/tree.orig"
else
  # A kept corpus: the last run of a replace race left its file rewritten.
  cp "$corpus/big.orig" "$corpus/big.bin"
  cp "$corpus/text.orig" "$corpus/text.txt"
  rm -rf "$corpus/tree"
  cp -a "$corpus/tree.orig" "$corpus/tree"
fi
# The floors of a find in one file: a bare loop of 1 MiB read() calls, and
# two threads taking 512 KiB pread()s in turn.
readloop=$corpus/readloop
cc -O2 -pthread -o "$readloop" bench/readloop.c
# A page saved near the end of 5 GiB: the file is sparse, made anew before
# each run, and the page's new text differs from the old in one byte.
sparse=$corpus/sparse5g.bin
sparsepos=$(( (5 << 30) - 4096 ))
rm -f "$sparse"
truncate -s 5G "$sparse"
"$cli" page --mode 0 --pos "$sparsepos" --block 16 "$sparse" >"$corpus/page.txt"
python3 -c 'import sys; p = sys.argv[1]; b = open(p, "rb").read(); open(p, "wb").write(b.replace(b"<00>", b"<41>", 1))' \
  "$corpus/page.txt"
summary=$corpus/summary.txt
echo "$host" >"$summary"
du -sh "$corpus"/big.bin "$corpus"/text.txt "$corpus"/tree

# race NAME GOAL-KIND GOAL PREPARE OURS-CMD [PEER-CMD...]
#   GOAL-KIND "le": ours/peer must be at most GOAL; "speedup": peer/ours at
#   least GOAL; "seconds": ours at most GOAL seconds, no peer. PREPARE (unless
#   empty) runs before each run. With RACE_LOAD=1 the goal of a race with a
#   peer is to be within 1.3 times the peer's time.
#   Hyperfine runs its commands one after the other, and a machine's speed
#   drifts within seconds (a shared host, a virtual one, the clock), so a
#   race with a peer is run in RACE_ROUNDS rounds (5) of a share of the runs
#   each, in the given order and then reversed, and a command's median is
#   taken over the runs of all rounds.
race() {
  local name=$1 kind=$2 goal=$3 prepare=$4; shift 4
  # RACE_ONLY: a regular expression of the races to run (all by default).
  [[ $name =~ ${RACE_ONLY:-.} ]] || return 0
  local json="$corpus/$name.json" rounds=${RACE_ROUNDS:-5} r
  (( $# > 1 )) || rounds=1
  (( rounds <= runs )) || rounds=$runs
  local cmds=("$@") reversed=() jsons=()
  for ((r = $#; r > 0; r--)); do reversed+=("${!r}"); done
  startload
  for ((r = 0; r < rounds; r++)); do
    local args=(--warmup $((r == 0)) --runs $((runs / rounds + (r < runs % rounds)))
                --style none --export-json "$json.$r")
    [ -n "$prepare" ] && args+=(--prepare "$prepare")
    if ((r % 2)); then hyperfine "${args[@]}" "${reversed[@]}" >/dev/null
    else hyperfine "${args[@]}" "${cmds[@]}" >/dev/null; fi
    jsons+=("$json.$r")
  done
  stopload
  python3 - "$json" "$name" "$kind" "$goal" "$summary" "$load" "${jsons[@]}" <<'EOF'
import json, os, statistics, sys
# The rounds' runs of each command, in the order of the first round: ours first.
times = {}
for path in sys.argv[7:]:
    for r in json.load(open(path))["results"]:
        times.setdefault(r["command"], []).extend(r["times"])
    os.remove(path)
data = [{"command": c, "times": t, "median": statistics.median(t),
         "stddev": statistics.stdev(t) if len(t) > 1 else 0.0} for c, t in times.items()]
json.dump({"results": data}, open(sys.argv[1], "w"), indent=1)
name, kind, goal = sys.argv[2], sys.argv[3], float(sys.argv[4])
ours = data[0]
peers = data[1:]
for r in data:
    print("  %-58s %8.3f s  ± %.3f" % (r["command"][:58], r["median"], r["stddev"]))
if kind == "seconds":
    ok = ours["median"] <= goal
    line = "%s: brindlex %.3f s (goal <= %.3f s) %s" % (name, ours["median"], goal, "MET" if ok else "MISSED")
    print(line)
    open(sys.argv[5], "a").write(line + "\n")
    sys.exit(0)
# Medians: other work on the machine makes for outliers.
best = min(peers, key=lambda r: r["median"])
words = best["command"].split()
peer = os.path.basename(words[0])
if peer == "readloop" and words[1] == "-t":
    peer += " -t " + words[2]
elif words[0] == ours["command"].split()[0]:
    peer = "brindlex " + words[1]
elif peer == "sh":
    # A shell line: the tools of its pipeline, as "cat" or "rg | sed".
    stages = best["command"].split("'")[1].split("|")
    peer = " | ".join([w for w in stage.split() if w not in ("xargs", "-r")][0] for stage in stages)
if sys.argv[6] == "1":
    # Under load: within 1.3 times the peer, whichever way the goal runs.
    kind, goal = ("le", 1.3) if kind == "le" else ("speedup", 1 / 1.3)
if kind == "le":
    ratio = ours["median"] / best["median"]
    ok = ratio <= goal
    line = "%s: brindlex / %s = %.2f (goal <= %.2f) %s" % (name, peer, ratio, goal, "MET" if ok else "MISSED")
else:
    ratio = best["median"] / ours["median"]
    ok = ratio >= goal
    line = "%s: %s / brindlex = %.2fx (goal >= %.2fx) %s" % (name, peer, ratio, goal, "MET" if ok else "MISSED")
print(line)
open(sys.argv[5], "a").write(line + "\n")
EOF
}

c=$corpus
echo
echo "== find in a 1 GiB binary file"
race find-big-case le 0.8 "" \
  "$cli find -c $pat $c/big.bin" \
  "rg -a -F -b -o $pat $c/big.bin"
race find-big-folded le 1.0 "" \
  "$cli find $pat $c/big.bin" \
  "rg -a -F -b -o -i $pat $c/big.bin"
race find-big-vs-read le 1.3 "" \
  "$cli find -c $pat $c/big.bin" \
  "$readloop $c/big.bin" \
  "$readloop -t 2 $c/big.bin"

echo
echo "== find over a tree of 20,000 files"
race find-tree le 1.0 "" \
  "$cli find -s -c $pat $c/tree" \
  "rg -j1 -a -F -b -o $pat $c/tree"
race find-tree-threads le 0.9 "" \
  "$cli find -s -c $pat $c/tree" \
  "rg -a -F -b -o $pat $c/tree"

echo
echo "== replace in a 1 GiB binary file"
race replace-big speedup 2.5 "cp $c/big.orig $c/big.bin" \
  "$cli replace -c $pat $rep $c/big.bin" \
  "sed -i s/$pat/$rep/g $c/big.bin" \
  "perl -pi -e s/$pat/$rep/g $c/big.bin" \
  "bbe -e s/$pat/$rep/ -o $c/big.out $c/big.bin"
race replace-big-vs-cat le 1.5 "cp $c/big.orig $c/big.bin" \
  "$cli replace -c $pat $rep $c/big.bin" \
  "sh -c 'cat $c/big.bin > $c/big.out'"

echo
echo "== CR -> CR LF in 512 MiB of text (one hit per line)"
race crlf speedup 2.5 "cp $c/text.orig $c/text.txt" \
  "$cli replace -c %0D %0D%0A $c/text.txt" \
  "sed -i 's/\\r/\\r\\n/g' $c/text.txt" \
  "perl -pi -e 'BEGIN{\$/=\\65536} s/\\r/\\r\\n/g' $c/text.txt" \
  "bbe -e 's/\\x0d/\\x0d\\x0a/' -o $c/text.out $c/text.txt"
race crlf-vs-cat le 1.7 "cp $c/text.orig $c/text.txt" \
  "$cli replace -c %0D %0D%0A $c/text.txt" \
  "sh -c 'cat $c/text.txt > $c/text.out'"

echo
echo "== equal-length edits of big files"
# 1000 hits replaced by as many bytes: what a find of the same file costs.
race patch-big le 1.1 "cp $c/big.orig $c/big.bin" \
  "$cli replace -c $pat $same $c/big.bin" \
  "$cli find -c $pat $c/big.bin"
race page-save-5g seconds 0.050 "sh -c 'rm -f $sparse && truncate -s 5G $sparse'" \
  "$cli page --mode 0 --pos $sparsepos --block 16 --save $c/page.txt $sparse"

echo
echo "== replace over the tree"
race replace-tree le 1.0 "sh -c 'rm -rf $c/tree && cp -a $c/tree.orig $c/tree'" \
  "$cli replace -s -c $pat $rep $c/tree" \
  "sh -c 'rg -l -a -F $pat $c/tree | xargs -r sed -i s/$pat/$rep/g'"

echo
echo "== every race: ratio and goal"
cat "$summary"
