#!/bin/bash
# usage: interfaces.sh <man page> <introspection XML>...
# Prints the methods and arguments that are not in the man page.
set -euo pipefail

text=$(sed 's/\\-/-/g; s/\\f.//g' "$1")
shift
count=0 missing=0
while read -r kind name; do
  count=$((count + 1))
  if ! grep -Eq "^(\.SS )?$name( \(.*\))?$" <<<"$text"; then
    echo "not in the man page: $kind $name"
    missing=1
  fi
done < <(sed -En 's/.*<(method|arg) name="([^"]*)".*/\1 \2/p' "$@")
echo "$count methods and arguments"
test "$count" != 0 -a "$missing" = 0
