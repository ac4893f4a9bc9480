#!/usr/bin/env bash
# test_consumer.sh BUILD_DIR: installs the library built there into a directory of its own and builds
# tests/consumer against it, from outside the tree: found by CMake and by pkg-config, as C++17 and
# C++20, by g++ and clang++. Each program must run.
set -euo pipefail
source=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
  echo "test_consumer: $*" >&2
  exit 1
}

cmake --install "$build" --prefix "$work/first" >/dev/null
# The package must not care where it lies.
mv "$work/first" "$work/prefix"
prefix=$work/prefix
cp -r "$source/tests/consumer" "$work/consumer"
library=$(dirname "$(find "$prefix" -name libnox.so)")

[ -f "$prefix/include/nox/config.h" ] || fail 'nox/config.h is not installed'
[ -f "$library/libnox.so.1" ] || fail 'libnox.so.1 is not installed'
readelf -d "$library/libnox.so" | grep -q 'SONAME.*\[libnox\.so\.1\]' || fail 'SONAME is not libnox.so.1'
[ -f "$prefix/include/nox/client/client.h" ] || fail 'nox/client/client.h is not installed'
readelf -d "$library/libnoxclient.so" | grep -q 'SONAME.*\[libnoxclient\.so\.1\]' ||
  fail 'SONAME is not libnoxclient.so.1'
if grep -rlE "$source|$build|$work/first" "$prefix" --include='*.cmake' --include='*.pc' --include='*.h'; then
  fail 'the files above name the directory they were built or first installed in'
fi

export PKG_CONFIG_PATH=$library/pkgconfig
read -ra flags < <(pkg-config --cflags --libs nox)
read -ra client_flags < <(pkg-config --cflags --libs nox-client)
for compiler in g++ clang++; do
  for standard in 17 20; do
    echo "CMake, $compiler, C++$standard"
    cmake -S "$work/consumer" -B "$work/$compiler-$standard" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
      -DCMAKE_CXX_COMPILER=$compiler -DCMAKE_CXX_STANDARD=$standard >/dev/null
    cmake --build "$work/$compiler-$standard"
    "$work/$compiler-$standard/consumer"
    "$work/$compiler-$standard/client_consumer"

    echo "pkg-config, $compiler, C++$standard"
    $compiler -std=c++$standard "$work/consumer/consumer.cpp" -o "$work/consumer-$compiler-$standard" \
      "${flags[@]}" -Wl,-rpath,"$library"
    "$work/consumer-$compiler-$standard"
    $compiler -std=c++$standard "$work/consumer/client_consumer.cpp" \
      -o "$work/client-consumer-$compiler-$standard" "${client_flags[@]}" -Wl,-rpath,"$library"
    "$work/client-consumer-$compiler-$standard"
  done
done
