#!/bin/bash
# usage: kivctl.sh <source directory> <work directory>
# For a TV, kivctl is built without the simulator and the sandbox.
set -euo pipefail
. "$(dirname "$0")/common.sh"

configure -DKIV_BUILD_KIVCTL=ON -DCMAKE_BUILD_TYPE=Debug -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=12
build_all
install_all
expect_files bin/kivctl lib/libkiv-interface-api.so share/man/man1/kivctl.1 share/bash-completion/completions/kivctl
expect_no_files bin/kiv-sandbox bin/kiv-simulator share/man/man1/kiv-sandbox.1 \
    share/bash-completion/completions/kiv-sandbox lib/python3
test ! -e "$build/simulator" || fail "the simulator is built"
"$prefix/bin/kivctl" --help | grep -q '^  doctor' || fail "kivctl does not run"
