#!/bin/bash
# usage: measure.sh BUILD RESULTS ROUNDS
# Takes all measurements for report.py, with ROUNDS blocks of each.
set -euo pipefail

out=$1 results=$2 rounds=$3
library=$out/src/libkiv-interface-api.so
driver=$out/bench/kiv-bench

# Runs a command on one processor, which gives the steadiest figures.
pinned() {
    (
        taskset --cpu-list --pid "$(($(nproc) - 1))" "$BASHPID" >/dev/null
        "$@"
    )
}

# Runs a command on a bus of its own, with the server of the benchmarks. The log shows no errors, because some calls are
# to fail.
on_bench_bus() {
    KIV_LOG_LEVEL=fatal "$out/tools/sandbox/kiv-sandbox" --simulator "$(realpath "$out/bench/kiv-bench-server")" --start -- "$@"
}

# Prints how many system calls one call of each peer takes: the difference between 300 calls and 100, divided by 200.
count_system_calls() {
    local peer calls counted separator=""
    printf '{'
    for peer in library GIO libdbus sd-bus; do
        counted=()
        for calls in 100 300; do
            on_bench_bus strace -f -c -o "$results/strace.txt" "$driver" --library "$library" \
                --alone "$peer" --calls "$calls"
            counted+=("$(awk '$NF == "total" { print $4 }' "$results/strace.txt")")
        done
        printf '%s"%s": %s' "$separator" "$peer" "$(((counted[1] - counted[0]) / 200))"
        separator=", "
    done
    printf '}\n'
}

mkdir -p "$results"
echo "Measuring, everything on one processor"
pinned on_bench_bus "$driver" --library "$library" --rounds "$rounds" --output "$results/pinned.json"
echo "Measuring, free"
on_bench_bus "$driver" --library "$library" --rounds "$rounds" --output "$results/free.json"
echo "Cold starts"
for ((i = 0; i < rounds; ++i)); do
    on_bench_bus "$driver" --library "$library" --cold library
    on_bench_bus "$driver" --library "$library" --cold GIO
done >"$results/cold.jsonl"
echo "System calls"
count_system_calls >"$results/system-calls.json"
echo "Parts without a bus"
KIV_LOG_LEVEL=none pinned "$out/bench/kiv-bench-micro" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true \
    --benchmark_out="$results/micro.json" --benchmark_out_format=json >"$results/micro.txt" 2>&1
echo "Instructions"
/usr/bin/python3 "$(dirname "$0")/counts.py" "$out" profile >"$results/counted.json"
