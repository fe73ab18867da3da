# SPDX-License-Identifier: MIT
# shellcheck shell=sh disable=SC2034,SC2154
# The part of varnel-config that is about the panel's address: it uses the system's network manager,
# systemd-networkd or ifupdown. netcfg.sh writes the description. Needs varnel-apply.sh.

NETWORKD_FILE=/etc/systemd/network/10-varnel-$NET_INTERFACE.network
INTERFACES=/etc/network/interfaces
RESOLV_CONF=/etc/resolv.conf

# network_read FILE: sets mode, address, netmask, prefix, gateway (empty: none) and name_servers.
network_read() {
    mode='' address='' netmask='' prefix='' gateway='' name_servers=''
    while IFS= read -r line; do
        value=${line#* }
        case ${line%% *} in
            mode) mode=$value ;;
            address) address=$value ;;
            netmask) netmask=$value ;;
            prefix) prefix=$value ;;
            gateway) gateway=$value ;;
            servers) name_servers=$value ;;
        esac
    done <"$1"
}

network_summary() {
    network_read "$1"
    if [ "$mode" = dhcp ]; then
        echo "$NET_INTERFACE by DHCP"
    else
        echo "$NET_INTERFACE $address/$prefix${gateway:+, gateway $gateway}${name_servers:+, name servers $name_servers}"
    fi
}

# --- the outcome ---

has_address() {
    ip -4 -o address show dev "$NET_INTERFACE" scope global | grep -qF "inet $1"
}

has_link() {
    [ "$(cat "/sys/class/net/$NET_INTERFACE/carrier" 2>/dev/null)" != 0 ]
}

# A lease depends on a server that may be switched on later, an address on a cable that may be plugged in later; the
# network manager handles both by itself.
address_decided() {
    if [ "$mode" = dhcp ]; then
        return 0
    fi
    has_address "$address/$prefix" || ! has_link
}

# network_note: sets note to what the configuration in effect still waits for.
network_note() {
    if ! has_link; then
        note="$NET_INTERFACE has no link yet"
    elif [ "$mode" = dhcp ] && ! has_address ""; then
        note="no lease yet"
    fi
}

# --- systemd-networkd ---

networkd_runs() {
    have networkctl && have busctl &&
        busctl --system call org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus \
            NameHasOwner s org.freedesktop.network1 2>/dev/null | grep -q true
}

networkd_text() {
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

# "10-" sorts before the files that a distribution or an installer brings: the first that matches counts.
networkd_file() {
    echo "$NETWORKD_FILE"
}

networkd_check() {
    :
}

networkd_activate() {
    networkctl reload >&2 && networkctl reconfigure "$NET_INTERFACE" >&2
}

networkd_down() {
    :
}

networkd_restore() {
    networkd_activate || say "systemd-networkd does not take the former configuration back"
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

ifupdown_text() {
    others=$(ifupdown_others)
    printf '%s\n' "$others"
    if ! printf '%s\n' "$others" | awk -v interface="$NET_INTERFACE" '
        $1 == "auto" || $1 ~ /^allow-/ { for (i = 2; i <= NF; i++) if ($i == interface) found = 1 }
        END { exit !found }'; then
        echo "auto $NET_INTERFACE"
    fi
    ifupdown_stanza
}

ifupdown_file() {
    echo "$INTERFACES"
}

# A second stanza elsewhere would be merged with ours; its owner has to decide.
ifupdown_check() {
    if [ ! -r "$INTERFACES" ]; then
        why="there is no $INTERFACES"
        return 1
    fi
    for file in "$INTERFACES".d/*; do
        if [ -f "$file" ] && awk -v interface="$NET_INTERFACE" '
            $1 == "iface" && $2 == interface && $3 == "inet" { found = 1 }
            END { exit !found }' "$file"; then
            why="$file configures $NET_INTERFACE already; remove it there first"
            return 1
        fi
    done
}

# Before the file changes: ifdown reads there how to end the present configuration.
ifupdown_down() {
    timeout "$NET_WAIT_SECONDS" ifdown --force "$NET_INTERFACE" >&2 8>&- 9>&- || :
    ip address flush dev "$NET_INTERFACE" scope global
}

# DHCP clients wait a minute for a lease; they go on in the background.
ifupdown_activate() {
    if [ "$mode" = static ]; then
        timeout "$NET_WAIT_SECONDS" ifup --force "$NET_INTERFACE" >&2 8>&- 9>&-
    else
        setsid --fork ifup --force "$NET_INTERFACE" </dev/null >/dev/null 2>&1 8>&- 9>&-
    fi
}

ifupdown_restore() {
    setsid --fork ifup --force "$NET_INTERFACE" </dev/null >/dev/null 2>&1 8>&- 9>&-
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

# --- name servers, if the network manager does not pass them on ---

plain_name_servers() {
    record=$NET_INTERFACE.varnel
    lines=
    for server in $name_servers; do
        lines="${lines}nameserver $server$NEWLINE"
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
        replace_file 0644 "$RESOLV_CONF" "# $MADE_BY_MARK$NEWLINE${lines%?}"
    fi
}

# --- applying ---

# network_manager: sets manager.
network_manager() {
    case $NET_BACKEND in
        networkd | ifupdown) manager=$NET_BACKEND ;;
        *)
            if networkd_runs; then
                manager=networkd
            elif have ifup; then
                manager=ifupdown
            else
                why="neither systemd-networkd nor ifupdown manages this panel's network"
                return 1
            fi
            ;;
    esac
}

# network_holds FILE
network_holds() {
    network_read "$1"
    network_manager || return 1
    if ! holds_text "$("${manager}_file")" "$("${manager}_text")"; then
        why="$("${manager}_file") does not have it"
        return 1
    fi
    if ! address_decided; then
        why="$NET_INTERFACE does not have the address"
        return 1
    fi
    network_note
}

# network_apply FILE. SNMP is checked afterwards: a trap destination may now be the panel itself.
network_apply() {
    network_read "$1"
    if [ ! -e "/sys/class/net/$NET_INTERFACE" ]; then
        why="there is no interface $NET_INTERFACE"
        return 1
    fi
    network_manager || return 1
    "${manager}_check" || return 1
    file=$("${manager}_file")
    text=$("${manager}_text")
    if holds_text "$file" "$text" && await $((NET_WAIT_SECONDS * 10)) address_decided; then
        drop_former
        network_note
        return 0
    fi
    can_write "${file%/*}" || return 1
    changed=yes
    save_former "$file"
    "${manager}_down"
    if replace_file 0644 "$file" "$text" && "${manager}_activate" &&
        await $((NET_WAIT_SECONDS * 10)) address_decided; then
        drop_former
        "${manager}_name_servers" || note="the name servers are not set"
        network_note
        start_applier snmp
        return 0
    fi
    why="$manager cannot bring up $NET_INTERFACE"
    "${manager}_down"
    restore_former "$file"
    "${manager}_restore"
    return 1
}
