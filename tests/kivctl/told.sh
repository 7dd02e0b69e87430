#!/bin/bash
# usage: told.sh <program> <its man page> <its completion for bash> [command...]
# Prints the options and subcommands in the program's help that are not in its man page or its completion.
set -euo pipefail
export LC_ALL=C

program=$1 page=$2
. "$3"
shift 3

listed=$("$program" "$@" --help | sed -En 's/^  (-h,)?(--[a-z-]+).*/\2/p; /^Subcommands:/,/^$/s/^  ([a-z-]+) .*/\1/p')
COMP_WORDS=("$program" "$@" "")
COMP_CWORD=$(($# + 1))
_kiv_sandbox
diff --label help --label completion <(sort <<<"$listed") \
  <(printf '%s\n' "${COMPREPLY[@]}" | grep -vx -e -- -e control | sort)

text=$(sed 's/\\-/-/g; s/\\f.//g' "$page")
for word in $listed; do
  if ! grep -Eq "^\.B[RI]* (.* )?$word( |$)" <<<"$text"; then
    echo "not in the man page: $word"
    missing=1
  fi
done
echo "$(wc -w <<<"$listed") options and subcommands"
test -z "${missing:-}"
