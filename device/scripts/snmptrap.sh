#!/bin/sh
# SPDX-License-Identifier: MIT
# Describes the traps: "init" sets their security model and the port on which the panel receives those of the
# controller, "add" names a destination. A destination gets the traps of the panel's own agent and those of the
# controller. This only describes them; "snmpctl.sh apply" hands them over.
set -eu
SCRIPT_DIR=${0%/*}
[ -r "$SCRIPT_DIR/varnel-common.sh" ] || SCRIPT_DIR=$(dirname -- "$(readlink -f -- "$0")")
. "$SCRIPT_DIR/varnel-common.sh"
. "$SCRIPT_DIR/varnel-snmp.sh"

usage() {
    cat <<END
Usage: $SCRIPT_NAME init|add ADDRESS PORT [MODEL...]
Models: V1 COMMUNITY
        V2 COMMUNITY
        V3NOAUTH ENGINE-ID USER
        V3NOPRIV ENGINE-ID USER MD5|SHA PASS-PHRASE
        V3PRIV   ENGINE-ID USER MD5|SHA PASS-PHRASE DES|AES PASS-PHRASE
END
}

# read_model MODEL...: sets trap_user and listen (lines for snmptrapd.conf) and options (of a session for snmpd.conf).
read_model() {
    trap_user=
    case $1 in
        V1 | V2)
            [ $# -eq 2 ] || bad_usage "$1 takes one value, not $(($# - 1))"
            check_name "community" "$2"
            version=1
            [ "$1" = V1 ] || version=2c
            listen="authCommunity log,net $2"
            options="-v $version -c $2"
            ;;
        V3NOAUTH | V3NOPRIV | V3PRIV)
            [ $# -ge 3 ] || bad_usage "$1 needs an engine id and a user"
            model=$1 engine=$2
            shift 2
            [ -z "$engine" ] || is_engine_id "$engine" || fail "'$engine' is no engine id"
            read_user "$model" "$@"
            if [ -n "$engine" ]; then
                engine=0x${engine#0x}
                options="-e $engine $options"
            fi
            trap_user="createUser ${engine:+-e $engine }$user${create:+ $create}"
            listen="authUser log,net $user $level"
            ;;
        *)
            bad_usage "unknown model '$1'"
            ;;
    esac
}

# The first destination is named by "init" as well; only "add" makes it one.
init() {
    if [ $# -eq 2 ]; then
        describe traps none
        return
    fi
    describe traps "$3"
    describe trapport "$port"
    shift 2
    read_model "$@"
    [ -z "$trap_user" ] || describe listen "$trap_user"
    describe listen "$listen"
}

# 0.0.0.0 is a destination that is not set in the controller.
add() {
    if [ "$address" = 0.0.0.0 ]; then
        return 0
    fi
    is_host_address "$address" || bad_usage "'$address' is no address of a destination"
    if [ $# -eq 2 ]; then
        say "no security model for $address, it gets no traps"
        return 0
    fi
    shift 2
    read_model "$@"
    describe sink "$options"
    describe forward "$address:$port"
}

case ${1:-} in
    -h | --help)
        usage
        exit
        ;;
esac
if [ "${1:-}" = init ]; then
    begin_step i
else
    begin_step a
fi
[ $# -ge 3 ] || bad_usage "at least 3 values are needed, not $#"
verb=$1 address=$2 port=$3
shift
is_ipv4 "$address" || bad_usage "'$address' is no address"
is_port "$port" || bad_usage "'$port' is no port"
case $verb in
    init | add) "$verb" "$@" ;;
    *) bad_usage "unknown verb '$verb'" ;;
esac
end_step
