#!/bin/bash
# usage: bash-completion.sh <completion> <program> <what is typed behind it> <words that complete the last word>
set -euo pipefail

. "$1"
# The words are split as a shell splits them.
read -ra COMP_WORDS <<<"$2 $3"
# An empty last word follows a space.
if [[ $3 == *' ' ]]; then COMP_WORDS+=(""); fi
COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
function=$(complete -p "${2##*/}" | sed 's/.* -F \([^ ]*\) .*/\1/')
"$function"
for word in $4; do
  printf '%s\n' "${COMPREPLY[@]}" | grep -x -e "$word"
done
