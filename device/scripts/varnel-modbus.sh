# SPDX-License-Identifier: MIT
# shellcheck shell=sh
# Calls to the Modbus server over D-Bus, for mbserverstart.sh and mbserverstop.sh, and for mbserverupdate.sh when no server
# listens at its socket. It lies beside them, and a script begins with
#
#     set -eu
#     . "$(dirname -- "$(readlink -f -- "$0")")/varnel-modbus.sh"
#
# The calls use busctl: it passes the text unchanged as one argument, with any characters and up to the kernel's limit.
# A client that needs a type before the text in the same argument would refuse the panel's longest update.

. "$(dirname -- "$(readlink -f -- "$0")")/varnel-common.sh"

MODBUS_NAME=org.varnel.ModbusServer1
MODBUS_OBJECT=/org/varnel/ModbusServer1
# The panel kills a script after 30 s; this limit is shorter, so that the script can report the problem itself.
MODBUS_SECONDS=20

# bus_option: the bus as an option of busctl.
bus_option() {
    case $MODBUS_BUS in
        system) printf '%s\n' --system ;;
        session) printf '%s\n' --user ;;
        *) printf '%s\n' "--address=$MODBUS_BUS" ;;
    esac
}

# bus_call AUTO-START ARGUMENT...: one call; prints the reply, or fails with the other side's error.
bus_call() {
    have busctl || fail "busctl is missing (package systemd)"
    auto_start=$1
    shift
    bus_reply=$(busctl "$(bus_option)" --timeout="$MODBUS_SECONDS" --auto-start="$auto_start" -- call "$@" 2>&1) ||
        fail "${bus_reply#Call failed: }"
    printf '%s\n' "$bus_reply"
}

# server_call METHOD [TEXT]: calls the server, which D-Bus starts if it does not run.
server_call() {
    if [ $# -eq 1 ]; then
        bus_call yes "$MODBUS_NAME" "$MODBUS_OBJECT" "$MODBUS_NAME" "$1" >/dev/null
    else
        bus_call yes "$MODBUS_NAME" "$MODBUS_OBJECT" "$MODBUS_NAME" "$1" s "$2" >/dev/null
    fi
}

# server_runs: whether the server is on the bus. Asking does not start it.
server_runs() {
    owned=$(bus_call no org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus NameHasOwner s \
        "$MODBUS_NAME") || exit # a condition does not end the script by itself
    [ "$owned" = "b true" ]
}
