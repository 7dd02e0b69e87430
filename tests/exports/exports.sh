#!/bin/bash
# usage: exports.sh <nm> <library> <list of exports>
# Prints the exports of the library that are not in the list (+), and those of the list that it does not export (-).
set -euo pipefail
export LC_ALL=C

# Absolute symbols are the names of symbol versions.
exports=$("$1" --dynamic --defined-only "$2" | sed '/ A /d; s/@.*//; s/^[^ ]* . //' | c++filt | sort -u)
diff --unified=0 --label listed --label exported "$3" - <<<"$exports"
