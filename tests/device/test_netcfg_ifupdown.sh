#!/bin/sh
# SPDX-License-Identifier: MIT
# netcfg.sh on a panel whose network ifupdown manages: after it, the interface has the address.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/testlib.sh"
. "$(dirname -- "$(readlink -f -- "$0")")/netlib.sh"
enter_namespace "$@"
prepare_network

INTERFACES=/etc/network/interfaces
cat >"$INTERFACES" <<'END'
# The integrator's own words stay.
auto lo
iface lo inet loopback

allow-hotplug eth0
iface eth0 inet dhcp
    hostname panel

iface eth0 inet6 manual
    up :

source /etc/network/interfaces.d/*
END
rm -f /etc/network/interfaces.d/*

run 0 "static: configured" netcfg.sh static 192.168.7.2 255.255.255.0 192.168.7.1 192.168.7.1 10.1.1.1
settled network "static: in effect"
check "static: the interface has the address" has_address 192.168.7.2/24
check "static: the default route" has_gateway 192.168.7.1
check "static: the network answers" far sh -c "ping -c 1 -W 2 -q 192.168.7.2 >/dev/null"
check_equal "static: name servers through resolvconf" "192.168.7.1 10.1.1.1 " "$(name_servers)"
check_equal "the file: our stanza in the place of the former one" "# The integrator's own words stay.
auto lo
iface lo inet loopback

allow-hotplug eth0
iface eth0 inet6 manual
    up :

source /etc/network/interfaces.d/*
# Written by the panel's device scripts; changes are lost.
iface eth0 inet static
    address 192.168.7.2
    netmask 255.255.255.0
    gateway 192.168.7.1
    dns-nameservers 192.168.7.1 10.1.1.1" "$(cat "$INTERFACES")"
check "the distribution's own file is kept" grep -q "hostname panel" "$INTERFACES.before-varnel"

run 0 "static, another address: configured" netcfg.sh static 192.168.7.3 255.255.255.128 0.0.0.0 0.0.0.0
settled network "static, another address: in effect"
check "another address: the former one is gone" has_address 192.168.7.3/25
check "gateway 0.0.0.0: no default route" has_gateway ""
check_equal "name server 0.0.0.0: none" "" "$(name_servers)"
check_equal "the file: one stanza of ours" "1" "$(grep -c "iface eth0 inet " "$INTERFACES")"
check_refusals "$INTERFACES"

# A hook of the integrator that does not let an address pass makes ifup fail.
cat >/etc/network/if-pre-up.d/00-guard <<'END'
#!/bin/sh
[ "${IF_ADDRESS:-}" != 192.168.7.66 ]
END
chmod 0755 /etc/network/if-pre-up.d/00-guard
before=$(sums "$INTERFACES")
run 0 "an address that cannot be brought up: written down" netcfg.sh static 192.168.7.66 255.255.255.0 192.168.7.1
unsettled network "ifupdown cannot bring up eth0"
check_equal "failed: the former file is back" "$before" "$(sums "$INTERFACES")"
check "failed: the former address is back" eventually has_address 192.168.7.3/25

echo "iface eth0 inet dhcp" >/etc/network/interfaces.d/eth0
run 0 "configured elsewhere as well: written down" netcfg.sh dhcp
unsettled network "interfaces.d/eth0 configures eth0 already"
check "configured elsewhere as well: the address stays" has_address 192.168.7.3/25
rm /etc/network/interfaces.d/eth0

run 0 "dhcp without a server: goes on asking" netcfg.sh dhcp
settled network "dhcp without a server: in effect"
check "dhcp without a server: the status says so" grep -q "no lease yet" "$WORK/status"
check "dhcp without a server: no address" has_address ""
start_dhcp_server
check "the server comes: the interface gets a lease" eventually has_lease
run 0 "static after dhcp: configured" netcfg.sh static 192.168.7.4 255.255.255.0 192.168.7.1
settled network "static after dhcp: in effect"
check "static after dhcp: only the address" has_address 192.168.7.4/24
run 0 "dhcp with a server: configured" netcfg.sh dhcp
settled network "dhcp with a server: in effect"
check "dhcp with a server: a lease" eventually has_lease

# Neither resolvconf nor systemd-resolved: the file itself.
rm -f /etc/network/if-up.d/*resolvconf /etc/network/if-down.d/*resolvconf
mount --bind /dev/null "$(command -v resolvconf)"
rm -f /etc/resolv.conf
run 0 "static without resolvconf: configured" netcfg.sh static 192.168.7.5 255.255.255.0 192.168.7.1 10.1.1.2
settled network "static without resolvconf: in effect"
check_equal "without resolvconf: the name server is written" "10.1.1.2 " "$(name_servers)"
ln -sf /run/elsewhere /etc/resolv.conf
run 0 "a managed resolv.conf: left alone" netcfg.sh static 192.168.7.5 255.255.255.0 192.168.7.1 10.1.1.3
settled network "a managed resolv.conf: in effect"
said "managed by another program"
check_equal "a managed resolv.conf: still a link" "/run/elsewhere" "$(readlink /etc/resolv.conf)"
finish
