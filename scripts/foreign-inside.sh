#!/usr/bin/env bash
# Run by scripts/foreign in name spaces of its own: puts the Debian system together and runs the command in it.
#   foreign-inside.sh PROCESSOR SYSTEM CACHE COMMAND...
set -euo pipefail
# Until the numbers of users are mapped it is nobody; it gets its rights when it starts anew as root.
if [ "$(id -u)" -ne 0 ]; then
    until [ "$(id -u)" -eq 0 ]; do sleep 0.02; done
    exec "$0" "$@"
fi
processor=$1 system=$2 cache=$3
shift 3
mount --rbind /dev "$system/dev"
mount --rbind /sys "$system/sys"
mount -t proc proc "$system/proc"
mount -t tmpfs tmpfs "$system/tmp"
mount --bind "$cache" "$system/ccache"
mount --bind "$PWD" "$system$PWD"
as=()
if [ "$processor" = i386 ]; then
    as=(setarch i386) # what "uname" says of the processor
elif ! mount -t binfmt_misc binfmt_misc "$system/proc/sys/fs/binfmt_misc"; then
    echo "Nothing is done for 64-bit Arm: this kernel has no binfmt_misc for a user name space (Linux 6.7 has)." >&2
    exit 77
# The kernel opens the emulator now, as this system sees it.
elif ! chroot "$system" sh -c 'cat /usr/lib/binfmt.d/qemu-aarch64.conf >/proc/sys/fs/binfmt_misc/register'; then
    exit 1
fi
# shellcheck disable=SC2016  # the variables are the inner shell's
exec chroot "$system" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 CCACHE_DIR=/ccache \
    SOURCE_DATE_EPOCH="${SOURCE_DATE_EPOCH-}" OMINSPECT_FOREIGN="$processor" "${as[@]}" sh -euc 'cd "$0"; exec "$@"' "$PWD" "$@"
