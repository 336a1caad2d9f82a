#!/bin/sh
# An owner as a shell script: how many of the system's file handles are in use. ominspect-owner does the talking: it runs
# this script again for each request, with the item's name in INSPECT_ITEM and the argument in INSPECT_CMD. The exit code
# and the first line of the output are the result, as monitoring plugins have it.
set -eu

check() {
    # At once: read takes single bytes, and the kernel gives this file in one piece or not at all.
    files=$(cat /proc/sys/fs/file-nr)
    used=${files%%[!0-9]*} most=${files##*[!0-9]}
    # The limit is a percentage; what is no number of at most two digits is not taken for one.
    case ${INSPECT_CMD:-} in
        [1-9] | [1-9][0-9]) limit=$INSPECT_CMD ;;
        *) limit=80 ;;
    esac
    if [ "$((used / (most / 100 + 1)))" -ge "$limit" ]; then
        echo "FILES CRITICAL - $used of $most in use"
        exit 2
    fi
    echo "FILES OK - $used of $most in use"
}

if [ -n "${INSPECT_ITEM:-}" ]; then
    check
    exit 0
fi

# The owner's file. On a device it would be /etc/ominspect/owners/files.xml, served at boot by ominspect-owner@files. This
# one is open as descriptor 3 and has no name any more, so nothing is left to remove at the end.
file=$(mktemp)
exec 3<>"$file"
rm "$file"
cat >&3 <<XML
<Owner process="example-sh">
    <Item name="open_files" timeout="5" isSync="true"><Command>$(realpath "$0")</Command></Item>
</Owner>
XML
exec ominspect-owner /proc/self/fd/3
