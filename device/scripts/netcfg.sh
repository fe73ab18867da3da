#!/bin/sh
# SPDX-License-Identifier: MIT
# Writes down the address that the controller sends for the panel's interface; varnel-config applies it. An address
# that would cut the panel off is refused.
set -eu
SCRIPT_DIR=${0%/*}
[ -r "$SCRIPT_DIR/varnel-common.sh" ] || SCRIPT_DIR=$(dirname -- "$(readlink -f -- "$0")")
. "$SCRIPT_DIR/varnel-common.sh"

usage() {
    cat <<END
Usage: $SCRIPT_NAME dhcp
       $SCRIPT_NAME static ADDRESS NETMASK GATEWAY [NAME-SERVER [NAME-SERVER]]
END
}

# --- the request: mode, address, prefix, netmask, gateway (empty: none), name_servers ---

# The controller sends 0.0.0.0 for a value that is not set.
is_set() {
    [ "$1" != 0.0.0.0 ]
}

read_name_servers() {
    name_servers=
    for server in "$@"; do
        is_ipv4 "$server" || bad_usage "'$server' is no address of a name server"
        if is_set "$server"; then
            is_host_address "$server" || bad_usage "'$server' is no address of a name server"
            name_servers="${name_servers:+$name_servers }$server"
        fi
    done
}

# An address that the subnet reserves, or a gateway outside it, would cut the panel off.
read_static() {
    if [ $# -lt 3 ] || [ $# -gt 5 ]; then
        bad_usage "static takes 3 to 5 values, not $#"
    fi
    address=$1 netmask=$2 gateway=$3
    is_host_address "$address" || bad_usage "'$address' is no address of a panel"
    prefix_length "$netmask" || bad_usage "'$netmask' is no netmask"
    [ "$prefix" -ge 1 ] || bad_usage "'$netmask' covers every address"
    is_ipv4 "$gateway" || bad_usage "'$gateway' is no gateway"
    shift 3
    read_name_servers "$@"

    ipv4_number "$netmask"
    mask=$number
    ipv4_number "$address"
    own=$number
    if [ "$prefix" -le 30 ]; then
        host=$((own & ~mask & 0xffffffff))
        if [ "$host" -eq 0 ] || [ "$host" -eq $((~mask & 0xffffffff)) ]; then
            bad_usage "$address is not an address of a host in its subnet /$prefix"
        fi
    fi
    if is_set "$gateway"; then
        is_host_address "$gateway" || bad_usage "'$gateway' is no gateway"
        ipv4_number "$gateway"
        if [ $((number & mask)) -ne $((own & mask)) ]; then
            bad_usage "the gateway $gateway is outside the subnet of $address/$prefix"
        fi
    else
        gateway=
    fi
}

# --- writing it down ---

check_interface() {
    is_name "$NET_INTERFACE" || fail "NET_INTERFACE: '$NET_INTERFACE' is no name of an interface"
    case $NET_BACKEND in
        auto | networkd | ifupdown) ;;
        *) fail "NET_BACKEND is auto, networkd or ifupdown, not '$NET_BACKEND'" ;;
    esac
    [ -e "/sys/class/net/$NET_INTERFACE" ] || fail "there is no interface $NET_INTERFACE"
}

case ${1:-} in
    -h | --help)
        usage
        exit
        ;;
    dhcp)
        [ $# -eq 1 ] || bad_usage "dhcp takes no values"
        check_interface
        write_wish network "mode dhcp"
        ;;
    static)
        shift
        read_static "$@"
        check_interface
        write_wish network "mode static
address $address
netmask $netmask
prefix $prefix
gateway $gateway
servers $name_servers"
        ;;
    *)
        bad_usage "unknown verb '${1:-}'"
        ;;
esac
