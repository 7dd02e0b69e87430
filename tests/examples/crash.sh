#!/bin/bash
# usage: crash.sh <kivctl> <program>
# Checks in a sandbox that a program subscribes once with each server that is started, and receives events again.
set -euo pipefail
kivctl=$1
export KIV_LOG_LEVEL=none

control() { "$KIV_SANDBOX" control "$@"; }

# Reads the program's output up to a line.
await() {
    local line
    while read -r -t 60 line <&"$output"; do
        echo "$line"
        [ "$line" != "$1" ] || return 0
    done
    echo "the program must print \"$1\", but does not" >&2
    exit 1
}

expect_one_subscription() {
    control show | grep '"subscriptions": 1$' || {
        control show --text
        echo "the server must know one subscription" >&2
        exit 1
    }
}

exec {output}< <(exec "$2")
program=$!
await subscribed

echo "The server dies in a call, and the next call starts another one"
control fault StopNetworkSpeaker '{"exit": true}'
if "$kivctl" stop; then
    echo "the server must die" >&2
    exit 1
fi
"$kivctl" stop
await subscribed
await "volume 20"
expect_one_subscription
"$kivctl" volume set 02:4b:49:56:00:01 33
await "volume 33"

echo "The server crashes, comes back, and refuses the first subscription"
control fault SubscribeNamServiceCallback '{"error": "org.example.Busy", "count": 1}'
control away 0
await subscribed
await "volume 33"
expect_one_subscription

kill "$program"
wait "$program"
