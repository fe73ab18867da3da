#!/bin/sh
# SPDX-License-Identifier: MIT
# A new SNMP configuration is a transaction: "init" begins it, snmpcfg.sh and snmptrap.sh describe it, "apply" hands it
# over to varnel-config, which applies it. When a step was refused, the previous configuration stays. "follow" points
# the agent at the controller that has just been registered.
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

follow() {
    registered_controller
    snmp_wish
    if [ -n "$registered" ] && [ -n "$wish" ] && [ "$registered" != "$wish_controller" ]; then
        text=$(sed "s/^controller .*/controller $registered/" "$wish")
        write_wish snmp "$text"
    fi
}

[ $# -eq 1 ] || bad_usage "one verb is needed, not $#"
case $1 in
    -h | --help) usage ;;
    init | apply | follow) "$1" ;;
    *) bad_usage "unknown verb '$1'" ;;
esac
