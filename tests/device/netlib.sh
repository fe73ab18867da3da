# SPDX-License-Identifier: MIT
# shellcheck shell=sh disable=SC2034
# The two tests of netcfg.sh share this: the network behind the panel with a DHCP server, and what is the same whatever
# manages the network. Needs testlib.sh.

prepare_network() {
    add_links 192.168.7.1
    ip address flush dev eth0
    ip link set eth0 down
    touch "$WORK/leases"
    cat >"$WORK/udhcpd.conf" <<END
start 192.168.7.100
end 192.168.7.110
interface far0
lease_file $WORK/leases
pidfile $WORK/udhcpd.pid
option subnet 255.255.255.0
option router 192.168.7.1
option dns 192.168.7.1
END
}

start_dhcp_server() {
    far udhcpd -f "$WORK/udhcpd.conf" >"$WORK/udhcpd.log" 2>&1 &
}

addresses() {
    ip -4 -o address show dev eth0 scope global | awk '{ print $4 }'
}

has_address() {
    [ "$(addresses)" = "$1" ]
}

has_lease() {
    addresses | grep -q '^192\.168\.7\.1[01][0-9]/24$'
}

gateway() {
    ip -4 route show default dev eth0 | awk '{ print $3; exit }'
}

has_gateway() {
    [ "$(gateway)" = "$1" ]
}

name_servers() {
    sed -n 's/^nameserver //p' /etc/resolv.conf | tr '\n' ' '
}

# check_static FILE FILE-TEXT: two configurations, one after the other; then bad arguments change neither FILE nor the
# interface. FILE-TEXT is what the first one leaves in FILE.
check_static() {
    applied network "static" netcfg.sh static 192.168.7.2 255.255.255.0 192.168.7.1 192.168.7.1 10.1.1.1
    check "static: the interface has the address, and only this" eventually has_address 192.168.7.2/24
    check "static: the default route" eventually has_gateway 192.168.7.1
    check "static: the network answers" far sh -c "ping -c 1 -W 2 -q 192.168.7.2 >/dev/null"
    check_equal "static: name servers through resolvconf" "192.168.7.1 10.1.1.1 " "$(name_servers)"
    check_equal "static: the file" "$2" "$(cat "$1")"

    applied network "static, another address" netcfg.sh static 192.168.7.3 255.255.255.128 0.0.0.0 0.0.0.0
    check "another address: the former one is gone" eventually has_address 192.168.7.3/25
    check "gateway 0.0.0.0: no default route" has_gateway ""
    check_equal "name server 0.0.0.0: none" "" "$(name_servers)"

    before="$(sums "$1") $(addresses)"
    wrong_usage netcfg.sh "" "manual" "dhcp 192.168.7.2" "static" "static 192.168.7.2 255.255.255.0" \
        "static 192.168.7.2 255.255.255.0 192.168.7.1 1.1.1.1 8.8.8.8 9.9.9.9" \
        "static 192.168.7.256 255.255.255.0 192.168.7.1" "static 127.0.0.5 255.0.0.0 127.0.0.1" \
        "static 192.168.7.2 255.0.255.0 192.168.7.1" "static 192.168.7.2 0.0.0.0 192.168.7.1" \
        "static 192.168.7.2 24 192.168.7.1" "static 192.168.7.0 255.255.255.0 192.168.7.1" \
        "static 192.168.7.255 255.255.255.0 192.168.7.1" "static 192.168.7.2 255.255.255.0 192.168.8.1" \
        "static 192.168.7.2 255.255.255.0 gateway" "static 192.168.7.2 255.255.255.0 192.168.7.1 dns" \
        "static 192.168.7.2 255.255.255.0 192.168.7.1 127.0.0.1"
    run 2 "a newline in an address: refused" netcfg.sh static "192.168.7.2
up id" 255.255.255.0 192.168.7.1
    echo "NET_INTERFACE=eth7" >>/usr/local/etc/varnel-device.conf
    says 1 "there is no interface eth7" netcfg.sh dhcp
    echo "NET_INTERFACE='../x'" >>/usr/local/etc/varnel-device.conf
    run 1 "a name that is none: refused" netcfg.sh dhcp
    echo "NET_INTERFACE=eth0" >>/usr/local/etc/varnel-device.conf
    check_equal "refusals: nothing changed" "$before" "$(sums "$1") $(addresses)"
}

# check_dhcp: a server that comes late, and a fixed address again
check_dhcp() {
    applied network "dhcp without a server: goes on asking" netcfg.sh dhcp
    check "dhcp without a server: the status says so" grep -q "no lease yet" "$WORK/status"
    check "dhcp without a server: no address" has_address ""
    start_dhcp_server
    check "the server comes: the interface gets a lease" eventually has_lease
    applied network "static after dhcp" netcfg.sh static 192.168.7.4 255.255.255.0 192.168.7.1
    check "static after dhcp: only the address" eventually has_address 192.168.7.4/24
}
