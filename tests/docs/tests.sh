#!/bin/bash
# usage: tests.sh <directory of the tests> <document>
# Prints the tests that a document names, as `Suite.Test`, and that do not exist.
set -euo pipefail
export LC_ALL=C

# The macro's arguments may be on several lines.
existing=$(find "$1" -name '*.cpp' -exec cat {} + | tr -d ' \n' |
  grep -oP '\bTEST(_F|_P)?\(\K\w+,\w+(?=\))' | tr , . | sort -u)
named=$(grep -oP '`\K[A-Z]\w*\.[A-Z]\w*(?=`)' "$2" | sort -u)
missing=$(comm -13 <(echo "$existing") <(echo "$named"))
echo "$(wc -l <<<"$named") tests named; not there: ${missing:-none}"
test -z "$missing"
