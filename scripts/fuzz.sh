#!/usr/bin/env bash
# Builds the fuzz tree (build/fuzz: clang, libFuzzer, AddressSanitizer and
# UndefinedBehaviorSanitizer), replays the committed corpora and crash inputs, then fuzzes each
# target for a fixed time and runs the network fuzzer for as long. Any crash, sanitizer report,
# leak, time-out or broken invariant fails the run; libFuzzer's crash input is kept in
# build/fuzz/artifacts/.
#
#   bash scripts/fuzz.sh                  every target for 60 s
#   bash scripts/fuzz.sh --time 3600      every target for an hour
#   bash scripts/fuzz.sh --only worker    one target (frame, worker, seedfile, msgfile, reply, api,
#                                         cli, net)
# Inputs that find new paths are kept in build/fuzz/corpus/<target>, so a later run goes on from
# there; the committed seeds stay in tests/fuzz/corpus/<target>.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

seconds=60
only=""
while [ $# -gt 0 ]; do
    case "$1" in
        --time) seconds="$2"; shift 2 ;;
        --only) only="$2"; shift 2 ;;
        -h|--help) sed -n '2,14p' "$0"; exit 0 ;;
        *) echo "fuzz.sh: unknown argument $1" >&2; exit 2 ;;
    esac
done
case "$seconds" in ''|*[!0-9]*) echo "fuzz.sh: --time takes whole seconds" >&2; exit 2 ;; esac

bash scripts/setup.sh --fuzz
jobs=$(nproc 2>/dev/null || echo 2)
dir=build/fuzz
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
    -DZANTH_FUZZ=ON -DZANTH_BUILD_TESTS=OFF -DZANTH_BUILD_BENCH=OFF
cmake --build "$dir" -j "$jobs" --target zanth-fuzz-all

# The encrypted link loads the reference cipher plugin by name through the search path.
export LD_LIBRARY_PATH="$root/$dir/lib${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
# The targets work in scratch directories of their own under here.
export TMPDIR="$root/$dir/tmp"
rm -rf "$TMPDIR"
mkdir -p "$TMPDIR" "$dir/artifacts"

# Every committed seed and crash input first, once each.
ctest --test-dir "$dir" -L fuzz --output-on-failure --timeout 300

targets=(frame worker seedfile msgfile reply api cli)
failed=()
passed=0
for name in "${targets[@]}"; do
    if [ -n "$only" ] && [ "$only" != "$name" ]; then continue; fi
    corpus="$root/$dir/corpus/$name"
    mkdir -p "$corpus"
    seeds="$root/tests/fuzz/corpus/$name"
    # zanthd's target keeps its seeds beside the gateway.
    if [ "$name" = api ]; then seeds="$root/gateway/tests/fuzz/corpus"; fi
    # So do the command line's: its cards CSV and its words.
    if [ "$name" = cli ]; then seeds="$root/tools/cli/tests/fuzz/corpus"; fi
    inputs=("$corpus" "$seeds")
    if [ -d "$root/tests/fuzz/regressions/$name" ]; then
        inputs+=("$root/tests/fuzz/regressions/$name")
    fi
    echo "=== fuzzing $name for ${seconds} s"
    # Paths are absolute: each target moves into its own scratch directory at start.
    if ! "$root/$dir/bin/zanth-fuzz-$name" -max_total_time="$seconds" -timeout=30 \
        -max_len=16384 -rss_limit_mb=4096 -print_final_stats=1 \
        -artifact_prefix="$root/$dir/artifacts/$name-" "${inputs[@]}" \
        > "$dir/artifacts/$name.log" 2>&1; then
        tail -n 60 "$dir/artifacts/$name.log"
        failed+=("$name")
        continue
    fi
    grep -E "^stat::number_of_executed_units|^stat::new_units_added|^stat::peak_rss_mb" \
        "$dir/artifacts/$name.log" | sed "s/^/  $name /"
    passed=$((passed + 1))
done

if [ -z "$only" ] || [ "$only" = net ]; then
    echo "=== network fuzzing for ${seconds} s (NETFUZZ_SEED=${NETFUZZ_SEED:-random} chooses the seed)"
    seed=${NETFUZZ_SEED:-$RANDOM}
    if ! "$root/$dir/bin/zanth-netfuzz" --duration "$seconds" --connections 100000 --seed "$seed" \
        > "$dir/artifacts/net.log" 2>&1; then
        tail -n 60 "$dir/artifacts/net.log"
        failed+=(net)
    else
        sed -n '/^netfuzz: [0-9]* s of traffic/,$p' "$dir/artifacts/net.log"
        passed=$((passed + 1))
    fi
fi

if [ ${#failed[@]} -gt 0 ]; then
    echo "fuzz: failed: ${failed[*]} (inputs and logs in $dir/artifacts/)" >&2
fi
echo "fuzz: $passed passed, ${#failed[@]} failed"
[ ${#failed[@]} -eq 0 ]
