#!/bin/bash
# usage: footprint.sh <library> <strip> <dirty pages, or what to say instead>
# Prints what the library costs a process, as rows of a table.
set -euo pipefail
export LC_ALL=C

library=$1
stripped=$(mktemp)
trap 'rm "$stripped"' EXIT
"$2" -o "$stripped" "$library"
relocations=$(readelf --wide --relocs "$library" | awk '$3 ~ /^R_/ {print $3}')

section_bytes() {
    readelf --wide --section-headers "$library" | awk -v name="$1" '{sub(/^ *\[ *[0-9]+\]/, "")} $1 == name {print "0x" $5}'
}

pointer=$(readelf --file-header "$library" | awk '/Class:/ {print $2 == "ELF32" ? 4 : 8}')
read -r start size < <(readelf --wide --segments "$library" | awk '$1 == "LOAD" && $7 == "RW" {print $3, $6}')

cat <<TABLE
| Stripped, bytes | $(stat -c %s "$stripped") |
| Code, bytes | $(($(section_bytes .text))) |
| Relocations | $(wc -l <<<"$relocations") |
| of these, calls bound at their first use | $(grep -c JUMP_SLOT <<<"$relocations") |
| Writable pages of 4 KiB | $((($start + $size + 4095) / 4096 - $start / 4096)) |
| Dirty pages after load | $3 |
| Static constructors | $(($(section_bytes .init_array) / pointer)) |
| Libraries | $(readelf --dynamic "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | xargs | sed 's/ /, /g') |
TABLE
