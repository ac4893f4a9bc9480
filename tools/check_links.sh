#!/usr/bin/env bash
# Fails when a link in one of the project's documents leads to a file or a heading that is not there.
# Links to other hosts are left alone.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# The names that headings get as link targets: lower case, dashes for blanks, no punctuation.
anchors() {
  sed -n '/^```/,/^```/d; s/^##* //p' "$1" | tr '[:upper:]' '[:lower:]' |
    sed 's/[^a-z0-9 _-]//g; s/ /-/g'
}

broken=0
while IFS= read -r document; do
  while IFS= read -r link; do
    case $link in *://* | mailto:*) continue ;; esac
    file=${link%%#*} anchor=
    case $link in *#*) anchor=${link#*#} ;; esac
    if [ -n "$file" ]; then target=$(dirname "$document")/$file; else target=$document; fi
    if [ ! -e "$target" ]; then
      echo "$document: $link: no such file"
      broken=1
    elif [ -n "$anchor" ] && ! anchors "$target" | grep -qxF -- "$anchor"; then
      echo "$document: $link: no such heading"
      broken=1
    fi
  done < <(sed '/^```/,/^```/d' "$document" | { grep -oE '\]\([^) ]+\)' || true; } | sed 's/^](//; s/)$//')
done < <(find . -path ./build -prune -o -name '*.md' -print)
exit $broken
