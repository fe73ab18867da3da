#!/bin/sh
# SPDX-License-Identifier: MIT
# A new SNMP configuration is a transaction: "init" begins it, snmpcfg.sh and snmptrap.sh describe it, "apply" hands it
# over to varnel-config, which brings it into effect. When a step was refused, the former configuration stays.
# "follow" points the agent at the controller that has just been registered.
set -eu
SCRIPT_DIR=${0%/*}
[ -r "$SCRIPT_DIR/varnel-common.sh" ] || SCRIPT_DIR=$(dirname -- "$(readlink -f -- "$0")")
. "$SCRIPT_DIR/varnel-common.sh"
. "$SCRIPT_DIR/varnel-snmp.sh"

usage() {
    echo "Usage: $SCRIPT_NAME init|apply|follow"
}

init() {
    private_dir "$SNMP_STAGE"
    umask 077
    : >"$SNMP_STAGE/begun"
    : >"$SNMP_STAGE/ended"
    : >"$SNMP_STAGE/lines"
}

apply() {
    [ -e "$SNMP_STAGE/lines" ] || fail "nothing was begun; run $SCRIPT_NAME init first"
    begun=
    ended=
    read -r begun <"$SNMP_STAGE/begun" || :
    read -r ended <"$SNMP_STAGE/ended" || :
    [ "$begun" = "$ended" ] || fail "a step was refused, the former SNMP configuration stays"
    # c: snmpcfg.sh, i: snmptrap.sh init
    case $ended in
        *c*i* | *i*c*) ;;
        *) fail "a step is missing, the former SNMP configuration stays" ;;
    esac
    hand_over snmp "$SNMP_STAGE/lines"
}

# wish_controller FILE: sets controller, the address that the described agent asks.
wish_controller() {
    while IFS= read -r line; do
        case $line in
            "controller "*)
                controller=${line#controller }
                return
                ;;
        esac
    done <"$1"
}

# A description moves from the wish to its place on the disk, and is looked for in this order.
follow() {
    registered_controller
    [ -n "$registered" ] || return 0
    for wish in "$STATE_DIR/wanted/snmp" "$STATE_DIR/taken/snmp" "$KEEP_DIR/wanted/snmp" "$KEEP_DIR/effective/snmp"; do
        controller=
        if [ -e "$wish" ] && wish_controller "$wish" 2>/dev/null; then
            if [ "$controller" != "$registered" ]; then
                text=$(sed "s/^controller .*/controller $registered/" "$wish")
                write_wish snmp "$text"
            fi
            return
        fi
    done
}

[ $# -eq 1 ] || bad_usage "one verb is needed, not $#"
case $1 in
    -h | --help) usage ;;
    init | apply | follow) "$1" ;;
    *) bad_usage "unknown verb '$1'" ;;
esac
