#!/bin/bash
# Installs a build below a folder of its own, and uses it from there as somebody else would.
#   check_install.sh <build folder> <name of the folder for libraries> <cmake> <C compiler> <C++ compiler>
set -euo pipefail
build=$1 libraries=$2 cmake=$3 cc=$4 cxx=$5
sources=$(cd "$(dirname "$0")/consumer" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
# Nothing answers there: a program that gets as far as this has found all its libraries.
export KIVO_BUS_ADDRESS=unix:path=$work/no-bus KIVO_LOG_DIR=$work/log

fail() {
    echo "$*" >&2
    exit 1
}
expect() { # expect WHAT TEXT COMMAND...: the command's output holds the text
    local what=$1 text=$2 output
    shift 2
    output=$("$@" 2>&1) || true
    [[ $output == *"$text"* ]] || fail "$what: '$text' is not in: $output"
}

"$cmake" --install "$build" --prefix "$prefix" >"$work/install.log" 2>&1 || fail "$(cat "$work/install.log")"
grep -q 'CMAKE_INSTALL_PREFIX' "$work/install.log" || fail "a moved installation is not warned of"

for program in bin/ominspect bin/ominspectctl bin/ominspect-owner bin/ominspect-gateway libexec/ominspect/ominspect-collect; do
    ldd "$prefix/$program" >"$work/ldd"
    if grep -E 'lib(kivo|ominspect)' "$work/ldd" | grep -v " $prefix/" | grep -q .; then
        fail "$program takes libraries from elsewhere: $(cat "$work/ldd")"
    fi
done
expect "the server" "cannot join the bus" "$prefix/bin/ominspect"
expect "ominspectctl" "bus unreachable" "$prefix/bin/ominspectctl" list
expect "the collection program" "DiagnoseItem \"conf_sip_ft\"" "$prefix/bin/ominspectctl" doctor \
    --config "$prefix/share/ominspect/inspect_config.xml"

"$cmake" -S "$sources" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_COMPILER="$cc" \
    -DCMAKE_CXX_COMPILER="$cxx" >"$work/log" 2>&1 || fail "$(cat "$work/log")"
"$cmake" --build "$work/consumer" >"$work/log" 2>&1 || fail "$(cat "$work/log")"
expect "find_package, requester" "bus-unreachable" "$work/consumer/requester"
expect "find_package, owner" "the bus cannot be reached" "$work/consumer/owner"

export PKG_CONFIG_PATH=$prefix/$libraries/pkgconfig LD_LIBRARY_PATH=$prefix/$libraries
read -ra flags <<<"$(pkg-config --cflags --libs ominspect-client)"
"$cxx" -std=c++20 "$sources/requester.cpp" "${flags[@]}" -o "$work/requester"
expect "pkg-config, requester" "bus-unreachable" "$work/requester"
read -ra flags <<<"$(pkg-config --cflags --libs ominspect-engine-client)"
"$cc" "$sources/owner.c" "${flags[@]}" -o "$work/owner"
expect "pkg-config, owner" "the bus cannot be reached" "$work/owner"
