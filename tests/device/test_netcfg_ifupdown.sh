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

check_static "$INTERFACES" "# The integrator's own words stay.
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
    dns-nameservers 192.168.7.1 10.1.1.1"
check "the distribution's own file is kept" grep -q "hostname panel" "$INTERFACES.before-varnel"
check_equal "the file: one stanza of ours" "1" "$(grep -c "iface eth0 inet " "$INTERFACES")"

# A hook of the integrator that does not let an address pass makes ifup fail.
cat >/etc/network/if-pre-up.d/00-guard <<'END'
#!/bin/sh
[ "${IF_ADDRESS:-}" != 192.168.7.66 ]
END
chmod 0755 /etc/network/if-pre-up.d/00-guard
before=$(sums "$INTERFACES")
postponed network "ifupdown cannot bring up eth0" netcfg.sh static 192.168.7.66 255.255.255.0 192.168.7.1
check_equal "failed: the former file is back" "$before" "$(sums "$INTERFACES")"
check "failed: the former address is back" eventually has_address 192.168.7.3/25

echo "iface eth0 inet dhcp" >/etc/network/interfaces.d/eth0
postponed network "interfaces.d/eth0 configures eth0 already" netcfg.sh dhcp
check "configured elsewhere as well: the address stays" has_address 192.168.7.3/25
rm /etc/network/interfaces.d/eth0

check_dhcp
applied network "dhcp with a server" netcfg.sh dhcp
check "dhcp with a server: a lease" eventually has_lease

# Neither resolvconf nor systemd-resolved: the file itself.
rm -f /etc/network/if-up.d/*resolvconf /etc/network/if-down.d/*resolvconf
mount --bind /dev/null "$(command -v resolvconf)"
rm -f /etc/resolv.conf
applied network "static without resolvconf" netcfg.sh static 192.168.7.5 255.255.255.0 192.168.7.1 10.1.1.2
check_equal "without resolvconf: the name server is written" "10.1.1.2 " "$(name_servers)"
ln -sf /run/elsewhere /etc/resolv.conf
applied network "a managed resolv.conf: left alone" netcfg.sh static 192.168.7.5 255.255.255.0 192.168.7.1 10.1.1.3
said "managed by another program"
check_equal "a managed resolv.conf: still a link" "/run/elsewhere" "$(readlink /etc/resolv.conf)"
finish
