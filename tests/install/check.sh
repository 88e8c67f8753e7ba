#!/bin/sh
# check.sh BUILD WORK: installs BUILD below WORK, then builds and runs the stranger's programs by its CMake package and by
# pkg-config, and compiles them in a project that adds the sources. CC, CXX and KESTRUM_... come from the build.
set -eu
build=$1
work=$2
source=$(cd "$(dirname "$0")" && pwd)/stranger
prefix=$work/prefix

rm -rf "$work"
cmake --install "$build" --prefix "$prefix" > /dev/null

cmake -S "$source" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release \
  -DKESTRUM_VERSION="$KESTRUM_VERSION" -DKESTRUM_MODULE="$KESTRUM_MODULE" > /dev/null
cmake --build "$work/cmake" > /dev/null
for program in stranger_c stranger_cpp stranger_static; do "$work/cmake/$program"; done

PKG_CONFIG_PATH=$prefix/$KESTRUM_LIBDIR/pkgconfig
export PKG_CONFIG_PATH
flags="pkg-config kestrum"
strict="-Wall -Wextra -Wpedantic -Wshadow -Werror"
cmake -S "$source/parent" -B "$work/parent" -DKESTRUM_SOURCE="$source/../../.." > /dev/null
# The flags are deliberately split into words.
# shellcheck disable=SC2046,SC2086
{
  $CC -std=c99 $strict $($flags --cflags) "$source/main.c" -I"$source" -o "$work/c" $($flags --libs) -lm
  $CXX -std=c++11 $strict $($flags --cflags) "$source/main.cpp" -I"$source" -o "$work/cpp" $($flags --libs)
  $CC -std=c99 $strict -fsyntax-only $(cat "$work/parent/flags") -I"$source" "$source/main.c"
  $CXX -std=c++11 $strict -fsyntax-only $(cat "$work/parent/flags") -I"$source" "$source/main.cpp"
}
for program in c cpp; do LD_LIBRARY_PATH=$prefix/$KESTRUM_LIBDIR "$work/$program"; done
