#!/bin/sh
# SPDX-License-Identifier: MIT
# netcfg.sh on a panel whose network systemd-networkd manages: after it, the interface has the address.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/testlib.sh"
. "$(dirname -- "$(readlink -f -- "$0")")/netlib.sh"
enter_namespace "$@"
prepare_network

FILE=/etc/systemd/network/10-varnel-eth0.network
mkdir -p /run/dbus /run/systemd/netif/links /run/systemd/netif/leases /run/systemd/netif/lldp
chown -R systemd-network: /run/systemd/netif
dbus-daemon --system --fork

start_networkd() {
    /lib/systemd/systemd-networkd 2>"$WORK/networkd.log" &
    networkd=$!
    eventually networkd_answers
}

networkd_answers() {
    busctl --system call org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus \
        NameHasOwner s org.freedesktop.network1 | grep -q true
}

# A distribution's file for every wired interface must not override ours.
cat >/etc/systemd/network/80-wired.network <<'END'
[Match]
Name=e*
[Network]
Address=10.99.99.99/24
END
start_networkd
check "before: the distribution's address" eventually has_address 10.99.99.99/24

check_static "$FILE" "# Written by the panel's device scripts; changes are lost.
[Match]
Name=eth0

[Network]
Address=192.168.7.2/24
Gateway=192.168.7.1
DNS=192.168.7.1
DNS=10.1.1.1"
check_dhcp

far ip link set far0 down
echo "NET_WAIT_SECONDS=1" >>/usr/local/etc/varnel-device.conf
applied network "no cable" netcfg.sh static 192.168.7.5 255.255.255.0 192.168.7.1
check "no cable: the status says so" grep -q "in effect  yes.*eth0 has no link yet" "$WORK/status"
far ip link set far0 up
check "the cable comes: the interface has the address" eventually has_address 192.168.7.5/24

before=$(sums "$FILE")
kill "$networkd"
wait "$networkd" || :
echo "NET_BACKEND=networkd" >>/usr/local/etc/varnel-device.conf
postponed network "networkd cannot bring up eth0" netcfg.sh static 192.168.7.6 255.255.255.0 192.168.7.1
check "the status tells what is in effect meanwhile" grep -q "meanwhile  eth0 192.168.7.5/24" "$WORK/status"
check_equal "not brought up: the former file is back" "$before" "$(sums "$FILE")"
start_networkd
settled network "systemd-networkd is back: in effect without being asked again"
check "systemd-networkd is back: the address" eventually has_address 192.168.7.6/24

# After a power cut the file is there and the address is not yet: nothing is restarted, only awaited.
ip address flush dev eth0
ip link set eth0 down
before=$(stat -c %i "$FILE")
"$SCRIPTS/varnel-config" apply network 2>"$WORK/err" &
applier=$!
ip link set eth0 up
networkctl reconfigure eth0
wait "$applier"
settled network "after a restart: in effect"
check_equal "after a restart: the file was not written again" "$before" "$(stat -c %i "$FILE")"

kill "$networkd"
wait "$networkd" || :
rm -r "$FILE" /run/keep
postponed network "networkd cannot bring up eth0" netcfg.sh dhcp
check_not "failed without a former file: none is left" test -e "$FILE"
echo "NET_BACKEND=other" >>/usr/local/etc/varnel-device.conf
says 1 "NET_BACKEND is auto, networkd or ifupdown" netcfg.sh dhcp
finish
