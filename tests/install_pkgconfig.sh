#!/usr/bin/env bash
# Installs a build tree into a fresh folder, as `cmake --install <tree> --prefix <folder>` does
# for a host, and builds the README's C example against it with the flags pkg-config gives for
# that folder: the installed zanth.pc must point at the folder it was installed in.
#   install_pkgconfig.sh BUILD-TREE README C-COMPILER
set -euo pipefail
tree=$1 readme=$2 cc=$3

prefix=$(mktemp -d "${TMPDIR:-/tmp}/zanth-install-XXXXXX")
trap 'rm -rf "$prefix"' EXIT
cmake --install "$tree" --prefix "$prefix" > "$prefix/install.log"

pc=$(find "$prefix" -name zanth.pc -path '*/pkgconfig/*')
[ -n "$pc" ] || { echo "no zanth.pc was installed under $prefix" >&2; exit 1; }
export PKG_CONFIG_PATH=$(dirname "$pc")
export PKG_CONFIG_LIBDIR=$PKG_CONFIG_PATH
cflags=$(pkg-config --cflags zanth)
libs=$(pkg-config --libs zanth)
echo "pkg-config: $cflags $libs"
case " $cflags " in
    *" -I$prefix/"*) ;;
    *) echo "the include flags point outside $prefix: $cflags" >&2; exit 1 ;;
esac

# The first C block of the README's "Using the library".
awk '/^## Using the library/ { inside = 1 }
     inside && /^```c$/ { code = 1; next }
     code && /^```$/ { exit }
     code { print }' "$readme" > "$prefix/example.c"
[ -s "$prefix/example.c" ] || { echo "no C example found in $readme" >&2; exit 1; }

# shellcheck disable=SC2086  # the flags are words
"$cc" -std=c99 -Wall -Wextra -Werror -o "$prefix/example" "$prefix/example.c" $cflags $libs
# The example links against the installed library, not the build tree's.
readelf -d "$prefix/example" | grep -q 'NEEDED.*libzanth\.so'
echo "the README's example builds against $prefix"
