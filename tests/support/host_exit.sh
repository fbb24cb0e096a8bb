#!/usr/bin/env bash
# Runs a host that returns from main with the library still running (no Shutdown), then reads
# the library's log in the working folder: the library must have let the process end without
# waiting for its threads (which the system had already ended) and without its unload's
# complaint that they were still running.
#   host_exit.sh <host command...>
set -uo pipefail
rm -f ZanthMessages.log
"$@" || exit 1
[ -s ZanthMessages.log ] || { echo "host_exit.sh: the library wrote no log here" >&2; exit 1; }
if grep -n "library threads still running" ZanthMessages.log >&2; then
    echo "host_exit.sh: the library waited for threads the process had already ended" >&2
    exit 1
fi
echo "host_exit.sh: the host ended without waiting on the library's threads"
