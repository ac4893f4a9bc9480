#!/usr/bin/env bash
# check_transcript.sh BUILD_DIR [--update]: runs the commands of the ```console blocks of README.md, from
# top to bottom in a fresh directory, and fails when they print something else than what stands there.
# The agent takes free ports instead of its usual ones. With --update, what they print is put into
# README.md.
set -euo pipefail
source=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$(cd "$1" && pwd)
update=${2:-}
work=$(mktemp -d)
agent=
cleanup() {
  [ -z "$agent" ] || kill "$agent" 2>/dev/null || true
  [ -z "$agent" ] || wait "$agent" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
cd "$work"
export PATH=$build/bin:$PATH HOME=$work NO_COLOR=1

awk '/^```console$/ { inside = 1; next } /^```$/ { inside = 0 } inside' "$source/README.md" >shown

# run COMMAND: one line of the transcript.
run() {
  case $1 in
    noxd\ --config*)
      sed -i 's/^#listen = .*/listen = "127.0.0.1:0"/' data/noxd.toml
      noxd --config data/noxd.toml --ports-file ports 2>log &
      agent=$!
      for _ in $(seq 400); do
        [ ! -s ports ] || break
        sleep 0.05
      done
      [ -s ports ] || { cat log >&2; exit 1; }
      ;;
    export\ NOX_URI=*)
      eval "${1/localhost/localhost:$(sed -n 's/^tls //p' ports)}"
      ;;
    *) eval "$1" 2>&1 || true ;;
  esac
}

# In this shell, so that what one line exports the next one sees.
exec 5>printed
while IFS= read -r line <&6; do
  case $line in
    '$ '*)
      printf '%s\n' "$line" >&5
      run "${line#\$ }" >&5 6<&-
      ;;
  esac
done 6<shown
exec 5>&-

if [ "$update" = --update ]; then
  awk -v printed="$work/printed" '
    function advance() { more = (getline line < printed) > 0 }
    BEGIN { advance() }
    /^```console$/ { inside = 1; print; next }
    /^```$/ { inside = 0 }
    !inside { print; next }
    /^[$] / { do { print line; advance() } while (more && line !~ /^[$] /) }' "$source/README.md" >new
  cp new "$source/README.md"
else
  diff shown printed
fi
