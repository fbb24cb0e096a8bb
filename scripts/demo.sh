#!/usr/bin/env bash
# Sets up, builds and runs the demo: a host program on libzanth.so talking to simulated
# controllers over loopback. With --site, the site gateway (zanthd) and its web console instead.
set -euo pipefail
cd "$(dirname "$0")/.."
# --site: the gateway and its console on a sample site with simulated controllers instead.
if [ "${1:-}" = "--site" ]; then
    shift
    exec bash scripts/site-demo.sh "$@"
fi

bash scripts/setup.sh
dir=build/release
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DZANTH_BUILD_TESTS=OFF -DZANTH_BUILD_BENCH=OFF
cmake --build "$dir" -j "$(nproc 2>/dev/null || echo 2)" --target zanth zanth-sim zanth-demo zanth_encryption64
# The library finds its cipher plugin through the normal library search path.
export LD_LIBRARY_PATH="$PWD/$dir/lib${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"
# The demo's files (the diagnostic log, the message files, the seed file) stay for a look after.
root=$PWD
mkdir -p "$dir/demo-run"
cd "$dir/demo-run"
"$root/$dir/bin/zanth-demo" --sim "$root/$dir/bin/zanth-sim" "$@"
echo "demo: its log and message files are in $dir/demo-run"
