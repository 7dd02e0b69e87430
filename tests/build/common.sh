# Sourced by the other scripts here. They are given the source directory and a work directory.
source=$1
work=$2
log=$work/log
prefix=$work/prefix
build=$work/build
rm -rf "$work"
mkdir -p "$work"

without_packages=(
    -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON -DCMAKE_DISABLE_FIND_PACKAGE_fmt=ON
    -DCMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=ON
)

fail() {
    echo "$*, in $work"
    exit 1
}

# Arguments: options of cmake. What it prints is in the log.
configure() {
    "$CMAKE_COMMAND" -S "$source" -B "$build" -DCMAKE_INSTALL_LIBDIR=lib "$@" >"$log" 2>&1 || {
        cat "$log"
        fail "cmake failed with $*"
    }
}

expect_refusal() { # expected line, options of cmake...
    rm -rf "$build"
    if "$CMAKE_COMMAND" -S "$source" -B "$build" "${@:2}" >"$log" 2>&1; then
        fail "cmake took ${*:2}"
    fi
    # CMake breaks the lines of errors.
    tr -s ' \n' ' ' <"$log" >"$log.joined"
    grep -q -- "$1" "$log.joined" || {
        cat "$log"
        fail "no such line: $1"
    }
}

expect_line() {
    grep -q -- "$1" "$log" || {
        cat "$log"
        fail "no such line: $1"
    }
}

build_all() {
    "$CMAKE_COMMAND" --build "$build" --parallel 2 >"$log" 2>&1 || {
        cat "$log"
        fail "the build failed"
    }
}

install_all() {
    "$CMAKE_COMMAND" --install "$build" --prefix "$prefix" >"$log"
}

expect_files() {
    local file
    for file; do
        test -e "$prefix/$file" || fail "$file is not installed"
    done
}

expect_no_files() {
    local file
    for file; do
        test ! -e "$prefix/$file" || fail "$file is installed"
    done
}

# The parent project takes the library in the way that it is told.
build_parent() { # way
    local project=$source
    source=$(dirname "$0")/parent
    configure -DKIV_SOURCE="$project" -DWAY="$1" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_EXPORT_COMPILE_COMMANDS=ON
    build_all
    install_all
    # Its own test, which runs the program, and no other.
    (cd "$build" && "$(dirname "$CMAKE_COMMAND")/ctest" --output-on-failure) >"$log" || {
        cat "$log"
        fail "the parent's test failed"
    }
    expect_line '^100% tests passed, 0 tests failed out of 1$'
    # Its own file, and no other.
    test "$(cd "$prefix" && find . -type f)" = ./bin/parent || fail "$(cd "$prefix" && find . -type f) are installed"
    # Its own flags, and no other.
    grep '"command":.*Parent.cpp' "$build/compile_commands.json" >"$log"
    if grep -qE -e ' -W| -f|-std=[^ ]*20' "$log"; then
        fail "the parent is compiled with flags of the library: $(cat "$log")"
    fi
    test ! -e "$build/kiv/simulator" && test ! -e "$build/_deps/kiv-build/simulator" || fail "the simulator is built"
}
