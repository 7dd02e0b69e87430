#!/bin/bash
# usage: tell-all.sh <nm> <library> <kivctl> <its man page> <its completion for bash>
# Compares the library's exports with the commands in kivctl's help, and these with the man page and the completion.
set -euo pipefail
shopt -s inherit_errexit
export LC_ALL=C

nm=$1 library=$2 page=$4
PATH=$(dirname "$3"):$PATH
. "$5"

# Prints the first words of the lines in a section of a command's help, without the values of arguments.
listed() { # section, help
  sed -n "/^$1:/,/^$/s/^  \([^ ].*\)/\1/p" <<<"$2" | sed 's/^-h,//; s/[ ,].*//'
}

offered() { # command...
  COMP_WORDS=(kivctl "$@" "")
  COMP_CWORD=$(($# + 1))
  _kivctl
  printf '%s\n' "${COMPREPLY[@]}"
}

# Prints every command without subcommands, and compares its help with its completion.
walk() { # command...
  local help part parts
  help=$(kivctl "$@" --help)
  parts=$(listed Subcommands "$help")
  diff --label "help of $*" --label "completion of $*" \
    <({ echo "$parts"; listed Options "$help"; echo "$anywhere"; } | sed '/^$/d' | sort -u) \
    <(offered "$@" | if [ -z "$parts" ]; then grep '^-'; else cat; fi | sort) >&2
  if [ -z "$parts" ]; then
    echo "$*"
  fi
  for part in $parts; do
    # The functions have no subcommands, and they are many.
    if [ "$*" = call ]; then echo "call $part"; else walk "$@" "$part"; fi
  done
}

# The options of kivctl itself are allowed anywhere.
anywhere=$(listed Options "$(kivctl --help)")
commands=$(walk | sort)
echo "$(wc -l <<<"$commands") commands"
# Prints the bold words at the beginning of a line in a section of the man page.
bold() { # section, first characters
  sed -n "/^\.SH $1/,/^\.SH/s/^\\\\fB\([$2][^\\\\]*\(\\\\-[^\\\\]*\)*\)\\\\fR.*/\1/p" "$page" | sed 's/\\-/-/g'
}
diff --label help --label "man page" <(echo "$commands") \
  <({ bold COMMANDS a-z | grep -vx call; bold FUNCTIONS A-Za-z | sed 's/^/call /'; } | sort)

# Each argument must be explained once.
diff --label nothing --label "explained twice" /dev/null <(bold ARGUMENTS 'A-Z\' | sed 's/[ .].*//' | sort | uniq -d)

functions=$("$nm" --dynamic --defined-only "$library" | sed -n 's/.* T \([^@]*\).*/\1/p' | sed '/^_Z/d' | sort)
echo "$(wc -l <<<"$functions") functions"
diff --label exported --label "help of call" <(echo "$functions") <(sed -n 's/^call //p' <<<"$commands")
