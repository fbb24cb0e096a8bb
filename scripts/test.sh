#!/usr/bin/env bash
# Sets up, builds and runs the whole test suite under AddressSanitizer and
# UndefinedBehaviorSanitizer. With --tsan, builds a ThreadSanitizer tree instead and runs the
# tests that exercise the library's threads (and the programs on it: zanthd, the command line). With --bindings, builds a tree without sanitizers
# (build/bindings) and runs the language bindings' tests, which load the library into CPython and
# mono.
set -euo pipefail
cd "$(dirname "$0")/.."

mode=asan
case "${1:-}" in
    --tsan) mode=tsan ;;
    --bindings) mode=bindings ;;
    "") ;;
    *) echo "test.sh: unknown argument $1" >&2; exit 2 ;;
esac

# --field: the tests' real peers, tshark among them (the dissector's tests run it).
bash scripts/setup.sh --field
jobs=$(nproc 2>/dev/null || echo 2)

if [ "$mode" = asan ]; then
    dir=build/asan
    cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DZANTH_SANITIZE=address,undefined -DZANTH_BUILD_BENCH=OFF
    filter=()
elif [ "$mode" = tsan ]; then
    dir=build/tsan
    cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DZANTH_SANITIZE=thread -DZANTH_BUILD_BENCH=OFF
    filter=(-L "e2e|crypto|gateway|cli")
else
    dir=build/bindings
    cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DZANTH_BUILD_TESTS=OFF \
        -DZANTH_BUILD_BENCH=OFF -DZANTH_BINDING_TESTS=ON
    filter=(-L bindings)
fi
cmake --build "$dir" -j "$jobs"

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
# The tests wait on sockets and timers much more than they compute: run more than one per core.
ctest --test-dir "$dir" -j $((jobs * 4)) --output-on-failure --timeout 180 "${filter[@]}"
