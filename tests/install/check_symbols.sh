#!/bin/bash
# check_symbols.sh LIBRARY INCLUDE: the shared library shows exactly the functions that kestrum.h in INCLUDE declares.
# CC comes from the build.
set -euo pipefail
export LC_ALL=C

# Without comments and macros, only a declaration has a name of the interface in front of a parenthesis.
declared=$($CC -std=c99 -E -P -I"$2" "$2/kestrum.h" | grep -o -E '\<(VORL|vorl_)[A-Za-z0-9_]* *\(' | tr -d ' (' | sort)
visible=$(nm -D --defined-only "$1" | awk '{ print $3 }' | sort)
diff --unified=0 --label declared <(echo "$declared") --label visible <(echo "$visible")
echo "$(wc -l <<< "$visible") functions"
