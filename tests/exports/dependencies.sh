#!/bin/bash
# usage: dependencies.sh <nm> <readelf> <library> <library of the platform>
# Prints the platform's functions that the library does not import (-), and the libraries beyond the expected that it loads
# (+).
set -euo pipefail
export LC_ALL=C

undefined=$("$1" --dynamic --undefined-only "$3" | sed 's/.* //; s/@.*//' | sort)
needed=$("$2" --dynamic "$3" | sed -n 's/.*NEEDED.*\[\(.*\)\]/\1/p' | sort)
expected=$(printf '%s\n' lib{gio,gobject,glib}-2.0.so.0 libc.so.6 libstdc++.so.6 libgcc_s.so.1 "$4" | sort)

differences=$(
  comm -23 <(printf '%s\n' __dlog_print system_info_get_custom_bool) <(echo "$undefined") | sed 's/^/-/'
  comm -23 <(echo "$needed") <(echo "$expected") | sed 's/^/+/'
)
echo "$differences"
test -z "$differences"
