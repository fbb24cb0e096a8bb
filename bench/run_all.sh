#!/bin/sh
# Runs every benchmark with its defaults (a few minutes on two cores) and stops at the first
# failure. The argument is the directory of the programs (build-*/bin).
set -e
bin=${1:-$(dirname "$0")/../build/bin}
for program in zanth-bench-command zanth-bench-connect zanth-bench-events zanth-bench-lookup zanth-bench-files; do
    echo "==== $program"
    "$bin/$program"
    echo
done
