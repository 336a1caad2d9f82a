#!/bin/bash
# Installs a build below a folder of its own, and looks at each program and library in it.
#   check_hardening.sh <build folder> <cmake> <python>
set -euo pipefail
build=$1 cmake=$2 python=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$cmake" --install "$build" --prefix "$work" >"$work.log" 2>&1 || { cat "$work.log" && exit 1; }
rm "$work.log"
"$python" -B "$(dirname "$0")/check_hardening.py" "$work"
