#!/usr/bin/env bash
# zanth.exe under Wine against the native zanth-sim (two controllers, started by
# tests/support/with_sim.sh, which gives the port as the last argument):
#   wine_cli.sh WINE ZANTH_EXE PORT
# Its data folder, info, --json, a cards load with a bad line and its check, a file there and
# back byte for byte, and the timeout's exit status.
set -uo pipefail
wine=$1
exe=$2
port=$3
rm -rf data cards.csv f.bin back.bin
fail() {
    echo "wine_cli: FAILED: $*" >&2
    exit 1
}
run() { "$wine" "$exe" --port "$port" --data-dir data "$@" | tr -d '\r'; }

out=$(run info 00:00:01) || fail "info exited $?"
[[ "$out" == *";00:00:01;"* ]] || fail "info printed: $out"
[ -f data/ZanthMessages.log ] || fail "the library's log is not in the data folder"
[ ! -e ZanthMessages.log ] || fail "the library wrote into the working folder"

out=$(run --json --wait 00:00:01,00:00:02 list) || fail "list exited $?"
[[ "$out" == '{"controllers":["00:00:01","00:00:02"],"count":2}' ]] || fail "list --json printed: $out"

{
    echo "# two good records, a bad one, a good one"
    echo "7,0,1001,1234,1,41,1,2,0,0,0,0,0,8,1,0,1,2012/01/02,0,2037/12/31,0,5,3,4,0,7"
    echo "7,0,1002,,2,42,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0"
    echo "7,0,1003,1,9,43,1,2,0,0,0,0,0,8,1,0,1,2012/01/02,0,2037/12/31,0,5,3,4"
    echo "7,0,1004,99,3,44,1,2,0,0,0,0,0,8,1,0,1,2012/01/02,18:00:00,2037/12/31,0,5,3,4,1"
} > cards.csv
out=$(run cards load 00:00:01,00:00:02 cards.csv 2>&1)
status=$?
[ "$status" = 4 ] || fail "cards load exited $status: $out"
[[ "$out" == *"line 4, field 5 (accessType): must be 1 to 3 (got 9)"* ]] || fail "cards load: $out"
[[ "$out" == *"loaded 6 of 6 records into 2 controllers"* ]] || fail "cards load: $out"
out=$(run --json cards check 00:00:02 cards.csv)
[ $? = 4 ] || fail "cards check exited wrongly: $out"
[[ "$out" == *'"checked":3,"same":3,"differ":0,"missing":0,"bad_lines":1'* ]] || fail "cards check: $out"

head -c 9000 /dev/urandom > f.bin
run file put 00:00:02 f.bin /tmp/f.bin > /dev/null || fail "file put exited $?"
run file get 00:00:02 back.bin /tmp/f.bin > /dev/null || fail "file get exited $?"
cmp f.bin back.bin || fail "the file came back changed"

other=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
out=$("$wine" "$exe" --port "$other" --data-dir data --timeout 1 info 00:00:09 2>&1 | tr -d '\r')
status=${PIPESTATUS[0]}
[ "$status" = 3 ] || fail "a controller that doesn't come: exit $status ($out)"
[[ "$out" == *"00:00:09 did not connect to port $other"* ]] || fail "timeout message: $out"
echo "wine_cli: all checks passed"
