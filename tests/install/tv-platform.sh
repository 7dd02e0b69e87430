#!/bin/bash
# usage: tv-platform.sh <source directory> <work directory> <generator> <compiler> <readelf>
# Builds and installs the library for a platform that provides its calls itself, and checks that nothing stands in for it.
set -euo pipefail

platform=$2/libtv-platform.so
rm -rf "$2"
mkdir -p "$2"
"$4" -shared -fPIC -I"$1/src" -Wl,-soname,libtv-platform.so.1 -o "$platform" "$1/tests/install/TvPlatform.cpp"
cmake -S "$1" -B "$2/build" -G "$3" -DCMAKE_CXX_COMPILER="$4" -DKIV_PLATFORM_LIBRARIES="$platform" \
  -DKIV_BUILD_TOOLS=OFF -DBUILD_TESTING=OFF -DCMAKE_INSTALL_LIBDIR=lib
cmake --build "$2/build"
cmake --install "$2/build" --prefix "$2/prefix"

standIns=$(find "$2/build" "$2/prefix" -name '*platform-host*' -o -name system-info.conf)
echo "Stand-ins: ${standIns:-none}"
test -z "$standIns"
LC_ALL=C "$5" --dynamic "$2/prefix/lib/libkiv-interface-api.so" | grep 'NEEDED.*\[libtv-platform\.so\.1\]'
