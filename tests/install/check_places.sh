#!/bin/bash
# Configures for another prefix, and looks for files that still name the places of Debian's packages.
#   check_places.sh <sources> <cmake> <C compiler> <C++ compiler>
set -euo pipefail
sources=$1 cmake=$2 cc=$3 cxx=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "$*" >&2
    exit 1
}

"$cmake" -S "$sources" -B "$work/build" -G Ninja -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_INSTALL_PREFIX=/opt/ominspect >"$work/log" 2>&1 || fail "$(cat "$work/log")"
# Units, policy, configuration, pages, completion, examples: all that is not compiled.
DESTDIR=$work/installed "$cmake" -P "$work/build/packaging/cmake_install.cmake" >"$work/log" 2>&1 || fail "$(cat "$work/log")"

cd "$work/installed"
[ -e opt/ominspect/lib/systemd/system/ominspect.service ] || fail "there is no unit"
[ -e etc/opt/ominspect/ominspect/room.xml ] || fail "there is no room.xml"
if grep -rnE '/usr/(share/(ominspect|doc|zsh|bash-completion|dbus-1)|libexec|bin/ominspect)|(^|[^t])/etc/ominspect' .; then
    fail "these name the places of another prefix"
fi
for place in etc/opt/ominspect/ominspect/gateway.tokens opt/ominspect/share/ominspect/schema; do
    grep -rq "/$place" opt/ominspect/share/man || fail "no manual names /$place"
done

# Where the units cannot run it, that is said.
"$cmake" -S "$sources" -B "$work/build" -DCMAKE_INSTALL_PREFIX=/home/somebody/ominspect >"$work/log" 2>&1 || fail "$(cat "$work/log")"
grep -q 'cannot run what lies' "$work/log" || fail "a prefix that the units do not see is not warned of"
