#!/bin/sh
# compilers.sh COMPILER FOLDER JOBS
# Builds the library in FOLDER with a C++ compiler of Debian, g++-11 or clang++-16 say, and runs its tests. Warnings are
# errors. Installs the compiler if it is missing.
set -eu
compiler=$1
folder=$2
jobs=$3
root=$(cd "$(dirname "$0")/.." && pwd)
version=${compiler##*-}
as_root=""
[ "$(id -u)" -eq 0 ] || as_root=sudo

mkdir -p "$folder"
case $compiler in
  clang++*) package=clang-$version c_compiler=clang-$version ;;
  *) package=g++-$version c_compiler=gcc-$version ;;
esac
command -v "$compiler" > /dev/null ||
  $as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "$package"
# The packages of LLVM's OpenMP libraries exclude each other: what another version needs is unpacked, not installed.
llvm=/usr/lib/llvm-$version
if [ "$package" = "clang-$version" ] && [ ! -e "$llvm/lib/libomp.so" ]; then
  llvm=$(cd "$folder" && pwd)/openmp$llvm
  if [ ! -e "$llvm/lib/libomp.so" ]; then
    (cd "$folder" && apt-get download -q "libomp-$version-dev" "libomp5-$version" &&
      for archive in libomp*.deb; do dpkg -x "$archive" openmp; done)
  fi
  header=$(find "$llvm/lib/clang" -name omp.h)
  export CXXFLAGS="-idirafter ${header%/omp.h}" LDFLAGS="-L$llvm/lib -Wl,-rpath,$llvm/lib"
fi

echo "== $compiler"
cmake -S "$root" -B "$folder/build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_COMPILER="$c_compiler" \
  -DCMAKE_CXX_COMPILER="$compiler" -DKESTRUM_DEVELOPER=ON -DKESTRUM_BUILD_PYTHON=OFF > "$folder/configure.log" ||
  { cat "$folder/configure.log"; exit 1; }
cmake --build "$folder/build" --parallel "$jobs" > "$folder/build.log" || { cat "$folder/build.log"; exit 1; }
ctest --test-dir "$folder/build" --parallel "$jobs" --output-on-failure > "$folder/test.log" ||
  { cat "$folder/test.log"; exit 1; }
grep "tests passed" "$folder/test.log"
