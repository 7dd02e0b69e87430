#!/bin/bash
# usage: objects.sh <nm> <library> <bytes of a pointer>
# Prints the exported objects whose size differs from the size that hosts assume. Pointers and thread ids have the size of a
# machine word.
set -euo pipefail
export LC_ALL=C

sizes=$("$1" --dynamic --defined-only --print-size "$2" |
  sed -En 's/^[0-9a-f]+ ([0-9a-f]+) [BDGRSV] ([^@]*).*/\1 \2/p' |
  while read -r size name; do echo "$name $((16#$size))"; done | c++filt | sort)
diff --unified=0 --label expected --label exported - /dev/fd/3 3<<<"$sizes" <<TEXT
CNSGdbus::m_pInstance $3
g_GetSystemVal 1
g_KivDisabled 1
g_strDeviceName 128
m_launchthreadId $3
TEXT
