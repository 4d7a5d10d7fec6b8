#!/usr/bin/env bash
# Installs the build tree BUILD into a fresh prefix and checks what a user
# gets: exactly the files below, a valid desktop entry, man pages that render
# without a warning, a completion that loads, and programs that answer
# --help and --version without a display.
set -euo pipefail
build=$1
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
fail=0
bad() { echo "FAIL: $*" >&2; fail=1; }

cmake --install "$build" --prefix "$prefix" >/dev/null

expected="bin/brindlex
bin/brindlex-cli
share/applications/brindlex.desktop
share/bash-completion/completions/brindlex-cli
share/doc/brindlex/changelog.gz
share/doc/brindlex/copyright
share/icons/hicolor/128x128/apps/brindlex.png
share/icons/hicolor/16x16/apps/brindlex.png
share/icons/hicolor/256x256/apps/brindlex.png
share/icons/hicolor/32x32/apps/brindlex.png
share/icons/hicolor/48x48/apps/brindlex.png
share/icons/hicolor/64x64/apps/brindlex.png
share/icons/hicolor/scalable/apps/brindlex.svg
share/man/man1/brindlex-cli.1.gz
share/man/man1/brindlex.1.gz"
actual=$(cd "$prefix" && find . -type f -printf '%P\n' | LC_ALL=C sort)
[ "$actual" = "$expected" ] || bad "installed files differ:
$(diff <(echo "$expected") <(echo "$actual"))"

for exe in bin/brindlex bin/brindlex-cli; do
  [ -x "$prefix/$exe" ] || bad "$exe is not executable"
done

desktop-file-validate "$prefix/share/applications/brindlex.desktop" || bad "desktop entry"
read -r exe _ < <(sed -n 's/^Exec=//p' "$prefix/share/applications/brindlex.desktop")
[ -x "$prefix/bin/$exe" ] || bad "the entry starts no installed program: $exe"

for page in brindlex brindlex-cli; do
  file="$prefix/share/man/man1/$page.1.gz"
  warnings=$(MANWIDTH=80 man --warnings -l "$file" 2>&1 >/dev/null)
  [ -z "$warnings" ] || bad "man page $page warns: $warnings"
  MANWIDTH=80 man -l "$file" 2>/dev/null | grep -q "^NAME" || bad "man page $page renders no NAME"
done
# The command page tells every subcommand.
rendered=$(MANWIDTH=80 man -l "$prefix/share/man/man1/brindlex-cli.1.gz" 2>/dev/null)
for command in find replace sets decode page dump; do
  grep -q "brindlex-cli $command" <<<"$rendered" || bad "brindlex-cli(1) lacks $command"
done

# The completion offers the subcommands, and each command's own options.
complete_line() {
  bash -c 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _brindlex_cli; echo "${COMPREPLY[*]}"' \
    _ "$prefix/share/bash-completion/completions/brindlex-cli" "$@"
}
[ "$(complete_line brindlex-cli d)" = "decode dump" ] || bad "completion of 'd': $(complete_line brindlex-cli d)"
[ "$(complete_line brindlex-cli replace --dr)" = "--dry-run" ] || bad "completion of replace --dr"
[ -z "$(complete_line brindlex-cli find --dr)" ] || bad "find offers --dry-run"

version=$(env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM "$prefix/bin/brindlex" --version) ||
  bad "brindlex --version failed"
[[ $version == "brindlex "* ]] || bad "brindlex --version said '$version'"
for page in brindlex brindlex-cli; do
  zcat "$prefix/share/man/man1/$page.1.gz" | head -1 | grep -qF "\"brindlex ${version#brindlex }\"" ||
    bad "$page.1 is not of version ${version#brindlex }"
done
env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM "$prefix/bin/brindlex" --help | grep -q '^usage: brindlex' ||
  bad "brindlex --help"
"$prefix/bin/brindlex-cli" --version | grep -q '^brindlex-cli ' || bad "brindlex-cli --version"

exit $fail
