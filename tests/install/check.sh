#!/bin/sh
# check.sh BUILD WORK: installs BUILD below WORK, then builds and runs the stranger's programs by its CMake package and by
# pkg-config. CC, CXX and KESTRUM_LIBDIR come from the build.
set -eu
build=$1
work=$2
source=$(cd "$(dirname "$0")" && pwd)/stranger
prefix=$work/prefix

rm -rf "$work"
cmake --install "$build" --prefix "$prefix" > /dev/null

cmake -S "$source" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release > /dev/null
cmake --build "$work/cmake" > /dev/null
for program in stranger_c stranger_cpp stranger_static; do "$work/cmake/$program"; done

PKG_CONFIG_PATH=$prefix/$KESTRUM_LIBDIR/pkgconfig
export PKG_CONFIG_PATH
flags="pkg-config kestrum"
strict="-Wall -Wextra -Wpedantic -Wshadow -Werror"
# The flags are deliberately split into words.
# shellcheck disable=SC2046,SC2086
{
  $CC -std=c99 $strict $($flags --cflags) "$source/main.c" -o "$work/c" $($flags --libs) -lm
  $CXX -std=c++11 $strict $($flags --cflags) "$source/main.cpp" -o "$work/cpp" $($flags --libs)
}
for program in c cpp; do LD_LIBRARY_PATH=$prefix/$KESTRUM_LIBDIR "$work/$program"; done
