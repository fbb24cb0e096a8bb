#!/bin/sh
# Runs every benchmark with its defaults, and the connect program's storm and churn runs too (a
# few minutes on two cores); stops at the first failure. The argument is the directory of the
# programs (build-*/bin).
set -e
bin=${1:-$(dirname "$0")/../build/bin}
for run in "zanth-bench-command" "zanth-bench-connect" "zanth-bench-connect --storm" \
    "zanth-bench-connect --churn" "zanth-bench-events" "zanth-bench-lookup" "zanth-bench-unlock" \
    "zanth-bench-cards" "zanth-bench-files"; do
    echo "==== $run"
    # Word splitting on purpose: the program, then its options.
    # shellcheck disable=SC2086
    "$bin/"$run
    echo
done
