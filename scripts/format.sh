#!/usr/bin/env bash
# Formats the library's C and C++ sources, and the tests and tools that go with them, with the
# project's .clang-format (Debian 12's clang-format 14, from scripts/setup.sh). With --check it
# changes nothing and fails, naming each line, where a file differs from its formatted self;
# CTest runs it so (format.sources). The generated headers of include/ (zanth_*.hpp) and the
# programs around the library (the command line, the bindings, the gateway) are not in its scope.
set -euo pipefail
cd "$(dirname "$0")/.."

check=0
case "${1:-}" in
    --check) check=1 ;;
    "") ;;
    *) echo "format.sh: unknown argument $1" >&2; exit 2 ;;
esac

folders=(platform protocol stores monitors security notify connection frame commands
         tests/unit tests/e2e tests/support tests/crypto tests/nocrypto tests/badcrypto tests/fuzz
         tools/sim tools/demo tools/cipher tools/wireshark)
mapfile -t files < <(find "${folders[@]}" -type f \( -name '*.h' -o -name '*.hpp' -o -name '*.c' \
                          -o -name '*.cpp' \) | LC_ALL=C sort)
files+=(include/zanth.h)

if [ "$check" = 1 ]; then
    clang-format --dry-run -Werror "${files[@]}"
    echo "format.sh: ${#files[@]} files as .clang-format has them"
else
    clang-format -i "${files[@]}"
fi
