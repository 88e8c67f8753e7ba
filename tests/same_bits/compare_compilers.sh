#!/bin/sh
# compare_compilers.sh [FOLDER]
# Builds same_bits with GCC and with Clang, in FOLDER (default: build/same_bits), and compares what they print.
set -eu
root=$(cd "$(dirname "$0")/../.." && pwd)
folder=${1:-$root/build/same_bits}
for compiler in g++ clang++; do
  mkdir -p "$folder/$compiler"
  {
    cmake -S "$root" -B "$folder/$compiler" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=$compiler \
      -DKESTRUM_BUILD_PYTHON=OFF
    cmake --build "$folder/$compiler" --target same_bits
  } > "$folder/$compiler/build.log" 2>&1 || { cat "$folder/$compiler/build.log"; exit 1; }
done
"$root/tests/same_bits/compare.sh" "$folder/clang++/bin/same_bits" "$folder/g++/bin/same_bits"
