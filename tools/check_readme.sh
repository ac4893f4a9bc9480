#!/usr/bin/env bash
# Fails when a program that README.md shows differs from the one that is compiled.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# block N: the Nth block of C++ in README.md.
block() {
  awk -v wanted="$1" '/^```cpp$/ { inside = ++n == wanted; next } /^```$/ { inside = 0 } inside' README.md
}

diff examples/client/ten_lines.cpp <(block 1)
diff examples/first_exchange.cpp <(block 2)
