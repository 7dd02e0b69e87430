#!/bin/bash
# usage: oldest.sh
# Builds what can be built here, installs it, and builds hosts of the library, all with the CMake of this machine.
set -euo pipefail

source=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
cmake --version | head -n 1
cmake -S "$source" -B "$work/build" -DCMAKE_CXX_FLAGS=-Wno-gnu-zero-variadic-macro-arguments
cmake --build "$work/build" --parallel "$(nproc)"
cmake --install "$work/build" --prefix "$work/prefix" >/dev/null
cmake -S "$source/tests/install/host" -B "$work/host" -DCMAKE_PREFIX_PATH="$work/prefix"
cmake --build "$work/host"
cmake -S "$source/tests/build/parent" -B "$work/parent" -DKIV_SOURCE="$source" -DWAY=subdirectory
cmake --build "$work/parent" --parallel "$(nproc)"
rm -rf "$work"
