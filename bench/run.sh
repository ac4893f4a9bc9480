#!/bin/sh
# Measures time and memory and prints both as tables: bench/run.sh BUILD_DIR [FLAGS OF nox_bench]
# The raw numbers and the tables stay in BUILD_DIR as bench.json, bench-memory.json and bench.md.
set -eu

build=$1
shift
here=$(dirname "$0")

"$build/bin/nox_bench" --benchmark_out="$build/bench.json" --benchmark_out_format=json "$@"
"$build/bin/nox_bench_memory" >"$build/bench-memory.json"
"$here/../tools/bench_table.py" "$build/bench.json" "$build/bench-memory.json" >"$build/bench.md"
echo
cat "$build/bench.md"
