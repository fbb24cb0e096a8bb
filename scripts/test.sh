#!/usr/bin/env bash
# Sets up, builds and runs the tests.
#
#   bash scripts/test.sh --all        every test, as CI runs it (.ci/run): the stages below, each
#                                     timed, then the Windows build under Wine
#   bash scripts/test.sh              the whole suite under AddressSanitizer and
#                                     UndefinedBehaviorSanitizer (build/asan)
#   bash scripts/test.sh --tsan       the tests of the library's threads, and of the programs on
#                                     it (zanthd, the command line), under ThreadSanitizer
#   bash scripts/test.sh --bindings   the language bindings' tests, in a tree without sanitizers
#                                     (build/bindings): CPython and mono load the library
set -euo pipefail
cd "$(dirname "$0")/.."

if [ "${1:-}" = "--all" ]; then
    stage() {
        local name=$1
        shift
        local start=$SECONDS
        echo "=== test: $name"
        "$@"
        echo "=== test: $name took $((SECONDS - start)) s"
    }
    stage "tests (ASan, UBSan)" bash scripts/test.sh
    echo "=== test: the site console's screenshots (artifacts): build/asan/console-screenshots/"
    stage "threaded suites (TSan)" bash scripts/test.sh --tsan
    stage "language bindings" bash scripts/test.sh --bindings
    stage "fuzzing" bash scripts/fuzz.sh
    stage "Windows build under Wine" bash scripts/windows.sh
    echo "=== test: all stages passed in $SECONDS s"
    exit 0
fi

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
