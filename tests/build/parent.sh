#!/bin/bash
# usage: parent.sh <source directory> <work directory>
# Checks that a project can add the library alone, in each of two ways, and that its install rules, flags and tests stay as
# they are.
set -euo pipefail
. "$(dirname "$0")/common.sh"

project=$source
source=$(dirname "$0")/parent

for way in subdirectory fetch-content; do
    rm -rf "$prefix"
    configure -DKIV_SOURCE="$project" -DWAY=$way -DCMAKE_BUILD_TYPE=Debug -DCMAKE_EXPORT_COMPILE_COMMANDS=ON \
        -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=0
    build_all
    install_all
    # The project has only its own test, which runs the program.
    (cd "$build" && "$(dirname "$CMAKE_COMMAND")/ctest" --output-on-failure) >"$log" || {
        cat "$log"
        fail "the parent's test failed with $way"
    }
    expect_line '^100% tests passed, 0 tests failed out of 1$'
    # Only the project's own file is installed.
    test "$(cd "$prefix" && find . -type f)" = ./bin/parent || fail "$(cd "$prefix" && find . -type f) are installed with $way"
    # The program is compiled with the project's own flags only.
    grep '"command":.*Parent.cpp' "$build/compile_commands.json" >"$log" || fail "the program is not compiled by itself"
    if grep -qE -e ' -W| -f|-std=[^ ]*20' "$log"; then
        fail "the parent is compiled with flags of the library: $(cat "$log")"
    fi
    test ! -e "$build/_deps/kiv-build/simulator" || fail "the simulator is built with $way"
done
