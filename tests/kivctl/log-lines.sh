#!/bin/bash
# usage: log-lines.sh <man page> <page of the log lines>
# Prints the lines of the page that are not in the man page.
set -euo pipefail
export LC_ALL=C

lines=$(grep -oP '^\| `\K[^`]+(?=` \|)' "$2" | sort)
count=$(wc -l <<<"$lines")
echo "$count lines"
told=$(sed -n '/^\.TP$/{n;s/^\\fB\(.*\)\\fR$/\1/p}' "$1" | sed "s/\\\\-/-/g; s/\\\\(aq/'/g" | sort)
diff --label "the page" <(echo "$lines") --label "the man page" <(echo "$told")
test "$count" -gt 100
