#!/bin/bash
# usage: slider.sh <kiv-sandbox> <program>
# In a sandbox: of all the values of a slider, the last one is sent last, and not all of the others are sent.
set -euo pipefail

"$2"
sent=$("$1" control calls | grep SetNetSpkVolume)
echo "$sent"
test "$(wc -l <<<"$sent")" -lt 61
tail -n 1 <<<"$sent" | grep -q ', 60)'
