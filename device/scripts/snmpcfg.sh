#!/bin/sh
# SPDX-License-Identifier: MIT
# Describes the panel's SNMP agent: it answers managers in place of the controller, and asks the controller's own
# agent with version 2c and the controller's community. This only describes it; "snmpctl.sh apply" hands it over.
set -eu
SCRIPT_DIR=${0%/*}
[ -r "$SCRIPT_DIR/varnel-common.sh" ] || SCRIPT_DIR=$(dirname -- "$(readlink -f -- "$0")")
. "$SCRIPT_DIR/varnel-common.sh"
. "$SCRIPT_DIR/varnel-snmp.sh"

usage() {
    cat <<END
Usage: $SCRIPT_NAME CONTROLLER PORT CONTEXT COMMUNITY [OID MODEL...]
Models: V1
        V2
        V3NOAUTH USER
        V3NOPRIV USER MD5|SHA PASS-PHRASE
        V3PRIV   USER MD5|SHA PASS-PHRASE DES|AES PASS-PHRASE
END
}

# Managers of version 1 and 2c cannot name a context; they get this one when the controller has none, so that the
# agent's own objects never hide the controller's.
OWN_CONTEXT=varnel

# access MODEL: who may read the view.
access() {
    case $1 in
        V1) community_access v1 ;;
        V2) community_access v2c ;;
        V3*)
            describe agent "createUser $user${create:+ $create}"
            describe agent "rouser -s usm $user $level -V varnel *"
            ;;
    esac
}

community_access() {
    describe agent "com2sec -Cn $context varnel default $community"
    describe agent "group varnel $1 varnel"
    describe agent 'access varnel "" any noauth prefix varnel none none'
}

# describe_agent [OID MODEL...]: without a model the controller wants no agent, and nobody may read anything.
describe_agent() {
    if [ $# -eq 0 ]; then
        describe model none
        return
    fi
    [ $# -ge 2 ] || bad_usage "an object identifier without a model"
    is_oid "$1" || fail "'$1' is no numeric object identifier"
    check_name "community" "$community"
    oid=$1
    shift
    case $1 in
        V1 | V2)
            [ $# -eq 1 ] || bad_usage "$1 takes no values"
            [ -n "$context" ] || context=$OWN_CONTEXT
            ;;
        V3NOAUTH | V3NOPRIV | V3PRIV)
            read_user "$@"
            ;;
        *)
            bad_usage "unknown model '$1'"
            ;;
    esac
    describe model "$1"
    describe agent "view varnel included $oid"
    access "$1"
    describe proxy "${context:+-Cn $context }-v 2c -c $community"
    describe target "${SNMP_CONTROLLER_PORT:-$port} $oid"
}

case ${1:-} in
    -h | --help)
        usage
        exit
        ;;
esac
begin_step c
[ $# -ge 4 ] || bad_usage "at least 4 values are needed, not $#"
controller=$1 port=$2 context=$3 community=$4
shift 4
# Before the first frame has been handled the panel may know no address; "apply" then takes the registered one.
[ -z "$controller" ] || is_host_address "$controller" || bad_usage "'$controller' is no address of a controller"
is_port "$port" || bad_usage "'$port' is no port"
[ -z "$context" ] || check_name "context" "$context"
describe controller "$controller"
describe port "${SNMP_AGENT_PORT:-$port}"
describe_agent "$@"
end_step
