#!/usr/bin/env bash
# The whole site in one command (`bash scripts/demo.sh --site`): builds zanthd and zanth-sim,
# starts zanthd on a sample site (four doors, a few cardholders, a schedule) with three simulated
# controllers that present cards and raise events (one of them on an encrypted link), prints the
# console's address and a token, and runs until Ctrl-C, then stops everything it started.
# Everything listens on 127.0.0.1 only; the site's files stay in build/release/site-demo.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

step() { printf '\n[%s] %s\n' "$1" "$2"; }

step 1/5 "setting up and building zanthd, zanth-sim and the library (build/release)"
bash scripts/setup.sh
dir=build/release
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DZANTH_BUILD_TESTS=OFF -DZANTH_BUILD_BENCH=OFF >/dev/null
cmake --build "$dir" -j "$(nproc 2>/dev/null || echo 2)" --target zanth zanth-sim zanthd zanth_encryption64
export LD_LIBRARY_PATH="$root/$dir/lib${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"

free_port() {
    /usr/bin/python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

step 2/5 "writing the sample site (build/release/site-demo)"
site="$root/$dir/site-demo"
rm -rf "$site"
mkdir -p "$site"
cd "$site"
controllers_port=$(free_port)
http_port=$(free_port)
token=$(openssl rand -hex 16)
viewer=$(openssl rand -hex 16)
seed="site-demo-seed-03"
# The third controller's link is encrypted: the seed file keys it (the library reads it).
echo "02:5A:37:00:00:03 $seed" > zanth.txt
cat > zanthd.toml <<EOF
# The site demo's gateway: written by scripts/site-demo.sh, rewritten at each run.
[gateway]
site = "Harbour Street office"
time_zone = "Europe/Berlin"
log_level = "warn"

[library]
port = $controllers_port
seed_file = "zanth.txt"
controllers = 10

[http]
listen = "127.0.0.1:$http_port"

[[tokens]]
name = "officer"
scope = "operator"
sha256 = "$(printf '%s' "$token" | sha256sum | cut -d' ' -f1)"

[[tokens]]
name = "viewer"
scope = "read"
sha256 = "$(printf '%s' "$viewer" | sha256sum | cut -d' ' -f1)"

[console]
history_step_s = 10

[[doors]]
name = "Front entrance"
controller = "00:00:01"
door = 1
relay = 0
lock_input = 8
open_ms = 5000

[[doors]]
name = "Server room"
controller = "00:00:01"
door = 2
relay = 1
lock_input = 9
open_ms = 4000

[[doors]]
name = "Loading bay"
controller = "00:00:02"
door = 1
relay = 0
lock_input = 8
open_ms = 8000

[[doors]]
name = "Lab"
controller = "00:00:03"
door = 1
relay = 0
lock_input = 8
open_ms = 5000
EOF

pids=()
stopped=0
stop_all() {
    [ "$stopped" = 1 ] && return
    stopped=1
    printf '\n[5/5] stopping what the demo started\n'
    # The simulators first, so that zanthd sees them go; each by its own id.
    for ((i = ${#pids[@]} - 1; i >= 0; i--)); do
        kill -TERM "${pids[$i]}" 2>/dev/null || true
        wait "${pids[$i]}" 2>/dev/null || true
    done
    if [ -n "${summary:-}" ]; then echo "$summary"; fi
    echo "site demo: zanthd's journal, rules and log are in $site"
}
trap 'stop_all; exit 0' INT TERM
trap stop_all EXIT

api() {  # api METHOD PATH [JSON]
    curl -sS -o /dev/null -w '%{http_code}' -X "$1" -H "Authorization: Bearer $token" \
        -H 'Content-Type: application/json' ${3:+--data "$3"} "http://127.0.0.1:$http_port/api/v1$2"
}

step 3/5 "starting zanthd (controllers on port $controllers_port, API and console on port $http_port)"
"$root/$dir/bin/zanthd" --config zanthd.toml >zanthd.log 2>&1 &
zanthd_pid=$!
pids+=("$zanthd_pid")
for _ in $(seq 1 300); do
    if ! kill -0 "$zanthd_pid" 2>/dev/null; then
        echo "zanthd ended at start; its log:" >&2
        cat zanthd.log >&2
        exit 1
    fi
    [ "$(curl -s -o /dev/null -w '%{http_code}' "http://127.0.0.1:$http_port/api/v1/readyz")" = 200 ] && break
    sleep 0.1
done

# A schedule and a few cardholders. The simulated controllers present card 1001 at door 1, 2001
# at door 2, 3003 at door 3 and 4242 at door 4, in turn: some are let in, some are not.
added=0
for body in \
    '{"name": "Office hours", "intervals": [{"days": ["mon","tue","wed","thu","fri"], "from": "07:00", "to": "19:00"}]}'; do
    [ "$(api POST /schedules "$body")" = 201 ] || echo "the sample schedule was refused" >&2
done
for body in \
    '{"name": "Ada Lovelace", "cards": [{"number": 1001}], "access": [{"door": "Front entrance"}, {"door": "Loading bay"}, {"door": "Lab"}]}' \
    '{"name": "Grace Hopper", "cards": [{"number": 2001}], "access": [{"door": "Server room", "schedule": "Office hours"}, {"door": "Front entrance"}]}' \
    '{"name": "Alan Turing", "cards": [{"number": 4242}], "access": [{"door": "Loading bay"}], "valid_until": "2030-12-31T18:00"}' \
    '{"name": "Hedy Lamarr", "cards": [{"number": 5150}, {"number": 5151}], "access": [{"door": "Lab"}]}' \
    '{"name": "Visitor badge 7", "cards": [{"number": 9007}], "enabled": false, "access": [{"door": "Front entrance"}]}'; do
    if [ "$(api POST /cardholders "$body")" = 201 ]; then added=$((added + 1)); else echo "a sample cardholder was refused" >&2; fi
done
echo "  $added cardholders and a schedule in the gateway's rules"

step 4/5 "starting three simulated controllers (00:00:03 on an encrypted link)"
TZ=Europe/Berlin "$root/$dir/bin/zanth-sim" --port "$controllers_port" --count 2 --quiet \
    --lookup-interval-ms 4000 --event-interval-ms 3000 --alarm-interval-ms 45000 --heartbeat-ms 30000 \
    --clock-offset-s 3 >sim-clear.log 2>&1 &
pids+=($!)
TZ=Europe/Berlin "$root/$dir/bin/zanth-sim" --port "$controllers_port" --count 1 --mac-base 00:00:03 --seed "$seed" \
    --quiet --lookup-interval-ms 7000 --event-interval-ms 5000 --alarm-interval-ms 60000 >sim-encrypted.log 2>&1 &
pids+=($!)
for _ in $(seq 1 300); do
    n=$(curl -s -H "Authorization: Bearer $token" "http://127.0.0.1:$http_port/api/v1/controllers" |
        /usr/bin/python3 -c 'import json, sys; print(json.load(sys.stdin)["connected"])' 2>/dev/null || echo 0)
    [ "$n" = 3 ] && break
    sleep 0.2
done
echo "  $n of 3 controllers connected"

cat <<EOF

  The site console:  http://127.0.0.1:$http_port/
  Operator token:    $token
  Read-only token:   $viewer

  Open the address in a browser on this machine and log in with a token. The API is on the
  same address (http://127.0.0.1:$http_port/docs). Ctrl-C stops the demo.
EOF

# Until Ctrl-C, or until zanthd ends by itself.
while kill -0 "$zanthd_pid" 2>/dev/null; do
    last=$(curl -s -H "Authorization: Bearer $token" "http://127.0.0.1:$http_port/api/v1/events?limit=1" |
        /usr/bin/python3 -c 'import json, sys; print(json.load(sys.stdin)["last_id"])' 2>/dev/null || true)
    if [ -n "$last" ]; then
        summary="site demo: $last records journaled, $added cardholders, 4 doors, 3 controllers"
    fi
    sleep 2 &
    wait $! || true
done
# Ctrl-C reaches zanthd too, which stops cleanly (0): the demo's ordinary end.
if wait "$zanthd_pid"; then exit 0; fi
echo "zanthd ended by itself; its log:" >&2
tail -20 zanthd.log >&2
exit 1
