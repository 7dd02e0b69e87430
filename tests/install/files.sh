#!/bin/bash
# usage: files.sh <prefix> <list of files>
# Tells which files below the prefix are not in the list (+), and which of the list are not there (-).
set -euo pipefail
export LC_ALL=C

cd "$1"
diff --unified=0 --label intended --label installed <(sort "$2") <(find . ! -type d -printf '%P\n' | sort)
