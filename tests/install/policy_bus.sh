# Sourced by the tests of an installation: a bus with the shipped policy and the rules of the system bus, and roles that take
# part in it, each with the user and group of an account that nobody uses. Only root can become somebody else.
# shellcheck shell=bash disable=SC2154,SC2034  # build and cmake are the caller's, bin is for the caller
work=$(mktemp -d)
chmod 755 "$work"
pids=()
# Ends what was started, last first: each before what it needs.
finish() {
    local i
    for ((i = ${#pids[@]} - 1; i >= 0; i--)); do
        kill "${pids[i]}" 2>/dev/null || true
        wait "${pids[i]}" 2>/dev/null || true
    done
    rm -rf "$work"
}
trap finish EXIT

install_build() { # where everybody can run it
    "$cmake" --install "$build" --prefix "$work/prefix" >"$work/last" 2>&1 || { cat "$work/last" && exit 1; }
    bin=$work/prefix/bin
}

await() { # await WHAT COMMAND...: until the command succeeds
    local what=$1 tries
    shift
    for ((tries = 0; tries < 600; tries++)); do
        "$@" >"$work/last" 2>&1 && return 0
        sleep 0.05
    done
    echo "gave up waiting for $what: $(cat "$work/last" "$work"/*.out)" >&2
    exit 1
}

start_bus() { # start_bus CONFIGURATION
    export KIVO_BUS_ADDRESS=unix:path=$work/bus KIVO_LOG_DIR=$work/log HOME=/nonexistent
    mkdir -m 777 "$work/log"
    dbus-daemon --config-file="$1" --address="$KIVO_BUS_ADDRESS" --nofork --nopidfile &
    pids+=($!)
    await "the bus" test -S "$work/bus"
}

start_policy_bus() {
    sed -e "s/group=\"ominspect\"/group=\"games\"/; s/group=\"ominspect-owner\"/group=\"news\"/" \
        -e "s/user=\"ominspect\"/user=\"daemon\"/" "$work/prefix/share/dbus-1/system.d/com.kivo.proc.conf" >"$work/policy.conf"
    sed -e "s/group=\"ominspect\"/group=\"games\"/; s/user=\"ominspect-gateway\"/user=\"bin\"/" \
        "$work/prefix/share/dbus-1/system.d/com.kivo.Inspect1.conf" >"$work/typed.conf"
    cat >"$work/bus.conf" <<XML
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <listen>unix:path=$work/bus</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"/>
  </policy>
  <include>$work/policy.conf</include>
  <include>$work/typed.conf</include>
</busconfig>
XML
    start_bus "$work/bus.conf"
}

start_gateway() { # with its typed interface only
    mkdir -m 777 "$work/gateway"
    cat >"$work/gateway/gateway.xml" <<'XML'
<Gateway refresh="1"><History enabled="false"/><Http enabled="false"/><Collection enabled="false"/></Gateway>
XML
    (as gateway ominspect-gateway --config "$work/gateway/gateway.xml") >"$work/gateway.out" 2>&1 &
    pids+=($!)
    await "the gateway" grep -q 'dbus is ok' "$work/gateway.out"
}

as() { # as ROLE COMMAND...
    local role=$1
    shift
    [ "$(id -u)" -eq 0 ] || exec "$@"
    case $role in
        server) exec setpriv --reuid daemon --regid daemon --clear-groups -- "$@" ;;
        gateway) exec setpriv --reuid bin --regid games --clear-groups -- "$@" ;;
        asker) exec setpriv --reuid games --regid games --clear-groups -- "$@" ;;
        owner) exec setpriv --reuid news --regid news --clear-groups -- "$@" ;;
        both) exec setpriv --reuid lp --regid lp --groups games,news -- "$@" ;;
        outsider) exec setpriv --reuid nobody --regid nogroup --clear-groups -- "$@" ;;
        root) exec "$@" ;;
    esac
}
