#!/usr/bin/env bash
# Run by scripts/arm64 in name spaces of its own: puts the Debian system together and runs the command in it.
#   arm64-inside.sh SYSTEM CACHE COMMAND...
set -euo pipefail
# Until the numbers of users are mapped it is nobody; it gets its rights when it starts anew as root.
if [ "$(id -u)" -ne 0 ]; then
    until [ "$(id -u)" -eq 0 ]; do sleep 0.02; done
    exec "$0" "$@"
fi
system=$1 cache=$2
shift 2
mount --rbind /dev "$system/dev"
mount --rbind /sys "$system/sys"
mount -t proc proc "$system/proc"
mount -t tmpfs tmpfs "$system/tmp"
mount --bind "$cache" "$system/ccache"
mount --bind "$PWD" "$system$PWD"
if ! mount -t binfmt_misc binfmt_misc "$system/proc/sys/fs/binfmt_misc"; then
    echo "Nothing is done for 64-bit Arm: this kernel has no binfmt_misc for a user name space (Linux 6.7 has)." >&2
    exit 77
fi
# shellcheck disable=SC2016  # the variables are the inner shell's
exec chroot "$system" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 CCACHE_DIR=/ccache \
    SOURCE_DATE_EPOCH="${SOURCE_DATE_EPOCH-}" OMINSPECT_ARM64=yes sh -euc '
        cat /usr/lib/binfmt.d/qemu-aarch64.conf >/proc/sys/fs/binfmt_misc/register
        cd "$0"
        exec "$@"' "$PWD" "$@"
