#!/usr/bin/env bash
# Where the viewer stands when the window program is started with a file,
# under a real window manager (openbox on Xvfb), on a 1280x800 and on a
# 1920x1080 screen: right of the main window, at its top and height, wholly
# on the screen, its title bar visible. Prints "N of N" per screen and fails
# on any start that misses. Without Xvfb, openbox, xdotool, xwininfo or
# xprop it prints SKIP and passes.
#   placement.sh BRINDLEX [STARTS]     (STARTS per screen, 10 by default)
set -u
prog=$(realpath "$1")
starts=${2:-10}
for tool in Xvfb openbox xdotool xwininfo xprop; do
  command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed"; exit 0; }
done

dir=$(mktemp -d)
stop() { for p in "$@"; do [ -n "$p" ] && kill "$p" 2>/dev/null && wait "$p" 2>/dev/null; done; }
trap 'rm -rf "$dir"' EXIT
mkdir -p "$dir/files" "$dir/work" "$dir/config"
printf 'some text\r\n' >"$dir/files/f.txt"

# The frame of window $1, title bar and borders included: "x y w h", from
# the client's place and the window manager's frame extents.
frame() {
  local x y w h l r t b
  read -r x y w h < <(xwininfo -id "$1" 2>/dev/null | awk '/Absolute upper-left X/ {x=$NF}
    /Absolute upper-left Y/ {y=$NF} /^ *Width:/ {w=$NF} /^ *Height:/ {h=$NF} END {print x, y, w, h}')
  read -r l r t b < <(xprop -id "$1" _NET_FRAME_EXTENTS 2>/dev/null | sed -n 's/.*= //; s/,//gp')
  echo "$((x - ${l:-0})) $((y - ${t:-0})) $((w + ${l:-0} + ${r:-0})) $((h + ${t:-0} + ${b:-0})) ${t:-0}"
}

# $starts starts on a screen of $1 at display :$2 or the next free one;
# prints each miss, then "$1: N of $starts", and leaves N in $dir/$1.
onscreen() {
  # Run in a subshell of its own: the processes' ids need no locals.
  local screen=$1 n=$2 ok=0 i
  apid=""
  local W=${screen%x*} H=${screen#*x}
  while [ -e "/tmp/.X$n-lock" ] || [ -e "/tmp/.X11-unix/X$n" ]; do n=$((n + 1)); done
  Xvfb ":$n" -screen 0 "${screen}x24" -nolisten tcp >/dev/null 2>&1 &
  xpid=$!
  trap 'stop "${apid:-}" "${wmpid:-}" "$xpid"' EXIT
  export DISPLAY=":$n"
  # The server answering, then the window manager managing: a start before
  # either (a socket can be there before its server takes clients) shows
  # no window at all.
  for _ in $(seq 100); do xprop -root >/dev/null 2>&1 && break; sleep 0.1; done
  openbox >/dev/null 2>&1 &
  wmpid=$!
  for _ in $(seq 100); do
    xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q 'window id' && break
    sleep 0.1
  done
  for i in $(seq "$starts"); do
    (cd "$dir/files" && BRINDLEX_TEMP="$dir/work" XDG_CONFIG_HOME="$dir/config" QT_QPA_PLATFORM=xcb \
      exec "$prog" "$dir/files/f.txt" >/dev/null 2>&1) &
    apid=$!
    local main="" viewer="" last="" same=0
    # Both windows up, and the frames still for three looks in a row; a
    # start on a busy machine may take seconds.
    for _ in $(seq 150); do
      sleep 0.1
      main=$(xdotool search --onlyvisible --name '^Brindlex Version' 2>/dev/null | head -1)
      viewer=$(xdotool search --onlyvisible --name 'f\.txt \(' 2>/dev/null | head -1)
      [ -n "$main" ] && [ -n "$viewer" ] || continue
      now="$(frame "$main") $(frame "$viewer")"
      if [ "$now" = "$last" ]; then same=$((same + 1)); else same=0; last=$now; fi
      [ $same -ge 3 ] && break
    done
    local mx my mw mh vx vy vw vh title why=""
    read -r mx my mw mh _ vx vy vw vh title <<<"${last:-0 0 0 0 0 0 0 0 0 0}"
    [ -n "$viewer" ] || why="no viewer"
    [ -z "$why" ] && [ $((vx - (mx + mw))) -lt -2 ] && why="not right of the main window"
    [ -z "$why" ] && [ $((vy - my)) -gt 2 -o $((my - vy)) -gt 2 ] && why="another top"
    [ -z "$why" ] && [ $((vh - mh)) -gt 2 -o $((mh - vh)) -gt 2 ] && why="another height"
    [ -z "$why" ] && { [ "$vx" -lt 0 ] || [ "$vy" -lt 0 ] || [ $((vx + vw)) -gt "$W" ] || [ $((vy + vh)) -gt "$H" ]; } &&
      why="not wholly on the screen"
    [ -z "$why" ] && [ "$title" -lt 10 ] && why="no title bar"
    if [ -z "$why" ]; then
      ok=$((ok + 1))
    else
      echo "start $i on $screen: $why (main $mx,$my ${mw}x$mh, viewer $vx,$vy ${vw}x$vh)"
    fi
    stop "$apid"
    apid=""
  done
  echo "$screen: $ok of $starts"
  echo "$ok" >"$dir/$screen"
}

# The two screens at once, each on a display of its own.
(onscreen 1280x800 90) &
(onscreen 1920x1080 130) &
wait
good=$(( $(cat "$dir/1280x800" 2>/dev/null || echo 0) + $(cat "$dir/1920x1080" 2>/dev/null || echo 0) ))
echo "$good of $((2 * starts))"
[ "$good" -eq $((2 * starts)) ]
