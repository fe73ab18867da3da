#!/bin/sh
# SPDX-License-Identifier: MIT
# Describes the panel's SNMP agent: it answers managers in the place of the controller, whose own agent it asks with
# version 2c and the controller's community. Collected only; "snmpctl.sh apply" brings it into effect.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/varnel-common.sh"
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

# Managers of version 1 and 2c cannot name a context; they are led into this one when the controller has none, so that
# the agent's own objects never hide the controller's.
OWN_CONTEXT=varnel

# access MODEL: who may read what stands in the view.
access() {
    case $1 in
        V1) community_access v1 ;;
        V2) community_access v2c ;;
        V3*)
            printf 'createUser %s\n' "$user${create:+ $create}"
            printf 'rouser -s usm %s %s -V varnel *\n' "$user" "$level"
            ;;
    esac
}

community_access() {
    cat <<END
com2sec -Cn $context varnel default $community
group varnel $1 varnel
access varnel "" any noauth prefix varnel none none
END
}

# agent_lines MODEL
agent_lines() {
    echo "view varnel included $oid"
    access "$1"
    echo "proxy ${context:+-Cn $context }-v 2c -c $community udp:@CONTROLLER@:${SNMP_CONTROLLER_PORT:-$port} $oid"
}

# describe [OID MODEL...]: the agent's part of the configuration. Without a model the controller wants no agent:
# nobody may read anything.
describe() {
    if [ $# -eq 0 ]; then
        return 0
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
    agent_lines "$1"
}

case ${1:-} in
    -h | --help)
        usage
        exit
        ;;
esac
begin_step
[ $# -ge 4 ] || bad_usage "at least 4 values are needed, not $#"
controller=$1 port=$2 context=$3 community=$4
shift 4
# Before the first frame has been handled the panel may know no address; "apply" then takes the registered one.
[ -z "$controller" ] || is_host_address "$controller" || bad_usage "'$controller' is no address of a controller"
is_port "$port" || bad_usage "'$port' is no port"
[ -z "$context" ] || check_name "context" "$context"
agent=$(describe "$@")
replace_file 0600 "$SNMP_STAGE/port" "${SNMP_AGENT_PORT:-$port}"
replace_file 0600 "$SNMP_STAGE/controller" "$controller"
replace_file 0600 "$SNMP_STAGE/agent" "$agent"
end_step
