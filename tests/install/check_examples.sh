#!/bin/bash
# The examples of an installation: built and run by the commands of their README as they stand, by a user who may ask and own;
# then each by a user who may do no more than it needs, over a restart of the server and to their own end.
#   check_examples.sh <build folder> <name of the folder for libraries> <cmake> <private bus configuration>
#
# Only root can become somebody else. For anybody else it is a private bus without roles.
set -euo pipefail
build=$1 libraries=$2 cmake=$3 private_bus=$4
# shellcheck source=tests/install/policy_bus.sh
. "$(dirname "$0")/policy_bus.sh"
install_build
if [ "$(id -u)" -eq 0 ]; then start_policy_bus; else start_bus "$private_bus"; fi
export PATH=$bin:/usr/bin:/bin LD_LIBRARY_PATH=$work/prefix/$libraries PYTHONPATH=$work/prefix/lib/python3/dist-packages
export PKG_CONFIG_PATH=$work/prefix/$libraries/pkgconfig CMAKE_PREFIX_PATH=$work/prefix PYTHONDONTWRITEBYTECODE=1

start() { # start NAME ROLE COMMAND...
    local name=$1
    shift
    (as "$@") >>"$work/$name.out" 2>&1 &
    pids+=($!)
}
fail() {
    printf '%s\n' "$*" >&2
    tail -n 40 "$work"/*.out >&2
    exit 1
}
start server server ominspect
server=${pids[-1]}
start_gateway

# As the README has it.
mkdir -m 777 "$work/examples"
cp -r "$work/prefix/share/doc/libominspect-dev/examples/." "$work/prefix/share/doc/python3-ominspect/examples/." "$work/examples"
cd "$work/examples"
{
    # A command that fails is noted; what it leaves running is ended.
    echo "trap 'echo \"\$? \$BASH_COMMAND\" >>failed' ERR"
    echo "trap 'kill \"\$owner\" 2>/dev/null || true' EXIT"
    # shellcheck disable=SC2016  # no command of the shell
    sed -n '/^```sh$/,/^```$/{/^```/!p}' README.md
} >"$work/readme.sh"
(as both timeout 120 bash "$work/readme.sh") >"$work/readme.out" 2>&1 || true
# The state of this machine may be a warning; all else must succeed.
if [ -e failed ] && grep -v -e '^1 ominspectctl run' -e '^1 \./requester' failed >&2; then
    fail "a command of the README failed"
fi
shown() { # shown PATTERN: a line of what the README's commands print
    grep -qE "$1" "$work/readme.out" || fail "the README's commands print no line '$1'"
}
shown '^disk_space +(success|warn|fail) .* GiB free \([0-9]+ %\)'
shown '^  \.\.\. [0-9]+ % busy$'
shown '^cpu_busy: success, [0-9]+ % busy$'
shown '^carrier: (success|fail), lo is (not )?connected \([0-9.]+ s\)$'
shown '^net_rate: success, [0-9.]+ kB/s come in \([2-9]\.[0-9] s\)$'
shown '^load_average +(success|warn) .*load [0-9.]+'
shown '^open_files +(success|fail) .*FILES (OK|CRITICAL) - [0-9]+ of [0-9]+ in use'

# Each in its role.
items=(disk_space cpu_busy carrier net_rate load_average open_files)
owners=()
for owner in owner_c owner_cpp owner.py owner_dbus.py owner.sh; do
    start "$owner" owner "./$owner"
    owners+=("${pids[-1]}")
done
every_item() { # every_item REQUESTER PATTERN: it gets a result of this form for every item
    local item
    (as asker timeout 60 "$1" "${items[@]}") >"$work/requester.out" 2>&1 || true
    for item in "${items[@]}"; do
        grep -qE "^$item: $2" "$work/requester.out" || fail "$1 gets no result '$2' of $item"
    done
}
registered() { (as asker timeout 20 ominspectctl wait "${items[@]}"); }
await "the owners" registered
every_item ./requester_cpp '(success|warn|fail), .*([0-9]|lo is)'
kill "$server"
wait "$server" || true
start server server ominspect
await "the owners' return" registered
every_item ./requester_dbus.py '(success|warn|fail), .*([0-9]|lo is)'
every_item ./requester.py '(success|warn|fail), .*([0-9]|lo is)'
for i in "${!owners[@]}"; do
    kill "${owners[i]}"
    wait "${owners[i]}" || fail "owner $i ends with $?"
done
every_item ./requester_cpp 'fail, .*no process has registered'
every_item ./requester.py 'fail, .*no process has registered'
(as asker ./requester_dbus.py disk_space) >"$work/requester.out" 2>&1 && fail "requester_dbus.py passes without an owner"
grep -qF '(com.kivo.Inspect1.Error.NoOwner)' "$work/requester.out" || fail "requester_dbus.py: $(cat "$work/requester.out")"
