#!/usr/bin/env bash
# Runs a program that loads libzanth.so (a C++ host, CPython with the bindings) in a sandbox of
# its own: a fresh working folder with HOME and XDG_CONFIG_HOME inside it. The library opens its
# log and message files in the working folder, and reads its per-user setting, as soon as it is
# loaded, before the program's main runs; so the sandbox is set up here, outside the process.
# The folder goes at the end unless ZANTH_KEEP_SANDBOX is set.
set -u
dir=$(mktemp -d "${TMPDIR:-/tmp}/zanth-test-XXXXXX") || exit 1
mkdir -p "$dir/home/.config"
if [ -z "${ZANTH_KEEP_SANDBOX:-}" ]; then
    trap 'rm -rf "$dir"' EXIT
fi
cd "$dir" || exit 1
HOME="$dir/home" XDG_CONFIG_HOME="$dir/home/.config" "$@"
