# SPDX-License-Identifier: MIT
# shellcheck shell=sh disable=SC2034
# The two tests of netcfg.sh share this: the network behind the panel with a DHCP server, and the refusals, which are
# the same whatever manages the network. Needs testlib.sh.

prepare_network() {
    add_links
    far ip address add 192.168.7.1/24 dev far0
    rm -f "$WORK/leases"
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

# check_refusals FILE: bad arguments change neither the file nor the interface.
check_refusals() {
    before="$(sums "$1") $(addresses)"
    for bad in "" "manual" "dhcp 192.168.7.2" "static" "static 192.168.7.2 255.255.255.0" \
        "static 192.168.7.2 255.255.255.0 192.168.7.1 1.1.1.1 8.8.8.8 9.9.9.9" \
        "static 192.168.7.256 255.255.255.0 192.168.7.1" "static 192.168.7 255.255.255.0 192.168.7.1" \
        "static 127.0.0.5 255.0.0.0 127.0.0.1" "static 0.0.0.0 255.255.255.0 192.168.7.1" \
        "static 239.1.1.1 255.255.255.0 239.1.1.2" "static 192.168.7.2 255.0.255.0 192.168.7.1" \
        "static 192.168.7.2 0.0.0.0 192.168.7.1" "static 192.168.7.2 24 192.168.7.1" \
        "static 192.168.7.0 255.255.255.0 192.168.7.1" "static 192.168.7.255 255.255.255.0 192.168.7.1" \
        "static 192.168.7.2 255.255.255.0 192.168.8.1" "static 192.168.7.2 255.255.255.0 gateway" \
        "static 192.168.7.2 255.255.255.0 192.168.7.1 dns" "static 192.168.7.2 255.255.255.0 192.168.7.1 1.1.1.1 x"; do
        # shellcheck disable=SC2086
        run 2 "netcfg.sh $bad: refused" netcfg.sh $bad
    done
    run 2 "a newline in an address: refused" netcfg.sh static "192.168.7.2
up id" 255.255.255.0 192.168.7.1
    echo "NET_INTERFACE=eth7" >>/usr/local/etc/varnel-device.conf
    run 1 "an interface that is not there: refused" netcfg.sh dhcp
    said "there is no interface eth7"
    echo "NET_INTERFACE='../x'" >>/usr/local/etc/varnel-device.conf
    run 1 "a name that is none: refused" netcfg.sh dhcp
    echo "NET_INTERFACE=eth0" >>/usr/local/etc/varnel-device.conf
    check_equal "refusals: nothing changed" "$before" "$(sums "$1") $(addresses)"
}
