#!/bin/bash
# usage: slider.sh <kiv-sandbox> <program>
# Checks in a sandbox that the last value of a slider is sent last, and that not all other values are sent.
set -euo pipefail

"$2"
sent=$("$1" control calls | grep SetNetSpkVolume)
echo "$sent"
test "$(wc -l <<<"$sent")" -lt 61
tail -n 1 <<<"$sent" | grep -q ', 60)'
