#!/usr/bin/env bash
# The Windows build and its tests, in one command: installs mingw-w64 and Wine (setup.sh
# --windows), cross-builds zanth.dll, its import library and the test programs into build/win
# (cmake/mingw-w64.cmake), builds the native simulator the Windows C host talks to, and runs the
# Windows tests under Wine with one wine server for the whole run.
#
#   bash scripts/windows.sh              build and test
#   bash scripts/windows.sh --build-only just zanth.dll and the test programs
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

build_only=0
if [ "${1:-}" = "--build-only" ]; then build_only=1; fi

bash scripts/setup.sh --windows
jobs=$(nproc 2>/dev/null || echo 2)
dir=build/win

# The simulator runs natively beside the Wine processes (they share the host's loopback).
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DZANTH_BUILD_TESTS=OFF \
    -DZANTH_BUILD_BENCH=OFF > /dev/null
cmake --build build/release -j "$jobs" --target zanth-sim

# Boost is header-only here: the cross compiler sees the host's Boost headers through a
# directory of their own, never the whole of /usr/include.
mkdir -p "$dir/boost-include"
ln -sfn /usr/include/boost "$dir/boost-include/boost"
cmake -S . -B "$dir" -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZANTH_BUILD_TOOLS=OFF -DZANTH_BUILD_BENCH=OFF \
    -DZANTH_BOOST_INCLUDE_DIR="$root/$dir/boost-include" \
    -DZANTH_NATIVE_SIM="$root/build/release/bin/zanth-sim"
cmake --build "$dir" -j "$jobs"
echo "windows: $dir/bin/zanth.dll, $dir/lib/zanth.dll.a, $dir/bin/zanth.def"
if [ "$build_only" = 1 ]; then exit 0; fi

wine=/usr/lib/wine/wine64
wineserver=/usr/lib/wine/wineserver
export WINEPREFIX="$root/$dir/wineprefix"
export WINEDEBUG=-all
# No desktop integration or Mono/Gecko prompts in a CI prefix.
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d"
if [ ! -f "$WINEPREFIX/system.reg" ]; then
    "$wine" wineboot -i > /dev/null 2>&1 < /dev/null
fi
# One persistent wine server for every test process of the run, stopped at the end. A server
# left over in this prefix (an interrupted run) goes first: -p starts no second one.
"$wineserver" -k 2> /dev/null || true
"$wineserver" -w 2> /dev/null || true
"$wineserver" -p
trap '"$wineserver" -k 2>/dev/null || true' EXIT
# The session's own background processes (services, devices) start here, with nothing of ours
# open: started by the first test program they would hold its output pipe, and ctest's test
# discovery would wait on it until its time-out.
"$wine" wineboot > /dev/null 2>&1 < /dev/null
start=$(date +%s)
status=0
# Wine itself is not always steady on a fresh prefix: a test process now and then fails to start,
# or outlives its own end because a Wine background process holds its output pipe. Each test gets
# one more try, and no test needs more than half a minute here, so a hang costs 90 s, not 180.
ctest --test-dir "$dir" -j $((jobs * 2)) --output-on-failure --timeout 90 --repeat until-pass:2 \
    || status=$?
echo "windows: tests under Wine took $(( $(date +%s) - start )) s"
exit $status
