#!/usr/bin/env bash
# Installs what the build, the tests, the tools and the benchmarks need on Debian 12, skipping
# what is already present. Flags add the packages of one more kind of run, and may be combined:
#   --fuzz     clang and its runtimes (libFuzzer and the sanitizers) for scripts/fuzz.sh
#   --windows  the mingw-w64 cross compiler (posix threads) and Wine for scripts/windows.sh
#   --field    the real peers the programs' tests run against: mosquitto, tshark, mono,
#              Chromium with its driver and Selenium
set -euo pipefail

# The library needs Boost alone; the programs around it (command line, gateway, bindings) take
# their own dependencies from Debian too.
packages=(build-essential cmake ninja-build pkg-config libboost-dev googletest libgtest-dev
          libgmock-dev libbenchmark-dev libsodium-dev binutils python3 clang-format
          libssl-dev nlohmann-json3-dev libcpp-httplib-dev libsqlite3-dev libmosquitto-dev
          libtomlplusplus-dev libcli11-dev python3-venv python3-pytest python3-pytest-asyncio
          libhowardhinnant-date-dev python3-requests python3-jsonschema openssl)
for flag in "$@"; do
    case "$flag" in
        --fuzz) packages+=(clang-14 libclang-rt-14-dev) ;;
        --windows) packages+=(g++-mingw-w64-x86-64-posix mingw-w64-x86-64-dev wine64 wine) ;;
        --field) packages+=(mosquitto mosquitto-clients tshark mono-mcs mono-runtime chromium
                            chromium-driver python3-selenium python3-paho-mqtt
                            python3-requests) ;;
        *) echo "setup.sh: unknown flag $flag" >&2; exit 2 ;;
    esac
done
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
# tshark asks whether ordinary users may capture; the tests only read files.
echo "wireshark-common wireshark-common/install-setuid boolean false" \
    | "${sudo_cmd[@]}" debconf-set-selections
"${sudo_cmd[@]}" apt-get update -q
"${sudo_cmd[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
