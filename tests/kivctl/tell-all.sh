#!/bin/bash
# usage: tell-all.sh <nm> <library> <kivctl> <its man page> <its completion for bash>
# Compares what the library exports with what kivctl's help lists, and that with the man page and the completion.
set -euo pipefail
shopt -s inherit_errexit
export LC_ALL=C

nm=$1 library=$2 page=$4
PATH=$(dirname "$3"):$PATH
. "$5"

# The first words of what the help of a command lists. The values of an argument are not among them.
listed() { # section, command...
  kivctl "${@:2}" --help | sed -n "/^$1:/,/^$/s/^  \([^ ].*\)/\1/p" | sed 's/^-h,//; s/[ ,].*//'
}

offered() { # command...
  COMP_WORDS=(kivctl "$@" "")
  COMP_CWORD=$(($# + 1))
  _kivctl
  printf '%s\n' "${COMPREPLY[@]}"
}

# Prints every command that has none below it, and compares on the way.
walk() { # command...
  local part parts
  parts=$(listed Subcommands "$@")
  # The options of kivctl itself may stand anywhere.
  diff --label "help of $*" --label "completion of $*" \
    <({ echo "$parts"; listed Options "$@"; listed Options; } | sed '/^$/d' | sort -u) \
    <(offered "$@" | if [ -z "$parts" ]; then grep '^-'; else cat; fi | sort) >&2
  if [ -z "$parts" ]; then
    echo "$*"
  fi
  for part in $parts; do
    # Functions have none below them, and are many.
    if [ "$*" = call ]; then echo "call $part"; else walk "$@" "$part"; fi
  done
}

commands=$(walk | sort)
echo "$(wc -l <<<"$commands") commands"
# Prints the words that stand in bold at the beginning of a line in a section of the man page.
bold() { # section, first characters
  sed -n "/^\.SH $1/,/^\.SH/s/^\\\\fB\([$2][^\\\\]*\(\\\\-[^\\\\]*\)*\)\\\\fR.*/\1/p" "$page" | sed 's/\\-/-/g'
}
diff --label help --label "man page" <(echo "$commands") \
  <({ bold COMMANDS a-z | grep -vx call; bold FUNCTIONS A-Za-z | sed 's/^/call /'; } | sort)

# Each argument has one explanation.
diff --label nothing --label "explained twice" /dev/null <(bold ARGUMENTS 'A-Z\' | sed 's/[ .].*//' | sort | uniq -d)

functions=$("$nm" --dynamic --defined-only "$library" | sed -n 's/.* T \([^@]*\).*/\1/p' | sed '/^_Z/d' | sort)
echo "$(wc -l <<<"$functions") functions"
diff --label exported --label "help of call" <(echo "$functions") <(sed -n 's/^call //p' <<<"$commands")
