#!/bin/bash
# usage: exports.sh <nm> <library> <list of exports>
# Tells which exports of the library are not in the list (+), and which of the list it does not export (-).
set -euo pipefail
export LC_ALL=C

# Absolute symbols are the names of symbol versions.
exports=$("$1" --dynamic --defined-only "$2" | sed '/ A /d; s/@.*//; s/^[^ ]* . //' | c++filt | sort -u)
diff --unified=0 --label listed --label exported "$3" - <<<"$exports"
