#!/bin/bash
# usage: objects.sh <nm> <library> <bytes of a pointer>
# Tells which of the exported objects have another size than hosts take them to have: pointers and thread ids are as
# long as the machine's words.
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
