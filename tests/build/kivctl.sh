#!/bin/bash
# usage: kivctl.sh <source directory> <work directory>
# Builds kivctl for a TV, whose platform has the platform's functions: without the simulator and the sandbox, and copied alone.
# The page about porting shows what the loader prints if it cannot start kivctl.
set -euo pipefail
. "$(dirname "$0")/common.sh"
export LC_ALL=C

platform=$work/platform
mkdir "$platform"

# Builds a library of the TV. Further arguments go to the compiler.
make_library() { # name, function, arguments...
    echo "extern \"C\" int $2() { return -1; }" |
        "$CXX" -shared -fPIC "-Wl,-soname,$1" -o "$platform/$1" "${@:3}" -x c++ -
}

# Checks that the loader refuses to start kivctl, and that the page shows its message. Arguments: a part of the message,
# and what sed changes in it.
expect_told() { # text, [sed expression]
    local line
    if LD_LIBRARY_PATH=$libraries "$tool" enabled >"$log" 2>&1; then
        fail "kivctl runs"
    fi
    line=$(grep -m1 -F "$1" "$log" | sed "s,^$tool: ,,;${2:-}") || fail "the loader does not say $1, but: $(cat "$log")"
    grep -qF "$line" "$source/docs/porting.md" || fail "docs/porting.md does not have: $line"
}

make_library libplatform-log.so.1 __dlog_print
make_library libplatform-info.so.1 system_info_get_custom_bool
configure -DKIV_PLATFORM_LIBRARIES="$platform/libplatform-log.so.1;$platform/libplatform-info.so.1" -DKIV_BUILD_KIVCTL=ON \
    -DBUILD_TESTING=OFF -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=0
build_all
install_all
expect_files bin/kivctl lib/libkiv-interface-api.so share/man/man1/kivctl.1 share/man/man7/kiv-log-lines.7 \
    share/bash-completion/completions/kivctl
expect_no_files bin/kiv-sandbox bin/kiv-simulator share/man/man1/kiv-sandbox.1 \
    share/bash-completion/completions/kiv-sandbox lib/python3
test ! -e "$build/simulator" || fail "the simulator is built"
stand_ins=$(find "$build" "$prefix" -name '*platform-host*' -o -name system-info.conf)
test -z "$stand_ins" || fail "stand-ins for the platform are built: $stand_ins"
needed=$(readelf -d "$prefix/lib/libkiv-interface-api.so")
for library in libplatform-log libplatform-info; do
    [[ $needed == *"[$library.so.1]"* ]] || fail "the library does not need $library.so.1"
done

# kivctl is one file. It must not need libraries that a TV does not have.
mkdir "$work/tv"
tool=$work/tv/kivctl
cp "$prefix/bin/kivctl" "$tool"
others=$(readelf -d "$tool" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' |
    grep -vE '^(libkiv-interface-api|libg(io|object|lib)-2\.0|libstdc\+\+|libgcc_s|libm|libc|ld-linux.*)\.so' || true)
test -z "$others" || fail "kivctl needs $others"
libraries=$platform:$prefix/lib
LD_LIBRARY_PATH=$libraries "$tool" doctor >"$log" 2>&1 && fail "doctor finds a bus"
expect_line '^problem  bus '

libraries=$platform
expect_told "libkiv-interface-api.so.1: cannot open shared object file"
libraries=$prefix/lib
expect_told "libplatform-log.so.1: cannot open shared object file"
libraries=$platform:$prefix/lib
make_library libplatform-info.so.1 another_function
expect_told "undefined symbol" "s,[^ ]*/,/usr/lib/,"
# The loader's message is also shown by commands for which kivctl keeps the library's lines back.
for command in enabled "list nodes" "--json doctor"; do
    read -ra words <<<"$command"
    env -u KIV_LOG_LEVEL LD_LIBRARY_PATH="$libraries" "$tool" "${words[@]}" >"$log" 2>&1 && fail "$command runs"
    expect_line "undefined symbol: system_info_get_custom_bool"
done
echo 'GLIBCXX_3.4 { *; };' >"$work/map"
make_library libstdc++.so.6 another_function -nostdlib "-Wl,--version-script=$work/map"
expect_told "version \`GLIBCXX_3.4." "s,[^ ]*/libstdc,/usr/lib/libstdc,;s,_3[0-9.]*,_3.4.30,;s,by [^ ]*/,by /tmp/,"
