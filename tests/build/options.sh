#!/bin/bash
# usage: options.sh <source directory> <work directory>
# Checks that a part that is switched ON requires its packages, and names those that are missing.
set -euo pipefail
. "$(dirname "$0")/common.sh"

for option in KIV_BUILD_TOOLS KIV_BUILD_KIVCTL; do
    expect_refusal "$option is ON, .* missing: libcli11-dev, libfmt-dev, nlohmann-json3-dev" -D$option=ON \
        "${without_packages[@]}"
done
expect_refusal "BUILD_TESTING is ON, .* missing: libgtest-dev libgmock-dev" -DBUILD_TESTING=ON \
    -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON
expect_refusal "KIV_BUILD_PYTHON is ON, .* missing: python3" -DKIV_BUILD_PYTHON=ON -DCMAKE_DISABLE_FIND_PACKAGE_Python3=ON
# CMake takes this for a build for another machine, where programs cannot be run.
expect_refusal "KIV_BUILD_MAN is ON, .* missing: an emulator" -DKIV_BUILD_MAN=ON -DCMAKE_SYSTEM_NAME=Linux
