#!/usr/bin/env bash
# Fails when an example of docs/client.md differs from what is compiled and run: the first from
# examples/client/ten_lines.cpp, the others from what stands between the arrows of
# tests/client/wire/guide_test.cpp, in the same order.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

shown() {
  awk '/^```cpp$/ { inside = 1; print "---"; next } /^```$/ { inside = 0 } inside' docs/client.md
}

compiled() {
  echo "---"
  cat examples/client/ten_lines.cpp
  sed -n '/^  \/\/ >>>$/,/^  \/\/ <<<$/p' tests/client/wire/guide_test.cpp |
    sed '/^  \/\/ <<<$/d; s/^  \/\/ >>>$/  ---/; s/^  //'
}

diff <(compiled) <(shown)
