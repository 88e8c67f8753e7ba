#!/bin/sh
# compare.sh PROGRAM [REFERENCE]
# Runs same_bits with each level of instructions that the machine has, and several numbers of threads. All outputs must
# be that of the reference (the same program by default) with the baseline, serial.
set -eu
program=$1
reference=${2:-$program}
export OMP_WAIT_POLICY=passive # threads in excess of the processors must not spin
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

"$reference" --level baseline --threads 0 > "$folder/expected"
for level in baseline avx2 avx512; do
  for threads in 0 1 2 3 8; do
    status=0
    "$program" --level $level --threads $threads > "$folder/actual" || status=$?
    if [ $status -eq 77 ]; then
      echo "$level: not on this machine"
      break
    fi
    if [ $status -ne 0 ] || ! diff "$folder/expected" "$folder/actual"; then
      echo "FAILED: $level, $threads threads (0: serial form), status $status"
      exit 1
    fi
  done
done
echo "$(wc -l < "$folder/expected") calls with the same bits"
