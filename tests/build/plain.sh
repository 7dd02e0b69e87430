#!/bin/bash
# usage: plain.sh <source directory> <work directory>
# With a compiler, CMake and GLib alone, the library is built and installed, and one line each tells what is left out.
set -euo pipefail
. "$(dirname "$0")/common.sh"

# As if these packages were not installed.
configure "${without_packages[@]}"
expect_line 'Left out: the simulator, .* Missing: libcli11-dev, libfmt-dev, nlohmann-json3-dev$'
# One cause, one line.
test "$(grep -c 'Left out' "$log")" = 1
build_all
install_all

expect_files include/KivServiceInterface.h lib/libkiv-interface-api.so lib/libkiv-platform-host.so
expect_no_files bin share/man share/bash-completion

# A program takes the library from the build tree, too.
(
    source+=/tests/install/host
    tree=$build
    build=$work/host
    configure -DCMAKE_PREFIX_PATH="$tree"
    build_all
    "$build/installed-host"
)

configure "${without_packages[@]}" -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=OFF -DCMAKE_DISABLE_FIND_PACKAGE_fmt=OFF \
    -DCMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=OFF -DZSH=ZSH-NOTFOUND -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON
expect_line 'Left out: the tests. Missing: libgtest-dev libgmock-dev'
