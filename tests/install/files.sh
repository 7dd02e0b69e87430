#!/bin/bash
# usage: files.sh <prefix> <list of files>
# Prints the files below the prefix that are not in the list (+), and those of the list that are missing (-).
set -euo pipefail
export LC_ALL=C

cd "$1"
diff --unified=0 --label intended --label installed <(sort "$2") <(find . ! -type d -printf '%P\n' | sort)
