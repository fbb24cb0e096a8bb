#!/usr/bin/env bash
# Regenerates everything made from the header, the annotations and the wire code list, in the
# order each reads the other's output: the API model with the C++ layer, docs/API.md and the
# Python package's copy (api/generate.py); the C# bindings from the model
# (bindings/dotnet/generate.py); the dissector's code table (tools/wireshark/gen_codes.py).
#
#   bash scripts/generate.sh           write what differs
#   bash scripts/generate.sh --check   write nothing; exit 1 naming what has drifted
set -euo pipefail
cd "$(dirname "$0")/.."
check=()
case "${1:-}" in
    --check) check=(--check) ;;
    "") ;;
    *) echo "generate.sh: unknown argument $1" >&2; exit 2 ;;
esac
status=0
for generator in api/generate.py bindings/dotnet/generate.py tools/wireshark/gen_codes.py; do
    python3 "$generator" "${check[@]}" || status=1
done
exit $status
