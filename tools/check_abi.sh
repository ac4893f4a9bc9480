#!/usr/bin/env bash
# check_abi.sh [REVISION]: compares the binary interfaces of the libraries with those of REVISION, the
# last tagged version unless told otherwise, and fails where a program that was built against it would
# no longer work. docs/abi.md says what is promised. Builds both; needs abidiff.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
revision=${1:-$(git describe --tags --abbrev=0 2>/dev/null || true)}
if [ -z "$revision" ]; then
  echo 'No version has been tagged yet: there is nothing to compare with.'
  exit 0
fi
work=$(mktemp -d)
cleanup() {
  git worktree remove --force "$work/old" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
git worktree add --quiet --detach "$work/old" "$revision"

# interfaces SOURCE BUILD: the libraries with what a debugger needs, since that describes them.
interfaces() {
  cmake -S "$1" -B "$2" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS='-Og -g' \
    -DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DNOX_BUILD_TESTS=OFF -DNOX_BUILD_EXAMPLES=OFF \
    -DNOX_BUILD_AGENT=OFF >/dev/null
  cmake --build "$2" --target nox >/dev/null
  if cmake --build "$2" --target help | grep -q '^nox_client:'; then
    cmake --build "$2" --target nox_client >/dev/null
  fi
}
interfaces "$work/old" "$work/old-build"
interfaces . "$work/new-build"

status=0
for library in libnox.so libnoxclient.so; do
  [ -e "$work/old-build/lib/$library" ] || continue
  echo "$library since $revision:"
  # What is added is no change; an exit status of 8 and more says that programs break.
  result=0
  abidiff --no-added-syms --headers-dir1 "$work/old/nox" --headers-dir2 nox \
    "$work/old-build/lib/$library" "$work/new-build/lib/$library" || result=$?
  [ $((result & ~4)) -eq 0 ] || status=1
done
exit $status
