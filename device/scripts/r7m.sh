#!/bin/sh
# SPDX-License-Identifier: MIT
# Registers the controller that the panel follows, and removes it when the link is lost. The registration is a file
# under /run and a hosts snippet; every executable of a drop-in directory is then told, with the same arguments.
set -eu
SCRIPT_DIR=${0%/*}
[ -r "$SCRIPT_DIR/varnel-common.sh" ] || SCRIPT_DIR=$(dirname -- "$(readlink -f -- "$0")")
. "$SCRIPT_DIR/varnel-common.sh"

usage() {
    cat <<END
Usage: $SCRIPT_NAME add ADDRESS TYPE SNMP-PORT TRAP-PORT MODBUS-STATUS MODBUS-PORT BUILD
       $SCRIPT_NAME delete ADDRESS TYPE SNMP-PORT TRAP-PORT BUILD
END
}

# check_device TYPE SNMP-PORT TRAP-PORT BUILD: what both verbs are given. A controller may send 0 for a port it does
# not use; it is kept as it is, since nothing is opened here.
check_device() {
    for value in "$@"; do
        if ! is_number "$value" || [ "$value" -gt 65535 ]; then
            bad_usage "'$value' is no number of 16 bits"
        fi
    done
}

# run_dropins ARGUMENTS...: in the order of their names. One that fails or hangs does not stop the others.
run_dropins() {
    result=0
    deadline=
    for dropin in "$R7M_DROPIN_DIR"/*; do
        if [ ! -f "$dropin" ] || [ ! -x "$dropin" ]; then
            continue
        fi
        now=$(date +%s)
        : "${deadline:=$((now + R7M_DROPIN_SECONDS))}"
        seconds=$((deadline - now))
        if [ "$seconds" -lt 1 ]; then
            say "no time left for $dropin"
            result=1
        elif ! timeout "$seconds" "$dropin" "$@" </dev/null; then
            say "$dropin failed"
            result=1
        fi
    done
    return "$result"
}

# register ADDRESS TYPE SNMP-PORT TRAP-PORT MODBUS-STATUS MODBUS-PORT BUILD: a reader always sees a complete file.
register() {
    private_dir "$STATE_DIR/new"
    printf '%s %s\n' "$1" "$R7M_HOST_NAMES" >"$STATE_DIR/new/hosts"
    printf '%s=%s\n' ADDRESS "$1" TYPE "$2" SNMP_PORT "$3" TRAP_PORT "$4" MODBUS_STATUS "$5" MODBUS_PORT "$6" BUILD "$7" \
        >"$STATE_DIR/new/controller"
    mv -f -- "$STATE_DIR/new/hosts" "$STATE_DIR/new/controller" "$STATE_DIR"
}

add() {
    [ $# -eq 7 ] || bad_usage "add takes 7 values, not $#"
    is_host_address "$1" || bad_usage "'$1' is no address of a controller"
    check_device "$2" "$3" "$4" "$6" "$7"
    case $5 in
        0 | 1) ;;
        *) bad_usage "the Modbus status is 0 or 1, not '$5'" ;;
    esac
    register "$@"
    result=0
    # A controller that takes over from another may bring the same SNMP configuration, which the panel then does not
    # apply again; the agent has to be pointed at the new address from here.
    snmp_wish
    if [ -n "$wish" ] && [ "$wish_controller" != "$1" ] && [ -x "$SCRIPT_DIR/snmpctl.sh" ]; then
        "$SCRIPT_DIR/snmpctl.sh" follow || result=1
    fi
    run_dropins add "$@" || result=1
    return "$result"
}

# Only the registered controller can be removed. The panel also removes around a change of its own address, when none
# may be registered yet; that is no error.
delete() {
    [ $# -eq 5 ] || bad_usage "delete takes 5 values, not $#"
    [ -z "$1" ] || is_host_address "$1" || bad_usage "'$1' is no address of a controller"
    check_device "$2" "$3" "$4" "$5"
    registered_controller
    if [ -z "$1" ] || [ "$registered" != "$1" ]; then
        say "controller '$1' is not registered, nothing to remove"
        return 0
    fi
    rm -f -- "$STATE_DIR/controller" "$STATE_DIR/hosts"
    run_dropins delete "$@"
}

case ${1:-} in
    -h | --help)
        usage
        ;;
    add | delete)
        "$@"
        ;;
    *)
        bad_usage "unknown verb '${1:-}'"
        ;;
esac
