#!/bin/sh
# SPDX-License-Identifier: MIT
# Gives the panel's interface the address that the controller sends, through whatever manages the network here:
# systemd-networkd or ifupdown. When the new configuration cannot be brought up, the former one is put back.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/varnel-common.sh"

NETWORKD_DIR=/etc/systemd/network
INTERFACES=/etc/network/interfaces
RESOLV_CONF=/etc/resolv.conf

usage() {
    cat <<END
Usage: $SCRIPT_NAME dhcp
       $SCRIPT_NAME static ADDRESS NETMASK GATEWAY [NAME-SERVER [NAME-SERVER]]
END
}

# --- what is asked for: mode, address, prefix, netmask, gateway (empty: none), name_servers ---

# The controller sends 0.0.0.0 for what is not set.
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
    prefix=$(prefix_length "$netmask") || bad_usage "'$netmask' is no netmask"
    [ "$prefix" -ge 1 ] || bad_usage "'$netmask' covers every address"
    is_ipv4 "$gateway" || bad_usage "'$gateway' is no gateway"
    shift 3
    read_name_servers "$@"

    mask=$(ipv4_number "$netmask")
    own=$(ipv4_number "$address")
    if [ "$prefix" -le 30 ]; then
        host=$((own & ~mask & 0xffffffff))
        if [ "$host" -eq 0 ] || [ "$host" -eq $((~mask & 0xffffffff)) ]; then
            bad_usage "$address is not an address of a host in its subnet /$prefix"
        fi
    fi
    if is_set "$gateway"; then
        is_host_address "$gateway" || bad_usage "'$gateway' is no gateway"
        if [ $(($(ipv4_number "$gateway") & mask)) -ne $((own & mask)) ]; then
            bad_usage "the gateway $gateway is outside the subnet of $address/$prefix"
        fi
    else
        gateway=
    fi
}

# --- waiting for the outcome ---

has_address() {
    ip -4 -o address show dev "$NET_INTERFACE" scope global | grep -qF "inet $1"
}

# --- systemd-networkd ---

networkd_runs() {
    have networkctl && have busctl &&
        busctl --system call org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus \
            NameHasOwner s org.freedesktop.network1 2>/dev/null | grep -q true
}

networkd_file() {
    cat <<END
# $MADE_BY_MARK
[Match]
Name=$NET_INTERFACE

[Network]
END
    if [ "$mode" = dhcp ]; then
        echo "DHCP=ipv4"
        return
    fi
    echo "Address=$address/$prefix"
    if [ -n "$gateway" ]; then
        echo "Gateway=$gateway"
    fi
    for server in $name_servers; do
        echo "DNS=$server"
    done
}

networkd_reload() {
    timeout 4 networkctl reload >&2 && timeout 4 networkctl reconfigure "$NET_INTERFACE" >&2
}

# "10-" sorts before the files that a distribution or an installer brings: the first that matches counts.
networkd_apply() {
    file=$NETWORKD_DIR/10-varnel-$NET_INTERFACE.network
    former=$(cat -- "$file" 2>/dev/null) || former=
    content=$(networkd_file)
    replace_file 0644 "$file" "$content" || return 1
    if networkd_reload && networkd_took_effect; then
        return 0
    fi
    if [ -n "$former" ]; then
        replace_file 0644 "$file" "$former" || :
    else
        rm -f -- "$file"
    fi
    networkd_reload || say "systemd-networkd does not take the former configuration back"
    return 1
}

# A lease depends on a server that may be switched on later, an address on a cable that may be plugged in later;
# systemd-networkd sees to both by itself.
networkd_took_effect() {
    if [ "$mode" = dhcp ] || await "$NET_WAIT_SECONDS" has_address "$address/$prefix"; then
        return 0
    fi
    if [ "$(cat "/sys/class/net/$NET_INTERFACE/carrier" 2>/dev/null)" = 0 ]; then
        say "$NET_INTERFACE has no link yet, it gets $address with the cable"
        return 0
    fi
    return 1
}

networkd_name_servers() {
    if ! have resolvectl; then
        plain_name_servers
    fi
}

# --- ifupdown ---

ifupdown_stanza() {
    echo "# $MADE_BY_MARK"
    if [ "$mode" = dhcp ]; then
        echo "iface $NET_INTERFACE inet dhcp"
        return
    fi
    cat <<END
iface $NET_INTERFACE inet static
    address $address
    netmask $netmask
END
    if [ -n "$gateway" ]; then
        echo "    gateway $gateway"
    fi
    # The hooks of resolvconf and of systemd-resolved read this line.
    if [ -n "$name_servers" ]; then
        echo "    dns-nameservers $name_servers"
    fi
}

# The file without the interface's IPv4 stanza and without our mark. A stanza ends where the next one begins.
ifupdown_others() {
    awk -v interface="$NET_INTERFACE" -v mark="# $MADE_BY_MARK" '
        $0 == mark { next }
        $1 == "iface" { ours = ($2 == interface && $3 == "inet") }
        $1 ~ /^(auto|allow-.*|mapping|source|source-directory|no-auto-down|no-scripts|rename|template)$/ { ours = 0 }
        !ours { print }' "$INTERFACES"
}

ifupdown_file() {
    others=$(ifupdown_others)
    printf '%s\n' "$others"
    if ! printf '%s\n' "$others" | awk -v interface="$NET_INTERFACE" '
        $1 == "auto" || $1 ~ /^allow-/ { for (i = 2; i <= NF; i++) if ($i == interface) found = 1 }
        END { exit !found }'; then
        echo "auto $NET_INTERFACE"
    fi
    ifupdown_stanza
}

# A second stanza elsewhere would be merged with ours; its owner has to decide.
ifupdown_check_sources() {
    for file in "$INTERFACES".d/*; do
        if [ -f "$file" ] && awk -v interface="$NET_INTERFACE" '
            $1 == "iface" && $2 == interface && $3 == "inet" { found = 1 }
            END { exit !found }' "$file"; then
            say "$file configures $NET_INTERFACE already; remove it there first"
            return 1
        fi
    done
}

# DHCP clients wait a minute for a lease, longer than the panel waits for us; they go on in the background.
ifupdown_up() {
    if [ "$mode" = static ]; then
        timeout "$NET_WAIT_SECONDS" ifup --force "$NET_INTERFACE" >&2
        return
    fi
    setsid ifup --force "$NET_INTERFACE" </dev/null >/dev/null 2>&1 &
    await "$NET_WAIT_SECONDS" has_address "" || say "no lease for $NET_INTERFACE yet, still asking"
}

ifupdown_down() {
    timeout "$NET_WAIT_SECONDS" ifdown --force "$NET_INTERFACE" >&2 || :
    ip address flush dev "$NET_INTERFACE" scope global
}

ifupdown_apply() {
    [ -r "$INTERFACES" ] || fail "there is no $INTERFACES"
    ifupdown_check_sources || return 1
    keep_original "$INTERFACES"
    former=$(cat -- "$INTERFACES")
    content=$(ifupdown_file)
    ifupdown_down
    replace_file 0644 "$INTERFACES" "$content" || return 1
    if ifupdown_up; then
        return 0
    fi
    ifupdown_down
    replace_file 0644 "$INTERFACES" "$former"
    timeout "$NET_WAIT_SECONDS" ifup --force "$NET_INTERFACE" >&2 || :
    return 1
}

ifupdown_name_servers() {
    for hook in /etc/network/if-up.d/*resolvconf; do
        if [ -x "$hook" ]; then
            return
        fi
    done
    if ! have resolvectl; then
        plain_name_servers
    fi
}

# --- name servers where the network manager passes them to nobody ---

plain_name_servers() {
    record=$NET_INTERFACE.varnel
    lines=
    for server in $name_servers; do
        lines="${lines}nameserver $server
"
    done
    if have resolvconf; then
        if [ -n "$lines" ]; then
            printf '%s' "$lines" | resolvconf -a "$record"
        else
            resolvconf -f -d "$record"
        fi
    elif [ -z "$lines" ]; then
        return 0
    elif [ -L "$RESOLV_CONF" ]; then
        say "$RESOLV_CONF is a link and managed by another program; the name servers are not set"
    else
        keep_original "$RESOLV_CONF"
        replace_file 0644 "$RESOLV_CONF" "# $MADE_BY_MARK
${lines%?}"
    fi
}

# --- the two verbs ---

backend() {
    case $NET_BACKEND in
        networkd | ifupdown)
            echo "$NET_BACKEND"
            ;;
        auto)
            if networkd_runs; then
                echo networkd
            elif have ifup; then
                echo ifupdown
            else
                fail "neither systemd-networkd nor ifupdown manages this panel's network"
            fi
            ;;
        *)
            fail "NET_BACKEND is auto, networkd or ifupdown, not '$NET_BACKEND'"
            ;;
    esac
}

apply() {
    is_name "$NET_INTERFACE" || fail "NET_INTERFACE: '$NET_INTERFACE' is no name of an interface"
    [ -e "/sys/class/net/$NET_INTERFACE" ] || fail "there is no interface $NET_INTERFACE"
    manager=$(backend)
    "${manager}_apply" || fail "cannot bring up $NET_INTERFACE, the former configuration is back"
    "${manager}_name_servers" || fail "the name servers are not set"
}

mode=${1:-}
case $mode in
    -h | --help)
        usage
        exit
        ;;
    dhcp)
        [ $# -eq 1 ] || bad_usage "dhcp takes no values"
        read_name_servers
        ;;
    static)
        shift
        read_static "$@"
        ;;
    *)
        bad_usage "unknown verb '$mode'"
        ;;
esac
apply
