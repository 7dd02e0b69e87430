#!/bin/bash
# usage: abi.sh record|compare <library> <baseline>
# Records what hosts of the library depend on, its exports and the types that they name, or compares it with the baseline.
set -euo pipefail

now=$(mktemp)
trap 'rm "$now"' EXIT
# Leaves out paths of the build machine, and source lines, which other changes move.
abidw --exported-interfaces-only --drop-undefined-syms --no-comp-dir-path --no-corpus-path --no-elf-needed \
    --no-show-locs --no-parameter-names --type-id-style hash --out-file "$now" "$2"

case $1 in
    record) cat "$now" >"$3" ;;
    compare) abidiff --no-show-locs "$3" "$now" ;;
esac
