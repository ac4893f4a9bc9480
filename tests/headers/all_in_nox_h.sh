#!/usr/bin/env bash
# all_in_nox_h.sh COMPILER SOURCE_DIR GENERATED_DIR HEADER...: fails when one of the headers is not
# among what nox/nox.h includes.
set -euo pipefail
compiler=$1 source=$2 generated=$3
shift 3
included=$("$compiler" -std=c++17 -MM -I"$source" -I"$generated" "$source/nox/nox.h" |
  tr -d '\\' | tr -s ' ' '\n')
missing=0
for header in "$@"; do
  if ! grep -qxF "$source/$header" <<<"$included"; then
    echo "nox/nox.h does not include $header"
    missing=1
  fi
done
exit $missing
