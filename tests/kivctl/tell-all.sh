#!/bin/bash
# usage: tell-all.sh <nm> <library> <kivctl> <its man page> <its completion for bash>
# Compares what the library exports with what kivctl's help lists, and that with the man page and the completion.
set -euo pipefail
shopt -s inherit_errexit
export LC_ALL=C

nm=$1 library=$2 page=$4
PATH=$(dirname "$3"):$PATH
. "$5"

# The first words of what the help of a command lists.
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
    <({ echo "$parts"; listed Options "$@"; listed Options; } | sed '/^$/d' | sort -u) <(offered "$@" | sort) >&2
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
diff --label help --label "man page" <(echo "$commands") \
  <(sed -n '/^\.SH COMMANDS/,/^\.SH "/p' "$page" | sed -n 's/\\-/-/g; s/^\\fB\([a-z].*\)\\fR$/\1/p' | sort)

functions=$("$nm" --dynamic --defined-only "$library" | sed -n 's/.* T \([^@]*\).*/\1/p' | sed '/^_Z/d' | sort)
echo "$(wc -l <<<"$functions") functions"
diff --label exported --label "help of call" <(echo "$functions") <(sed -n 's/^call //p' <<<"$commands")
