#!/bin/sh
# Looks for the device's absolute paths in a shared object: each must stand there as a text of its own, and no text may
# hold one behind the folder that the tests' builds put before them.
#   check_paths.sh <shared object> <the tests' folder>
set -eu
export LC_ALL=C

object=$1
folder=$2
status=0

texts=$(mktemp)
trap 'rm -f "$texts"' EXIT
tr '\0' '\n' <"$object" >"$texts"
for path in /zq_product/etc/config/om/inspect_config.xml /data/log/wylogs /data/inspect/diag/log/wylogs; do
    if ! grep -a -q -x -F -e "$path" "$texts"; then
        echo "$object does not hold the path $path" >&2
        status=1
    fi
    if grep -a -q -F -e "$folder$path" "$texts"; then
        echo "$object holds the path $folder$path of the tests" >&2
        status=1
    fi
done
exit $status
