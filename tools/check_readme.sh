#!/usr/bin/env bash
# Fails when the first exchange that README.md shows differs from the program that is compiled.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
sed -n '/^```cpp$/,/^```$/p' README.md | sed '/^```/d' | diff examples/first_exchange.cpp -
