#!/bin/bash
# usage: plain.sh <source directory> <work directory>
# Checks that a compiler, CMake and GLib are enough to build and install the library, and that one line says what is left out.
set -euo pipefail
. "$(dirname "$0")/common.sh"

# Configures as if these packages were not installed.
configure "${without_packages[@]}"
expect_line 'Left out: the simulator, .* Missing: libcli11-dev, libfmt-dev, nlohmann-json3-dev$'
# There is one line for one cause.
test "$(grep -c 'Left out' "$log")" = 1
build_all
install_all

expect_files include/KivServiceInterface.h lib/libkiv-interface-api.so lib/libkiv-platform-host.so
expect_no_files bin share/man share/bash-completion

# The target kiv-python builds the whole module. Until that is built, pytest finds no plugin.
configure "${without_packages[@]}" -DKIV_BUILD_PYTHON=ON
build_target() {
    "$CMAKE_COMMAND" --build "$build" --target "$1" >"$log" 2>&1 || fail "there is no $1: $(cat "$log")"
}
build_target kiv-python-shim
test -z "$(find "$build/python" -name entry_points.txt)" || fail "pytest is told of a plugin that is not there"
build_target kiv-python
PYTHONPATH=$build/python python3 -c 'import importlib.metadata, importlib.util, kiv
[plugin] = importlib.metadata.distribution("kiv").entry_points
assert importlib.util.find_spec(plugin.value)'

# A program can use the library from the build tree, too.
(
    source+=/tests/install/host
    tree=$build
    build=$work/host
    configure -DCMAKE_PREFIX_PATH="$tree"
    build_all
    "$build/installed-host"
)

# With all packages but GoogleTest and libsoup, only the tests and the page of the sandbox are left out.
cat >"$work/pkg-config" <<'SH'
#!/bin/sh
case "$*" in *libsoup*) exit 1 ;; esac
exec pkg-config "$@"
SH
chmod +x "$work/pkg-config"
configure "${without_packages[@]}" -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=OFF -DCMAKE_DISABLE_FIND_PACKAGE_fmt=OFF \
    -DCMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=OFF -DZSH=ZSH-NOTFOUND -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON \
    -DPKG_CONFIG_EXECUTABLE="$work/pkg-config"
expect_line 'Left out: the tests. Missing: libgtest-dev libgmock-dev'
expect_line 'Left out: the page of the sandbox. Missing: libsoup-3.0-dev$'
test "$(grep -c soup "$log")" = 1
