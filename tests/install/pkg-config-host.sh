#!/bin/bash
# usage: pkg-config-host.sh <compiler> <library directory> <source> <program>
# Builds a program with the flags of pkg-config, and runs it.
set -euo pipefail

flags=$(PKG_CONFIG_PATH=$2/pkgconfig pkg-config --cflags --libs libkiv-interface-api)
# shellcheck disable=SC2086 # several words
"$1" -o "$4" "$3" $flags "-Wl,-rpath,$2"
"$4"
