#!/bin/bash
# usage: tests.sh <sources of a project> <prefix or build directory of the library> <work directory>
# Builds a project that tests an application, and runs its tests. Without the sandbox, cmake must say what is missing.
set -euo pipefail

rm -rf "$3"
mkdir -p "$3"
log=$3/log
ctest=$(dirname "$CMAKE_COMMAND")/ctest

configure() { # build directory, options of cmake...
  "$CMAKE_COMMAND" -S "$sources" -B "$@" >"$log" 2>&1
}

fail() {
  cat "$log"
  echo "$*"
  exit 1
}

sources=$1
configure "$3/build" -DCMAKE_PREFIX_PATH="$2" || fail "cmake failed"
"$CMAKE_COMMAND" --build "$3/build" >"$log" 2>&1 || fail "the build failed"
# The bus of the environment does not exist.
DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent "$ctest" --test-dir "$3/build" --verbose >"$log" 2>&1 || fail "a test failed"
grep -q '^100% tests passed, 0 tests failed out of 2$' "$log" || fail "there are other tests"
test "$(grep -c '\[  PASSED  \] [14] test' "$log")" = 2 || fail "a test program ran no test"

# Each argument must arrive as it is.
mkdir "$3/arguments"
sources=$3/arguments
cat >"$sources/CMakeLists.txt" <<'TEXT'
cmake_minimum_required(VERSION 3.18)
project(arguments LANGUAGES CXX)
enable_testing()
find_package(kiv-interface-api 1.0 REQUIRED)
kiv_add_test(NAME fails COMMAND sh -c "true; false")
kiv_add_test(NAME prints SANDBOX --scenario no-speakers COMMAND printf "<%s>" "a;b" "" "c d" [[\$e]])
kiv_add_test(NAME controls COMMAND sh -c [["$KIV_SANDBOX" control apply surround-set && test "$VALUE" = 1]])
set_tests_properties(controls PROPERTIES ENVIRONMENT VALUE=1)
kiv_add_test(NAME off COMMAND true)
kiv_add_test(NAME keywords SANDBOX COMMAND printf "{%s}" NAME other SANDBOX --lazy COMMAND --)
TEXT
configure "$sources/build" -DCMAKE_PREFIX_PATH="$2" || fail "cmake failed"
"$ctest" --test-dir "$sources/build" --verbose >"$log" 2>&1 && fail "what follows a semicolon is lost"
grep -qF '2: <a;b><><c d><\$e>' "$log" || fail "arguments have changed"
grep -qF '5: {NAME}{other}{SANDBOX}{--lazy}{COMMAND}{--}' "$log" || fail "words of the command are lost"
grep -q '^80% tests passed, 1 tests failed out of 5$' "$log" || fail "there are other results"

# This is as if the tools were not installed.
sources=$1
configure "$3/without" -DCMAKE_PREFIX_PATH="$2" -DKIV_SANDBOX=OFF && fail "cmake adds a test without a sandbox"
tr -s ' \n' ' ' <"$log" | grep -q 'cannot add speakers, because kiv-sandbox was not found\. With find_package(): install' ||
  fail "cmake does not say that the sandbox is missing"

# Neither of these paths is a program.
for path in /no/such/kiv-sandbox "$3"; do
  configure "$3/path" -DCMAKE_PREFIX_PATH="$2" -DKIV_SANDBOX="$path" && fail "cmake takes $path for kiv-sandbox"
  tr -s ' \n' ' ' <"$log" | grep -qF "KIV_SANDBOX must be the path of the program kiv-sandbox, got \"$path\"" ||
    fail "cmake does not say what is wrong with KIV_SANDBOX"
done

# These calls are mistakes, which cmake must refuse before a test passes without its command.
prefix=$2 work=$3
refuse() { # what cmake says, arguments of kiv_add_test()
  sources=$work/mistake
  mkdir -p "$sources"
  cat >"$sources/CMakeLists.txt" <<TEXT
cmake_minimum_required(VERSION 3.18)
project(mistake LANGUAGES CXX)
find_package(kiv-interface-api 1.0 REQUIRED)
kiv_add_test($2)
TEXT
  configure "$sources/build" -DCMAKE_PREFIX_PATH="$prefix" && fail "cmake takes $2"
  tr -s ' \n' ' ' <"$log" | grep -qF -e "$1" || fail "cmake does not say what is wrong with $2"
}

for words in "speakers COMMAND true" "NAME a b COMMAND true" "NAME a" "NAME a COMMAND"; do
  refuse "must be given NAME, COMMAND and, if need be, SANDBOX, got: $words" "$words"
done
for option in true no-speakers -h --help --version --list --list-scenarios --; do
  refuse "SANDBOX must have options of kiv-sandbox that start a sandbox, such as --scenario no-speakers, got \"$option\"" \
    "NAME a SANDBOX $option COMMAND false"
done
refuse "got \"--help\"" "NAME a SANDBOX --lazy --help COMMAND false"
