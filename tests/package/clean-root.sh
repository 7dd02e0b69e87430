#!/bin/bash
# usage: clean-root.sh <directory of packages> <directory of the host's sources>
# Installs the packages into a Debian root that has only compilers, builds and runs a host there, and removes the packages.
set -euo pipefail
cd "$(mktemp -d)"

echo "Installing"
export DEBIAN_FRONTEND=noninteractive
apt-get install -qq --no-install-recommends "$1"/*.deb >apt.log 2>&1 || { cat apt.log && exit 1; }

echo "A host, built with pkg-config"
version=$(dpkg-query -W -f '${Version}' libkiv-interface-api-dev)
pkg-config --exact-version="$version" --print-errors libkiv-interface-api
# shellcheck disable=SC2046 # several words
c++ "$2/Host.cpp" -o host $(pkg-config --cflags --libs libkiv-interface-api)
kiv-sandbox -- ./host

echo "A host, built with find_package()"
{ cmake -S "$2" -B build && cmake --build build; } >cmake.log 2>&1 || { cat cmake.log && exit 1; }
ctest --test-dir build --output-on-failure --no-tests=error >cmake.log || { cat cmake.log && exit 1; }

echo "The documentation, and its host in C"
documentation=/usr/share/doc/libkiv-interface-api-dev
test -e $documentation/html/index.html
# shellcheck disable=SC2046 # several words
{
    cc -c $documentation/examples/CHost.c $(pkg-config --cflags libkiv-interface-api)
    c++ -o c-host $documentation/examples/CHostVectors.cpp CHost.o $(pkg-config --cflags --libs libkiv-interface-api)
}
kiv-sandbox -- ./c-host

echo "The system bus starts the simulator for whoever calls, as the server's user"
mkdir -p /run/dbus
exec {bus}< <(exec dbus-daemon --system --nofork --nopidfile --print-address)
busProcess=$!
trap 'kill "$busProcess"' EXIT
read -r _ <&"$bus"
as_nobody=(setpriv --reuid=nobody --regid=nogroup --clear-groups)
"${as_nobody[@]}" kivctl start 02:4b:49:56:00:01
server=$(dbus-send --system --print-reply=literal --dest=org.freedesktop.DBus / \
    org.freedesktop.DBus.GetConnectionUnixUser string:org.lumra.tv.networkspeaker.server)
test "$(xargs <<<"$server")" = "uint32 0"

echo "Nobody else tells the simulator what to do"
control=(dbus-send --system --print-reply --dest=org.lumra.tv.networkspeaker.simulator
    /org/lumra/tv/networkspeaker/simulator org.lumra.tv.networkspeaker.simulator.control.ForgetCalls)
"${control[@]}" >/dev/null
refusal=$(LC_ALL=C "${as_nobody[@]}" "${control[@]}" 2>&1 >/dev/null) && exit 1
grep -q AccessDenied <<<"$refusal"

echo "The page of the sandbox"
kiv-sandbox --page -- true 2>&1 | grep -q '^kiv-sandbox: the page is http://127\.0\.0\.1:'

echo "The module for Python"
kiv-sandbox -- python3 -c "import kiv; assert kiv.StopNetworkSpeaker(7) == 7"

echo "Removing"
apt-get purge -qq 'kiv-tools*' python3-kiv 'libkiv-*' >apt.log 2>&1 || { cat apt.log && exit 1; }
left=$(find /etc /usr /var -name '*kiv*' -o -name '*KivService*' -o -name '*networkspeaker*')
echo "Left behind: ${left:-nothing}"
test -z "$left"
