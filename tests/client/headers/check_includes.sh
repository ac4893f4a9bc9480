#!/usr/bin/env bash
# check_includes.sh COMPILER INCLUDE_DIR: fails when a header of the client library is not among what
# nox/client/client.h includes, and when one includes a header of another library.
set -euo pipefail
compiler=$1 include_dir=$2
status=0
included=$("$compiler" -std=c++17 -MM -I"$include_dir" "$include_dir/nox/client/client.h" |
  tr -d '\\' | tr -s ' ' '\n')
for header in "$include_dir"/nox/client/*.h; do
  if ! grep -qxF "$header" <<<"$included"; then
    echo "client.h does not include $header"
    status=1
  fi
  if grep -nE '^#include' "$header" | grep -vE '#include (<[a-z_]+>|"nox/client/[a-z_]+\.h")$'; then
    echo "$header includes the above"
    status=1
  fi
done
exit $status
