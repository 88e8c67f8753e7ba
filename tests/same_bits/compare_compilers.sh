#!/bin/sh
# compare_compilers.sh [FOLDER]
# Builds same_bits with GCC and with Clang, in FOLDER (default: build/same_bits), and compares what they print; then the
# package with Clang, whose results must have the hashes of tests/python/hashes.txt.
set -eu
root=$(cd "$(dirname "$0")/../.." && pwd)
folder=${1:-$root/build/same_bits}
python=${PYTHON:-/usr/bin/python3}
for compiler in g++ clang++; do
  mkdir -p "$folder/$compiler"
  {
    cmake -S "$root" -B "$folder/$compiler" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=$compiler \
      -DKESTRUM_PYTHON="$python"
    cmake --build "$folder/$compiler" --target same_bits
  } > "$folder/$compiler/build.log" 2>&1 || { cat "$folder/$compiler/build.log"; exit 1; }
done
"$root/tests/same_bits/compare.sh" "$folder/clang++/bin/same_bits" "$folder/g++/bin/same_bits"
cmake --build "$folder/clang++" --target kestrum_python > "$folder/clang++/build.log" 2>&1 ||
  { cat "$folder/clang++/build.log"; exit 1; }
PYTHONPATH=$folder/clang++/python PYTHONDONTWRITEBYTECODE=1 OMP_WAIT_POLICY=passive \
  "$python" -m pytest -q -p no:cacheprovider "$root/tests/python/test_hashes.py"
