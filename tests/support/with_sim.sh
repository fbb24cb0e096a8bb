#!/usr/bin/env bash
# Runs a host program with the native simulator beside it:
#   with_sim.sh <zanth-sim> <simulator options...> -- <host command...>
# A free loopback port is chosen here; the simulator dials it (and redials until the host
# listens), and the host gets it as its last argument. The simulator ends with the host.
set -euo pipefail
sim=$1
shift
sim_args=()
while [ $# -gt 0 ] && [ "$1" != "--" ]; do sim_args+=("$1"); shift; done
[ "${1:-}" = "--" ] || { echo "with_sim.sh: no -- before the host command" >&2; exit 2; }
shift
port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
"$sim" --host 127.0.0.1 --port "$port" --quiet "${sim_args[@]}" > sim.log 2>&1 &
sim_pid=$!
trap 'kill "$sim_pid" 2>/dev/null || true; wait "$sim_pid" 2>/dev/null || true' EXIT
"$@" "$port"
