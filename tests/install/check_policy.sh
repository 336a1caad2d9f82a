#!/bin/bash
# The shipped bus policy on a bus with the rules of the system bus: what the server's user, a member of each group, root and
# an outsider may do, and what those are told who may not. Prints each refusal.
#   check_policy.sh <build folder> <cmake>
#
# Only root can become somebody else. For anybody else only the outsider is tried: that is he himself.
set -euo pipefail
build=$1 cmake=$2
# shellcheck source=tests/install/policy_bus.sh
. "$(dirname "$0")/policy_bus.sh"
install_build
owner_file=$work/owner.xml
measure='<Item name="measure" isSync="true"><Command>/bin/echo</Command><Arg>fine | a=1</Arg></Item>'
sed "s#>[^<]*/check_#>$work/prefix/libexec/ominspect/check_#; s#</Owner>#$measure&#" "$work/prefix/share/ominspect/owner/system.xml" >"$owner_file"
start_policy_bus

refused() { # refused ROLE TEXT COMMAND...: the command fails, and this is all it says
    local role=$1 text=$2 output code=0
    shift 2
    # A requester's name holds its process id.
    output=$(set +e; (as "$role" timeout 20 "$@") 2>&1 | sed 's/"ic-[0-9]*"/"ic-N"/'; exit "${PIPESTATUS[0]}") || code=$?
    if [ "$code" -eq 0 ] || [ "$output" != "$text" ]; then
        printf '%s: %s\nwanted: %s\ngot (%s): %s\n' "$role" "$*" "$text" "$code" "$output" >&2
        exit 1
    fi
    printf '%s: %s\n%s\n\n' "$role" "$(basename "$1") ${*:2}" "$output"
}
allowed() { # allowed ROLE COMMAND...
    local role=$1
    shift
    (as "$role" "$@") >"$work/last" 2>&1 || {
        printf '%s: %s\n%s\n' "$role" "$*" "$(cat "$work/last")" >&2
        exit 1
    }
}
name=nobody
[ "$(id -u)" -eq 0 ] || name=$(id -un)
user="\"$name\" ($(id -u "$name"))"
ctl=$bin/ominspectctl
send=(busctl --address="$KIVO_BUS_ADDRESS" call)
task="com.kivo.Msg Send uussay"

not_an_asker="ominspectctl: access denied: the bus at $KIVO_BUS_ADDRESS does not let user $user join as the process \"ic-N\"; add the user to the group \"ominspect\" and log in again"
not_an_owner="kivo_os_msg: process sysowner cannot join the bus at $KIVO_BUS_ADDRESS: the bus's policy forbids it: Permission denied
ominspect-owner: cannot join the message bus: access denied: the bus at $KIVO_BUS_ADDRESS does not let this user join as the process \"sysowner\"; add the user to the group \"ominspect-owner\""
not_the_server="kivo_os_msg: process ominspect cannot join the bus at $KIVO_BUS_ADDRESS: the bus's policy forbids it: Permission denied
ominspect: the server ended: the bus's policy forbids it (0x8002000e)"

refused outsider "$not_an_asker" "$ctl" list
refused outsider "${not_an_asker/access/memory: access}" "$ctl" run memory
refused outsider "$not_an_asker" "$ctl" group memory
refused outsider "$not_an_asker" "$ctl" watch
refused outsider "$not_an_owner" "$bin/ominspect-owner" "$owner_file"
refused outsider "$not_the_server" "$bin/ominspect"
[ "$(id -u)" -eq 0 ] || exit 0

for role in asker owner both root; do
    refused "$role" "$not_the_server" "$bin/ominspect"
done
refused asker "$not_an_owner" "$bin/ominspect-owner" "$owner_file"

(as server "$bin/ominspect") >"$work/server.out" 2>&1 &
pids+=($!)
(as owner "$bin/ominspect-owner" "$owner_file") >"$work/owner.out" 2>&1 &
pids+=($!)
for role in asker both root; do
    allowed "$role" "$ctl" wait clock
    allowed "$role" "$ctl" list
    allowed "$role" "$ctl" run clock
    allowed "$role" "$ctl" group clock
done
(as asker "$ctl" watch --count 2) >"$work/watch.out" 2>&1 &
pids+=($!)
await "the watcher" grep -q watching "$work/watch.out"
told() { # told ROLE TEXT COMMAND...: the command says this, among other things
    (as "$1" "${@:3}") >"$work/last" 2>&1 || true
    grep -qF -- "$2" "$work/last" || {
        printf '%s: %s\nwanted: %s\ngot: %s\n' "$1" "${*:3}" "$2" "$(cat "$work/last")" >&2
        exit 1
    }
}
for role in asker both root; do
    told "$role" "ok       policy         in force" "$ctl" doctor
    told "$role" "ok       server         $("$bin/ominspect" --version), process " "$ctl" doctor
done
told outsider "failure  rights         user nobody is not in the group ominspect" "$ctl" doctor
allowed asker "$ctl" run clock
await "an event" grep -q clock "$work/watch.out"

# The typed interface of the gateway.
PATH=$bin:$PATH start_gateway
inspect=("${send[@]}" com.kivo.Inspect1 /com/kivo/Inspect1)
follow() { # follow ROLE: notes its signals
    (as "$1" stdbuf -oL gdbus monitor --address "$KIVO_BUS_ADDRESS" --dest com.kivo.Inspect1) >"$work/signals-$1" 2>&1 &
    pids+=($!)
}
# The second one has surely looked when the first one sees the second of two results.
follow outsider
await "the outsider's monitor" test -s "$work/signals-outsider"
follow asker
await "the asker's monitor" test -s "$work/signals-asker"
for role in asker both root; do
    allowed "$role" "${inspect[@]}" com.kivo.Inspect1 Run ss clock ""
    grep -q '^sstt "' "$work/last"
    allowed "$role" "${inspect[@]}" org.freedesktop.DBus.ObjectManager GetManagedObjects
done
three_results() { [ "$(grep -c "ResultChanged ('clock'" "$work/signals-asker")" -ge 3 ]; }
await "three results" three_results
if grep -q "'clock'" "$work/signals-outsider"; then
    echo "an outsider hears of results: $(cat "$work/signals-outsider")" >&2
    exit 1
fi
for role in outsider owner server; do
    refused "$role" "Call failed: Access denied" "${inspect[@]}" com.kivo.Inspect1 Run ss clock ""
    refused "$role" "Call failed: Access denied" "${inspect[@]}" org.freedesktop.DBus.Properties GetAll s com.kivo.Inspect1
done
for role in outsider owner server asker both root; do
    refused "$role" "Call failed: Access denied" "${send[@]}" org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus RequestName su com.kivo.Inspect1 0
done

# Around the server, and into it by other doors than its task.
denied="Call failed: Access denied"
# shellcheck disable=SC2086  # words
{
    refused outsider "$denied" "${send[@]}" com.kivo.proc.ominspect /com/kivo/task/iom_5fsrv_5ftask $task 37 0 "" "" 0
    refused server "$denied" "${send[@]}" org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus RequestName su com.kivo.proc.sysowner 0
    for role in outsider asker both root; do
        refused "$role" "$denied" "${send[@]}" com.kivo.proc.sysowner /com/kivo/task/owner_5fitems $task 4 0 "" "" 0
    done
    refused asker "$denied" "${send[@]}" com.kivo.proc.ominspect /com/kivo/task/inside_5fcheck $task 4 0 "" "" 0
    refused outsider "$denied" "${send[@]}" com.kivo.proc.sysowner /com/kivo/inspect org.freedesktop.DBus.Properties Get ss com.kivo.Inspect.Owner Items
    # Owners tell those who may ask what their items measure, and nobody else.
    for role in outsider owner; do
        refused "$role" "$denied" "${send[@]}" com.kivo.proc.sysowner /com/kivo/process com.kivo.Msg.Publisher Subscribe
        refused "$role" "$denied" "${send[@]}" com.kivo.proc.ominspect /com/kivo/process com.kivo.Msg.Publisher Subscribe
    done
    for role in asker both root; do
        allowed "$role" "${send[@]}" com.kivo.proc.sysowner /com/kivo/process com.kivo.Msg.Publisher Subscribe
    done
}

# What an owner's item has measured reaches those who may ask.
mkdir -m 777 "$work/scraped"
cat >"$work/scraped.xml" <<XML
<Gateway process="ic-scraped" refresh="1">
    <History enabled="false"/><Collection enabled="false"/>
    <Http tokens="$work/scraped/no.tokens"><Unix path="$work/scraped/http.sock"/></Http>
</Gateway>
XML
(as asker "$bin/ominspect-gateway" --config "$work/scraped.xml") >"$work/scraped.out" 2>&1 &
pids+=($!)
measured() {
    (as asker "$ctl" run measure) && curl -sf --unix-socket "$work/scraped/http.sock" http://localhost/metrics >"$work/scraped.metrics" &&
        grep -F 'ominspect_perfdata_value{item="measure",label="a"} 1' "$work/scraped.metrics"
}
await "what the item has measured" measured
