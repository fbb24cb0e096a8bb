#!/usr/bin/env bash
# Installs what the build, the tests, the tools and the benchmarks need on Debian 12, skipping
# what is already present. With --fuzz, also clang and its runtimes (libFuzzer and the
# sanitizers) for the fuzz tree of scripts/fuzz.sh; with --windows, the mingw-w64 cross compiler
# (posix threads) and Wine for scripts/windows.sh.
set -euo pipefail

packages=(build-essential cmake ninja-build pkg-config libboost-dev googletest libgtest-dev
          libgmock-dev libbenchmark-dev libsodium-dev binutils python3)
if [ "${1:-}" = "--fuzz" ]; then
    packages+=(clang-14 libclang-rt-14-dev)
fi
if [ "${1:-}" = "--windows" ]; then
    packages+=(g++-mingw-w64-x86-64-posix mingw-w64-x86-64-dev wine64 wine python3)
fi
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
    echo "setup: all packages present"
    exit 0
fi
echo "setup: installing ${missing[*]}"
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then sudo_cmd=(sudo); fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -q
"${sudo_cmd[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
