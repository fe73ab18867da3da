#!/bin/sh
# SPDX-License-Identifier: MIT
# From one end to the other: frames of a simulated controller, through the panel and its scripts, to what a manager, a
# trap receiver and a Modbus client on the network see. Usage: test_endtoend.sh PROGRAM-DIRECTORY
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/testlib.sh"
enter_namespace "$@"
PROGRAMS=$(readlink -f -- "$1")

# The controller is 192.168.7.20, the manager and Modbus client 192.168.7.50; the panel starts as 192.168.7.2 and is
# told to be 192.168.7.9.
CONTROLLER=192.168.7.20
MANAGER=192.168.7.50
PANEL=192.168.7.9
OID=.1.3.6.1.4.1.53864.3
add_links "$CONTROLLER" "$MANAGER"

# --- the panel's system ---

# The scripts and, among them, the program that has a script's name.
mkdir "$WORK/scripts"
cp "$SCRIPTS"/* "$PROGRAMS/mbserverupdate.sh" "$WORK/scripts"

cat >/etc/network/interfaces <<'END'
auto eth0
iface eth0 inet static
    address 192.168.7.2/24
END
rm -f /etc/network/interfaces.d/*
cat >/usr/local/etc/varnel-browser.ini <<END
[Files]
ScriptDir=$WORK/scripts
TmpCfgDir=/run/etc
[Network]
UdpBindAddress=0.0.0.0
UdpTimeout=3
[ModbusServer]
ModbusMap=$ROOT_DIR/device/modbus.map
[WebSite]
Login=admin
Password=admin
END
mkdir -p /run/dbus
cp "$ROOT_DIR/device/dbus/org.varnel.ModbusServer1.conf" /etc/dbus-1/system.d/
dbus-daemon --system --fork 2>/dev/null
"$PROGRAMS/varnel-modbus-server" >"$WORK/server.log" 2>&1 &

# --- the controller's SNMP agent, the manager's trap receiver ---

stand_in_controller "$CONTROLLER" r7mcomm
stand_in_manager <<END
snmpTrapdAddr udp:$MANAGER:162
authCommunity log traps
END

# --- controller and panel ---

mkfifo "$WORK/actions"
far "$PROGRAMS/r7m-simulator" --http "$CONTROLLER:80" --target 192.168.7.255:9876 --broadcast --interval 200 --page plain \
    --map "$ROOT_DIR/device/modbus.map" --stdin --log \
    --set core.101=4711 \
    --set "netcfg.ip=$PANEL" --set netcfg.gateway="$CONTROLLER" --set netcfg.dns1=10.1.1.1 \
    --set snmpcfg.version=5 --set "snmpcfg.priv_oid=$OID" --set snmpcfg.r7m_context= \
    --set snmpcfg.r7m_community=r7mcomm --set "snmpcfg.trap_addr1=$MANAGER" \
    --set modbuscfg.tcp_port=1502 <"$WORK/actions" >"$WORK/simulator.log" 2>&1 &
exec 6>"$WORK/actions"
eventually grep -q '^listening' "$WORK/simulator.log"

HOME=$WORK QT_QPA_PLATFORM=offscreen QT_LOGGING_RULES=varnel.script.debug=true "$PROGRAMS/varnel-browser" \
    2>"$WORK/panel.log" &

reads_value() {
    [ "$(far snmpget -r 0 -t 2 -O qv -v 3 -u admin -l authPriv -a SHA -A admin-pass -x AES -X admin-key "$PANEL" "$OID.1.0" \
        2>/dev/null)" = "\"value of $CONTROLLER\"" ]
}

# modbus_reads PORT VALUE: from register 101
modbus_reads() {
    far timeout 5 mbpoll -m tcp -p "$1" -0 -r 101 -t 4 -1 -o 1 "$PANEL" 2>/dev/null | grep -q "^\[101\]:[[:space:]]*$2"
}

panel_has_address() {
    ip -4 -o address show dev eth0 | grep -qF "inet $PANEL/24"
}

check "NetCfg: the panel has the address" eventually panel_has_address
check "NetCfg: the name server is set" eventually grep -qx "nameserver 10.1.1.1" /etc/resolv.conf
check "registration: the controller's address" eventually grep -qsx "ADDRESS=$CONTROLLER" /run/varnel/controller
check "registration: its software build" grep -qx "BUILD=512" /run/varnel/controller
check "SnmpCfg: a manager reads the controller's value with V3PRIV" eventually reads_value
check "SnmpCfg: the agent's start trap reaches the manager" eventually grep -q "3.6.1.6.3.1.1.5.1" "$WORK/traps"
far snmptrap -v 2c -c traps "$PANEL:162" 5 "$OID.0.1" "$OID.2.0" s "trap of the controller"
check "SnmpCfg: a trap of the controller reaches the manager" eventually grep -q "trap of the controller" "$WORK/traps"
check "ModbusCfg and Core: a client reads the register" eventually modbus_reads 1502 4711
check_not "ModbusCfg: no other port is open" modbus_reads 502 4711

echo "set core.101=1234 modbuscfg.tcp_status=off" >&6
check "ModbusCfg off: the port closes" eventually not modbus_reads 1502 '[0-9]'
echo "set modbuscfg.tcp_status=on modbuscfg.tcp_port=502" >&6
check "ModbusCfg on another port: a client reads the new value" eventually modbus_reads 502 1234

echo "silence" >&6
check "silence: the controller is unregistered" eventually not test -e /run/varnel/controller
check "silence: the agent still answers managers" reads_value

[ "$failures" -eq 0 ] || tail -n 60 "$WORK/panel.log"
finish
