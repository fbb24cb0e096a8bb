#!/usr/bin/env bash
# Makes the example captures of tools/wireshark/captures again: builds the library, the
# simulator, the cipher plugin and zanth-captures in build/release (the demo's tree), then runs
# zanth-captures in a folder of its own. The host listens on port 3001, the dissector's default;
# give another with --port P if 3001 is taken (the captures then need -o zanth.ports:P).
#
#   bash tools/wireshark/make_captures.sh [--port P] [--only NAME,...]
set -euo pipefail
cd "$(dirname "$0")/../.."

dir=build/release
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DZANTH_BUILD_TESTS=OFF -DZANTH_BUILD_BENCH=OFF
cmake --build "$dir" -j 2 --target zanth zanth-sim zanth-captures zanth_encryption64
root=$PWD
run="$dir/captures-run"
rm -rf "$run"
mkdir -p "$run"
cd "$run"
# The library finds its cipher plugin through the normal library search path.
LD_LIBRARY_PATH="$root/$dir/lib${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}" \
    "$root/$dir/bin/zanth-captures" --sim "$root/$dir/bin/zanth-sim" \
    --out "$root/tools/wireshark/captures" "$@"
