# The other scripts here source this file. Their arguments are the source directory and a work directory.
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

# Configures with these options of cmake. The output goes to the log.
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
    # CMake wraps error messages, so line ends count as blanks.
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
