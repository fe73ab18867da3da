#!/bin/sh
# SPDX-License-Identifier: MIT
# modbuscfg.sh: a real client reaches a listening server through real nftables, or does not.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/testlib.sh"
enter_namespace "$@"
add_links 192.168.7.1

# The client's connection; with "stay", it sends octets until the connection breaks.
cat >"$WORK/client" <<'END'
import socket, sys, time
try:
    connection = socket.create_connection((sys.argv[1], int(sys.argv[2])), 3)
    if sys.argv[3:] == ["stay"]:
        print("connected", flush=True)
        while True:
            connection.sendall(b"x")
            time.sleep(0.1)
except OSError:
    sys.exit(1)
END

reaches() {
    far python3 "$WORK/client" 192.168.7.2 "$1"
}

hold tcp 502
nft add table ip other
nft add chain ip other input '{ type filter hook input priority 10; }'
nft add rule ip other input tcp dport 9999 drop
other=$(nft list table ip other)

check "before: a client gets through" reaches 502
applied modbus "0 502" modbuscfg.sh 0 502
check_not "closed: a client is refused" reaches 502
check "closed: the panel itself gets through" python3 "$WORK/client" 127.0.0.1 502
applied modbus "0 0: closed without a port" modbuscfg.sh 0 0
applied modbus "1 502" modbuscfg.sh 1 502
check "open: a client gets through" reaches 502

applied modbus "1 1502: open under the controller's port" modbuscfg.sh 1 1502
check "1502: a client gets through to the server's port" reaches 1502
check_not "502: no longer open" reaches 502
applied modbus "1 1503: moved" modbuscfg.sh 1 1503
check "1503: a client gets through" reaches 1503
check_not "1502: no longer open" reaches 1502

before=$(nft list ruleset)
wrong_usage modbuscfg.sh "" "1" "2 502" "1 0" "1 65536" "1 x" "x 502" "1 502 3" "0 -1" "1 502;accept"
check_equal "refused: nothing changed" "$before" "$(nft list ruleset)"

mkfifo "$WORK/answer"
far python3 "$WORK/client" 192.168.7.2 1503 stay >"$WORK/answer" &
client=$!
exec 7<"$WORK/answer"
read -r line <&7
check_equal "standing connection: there" "connected" "$line"
applied modbus "0 1503" modbuscfg.sh 0 1503
check "standing connection: cut when the port closes" eventually not kill -0 "$client"
check_not "1503: closed" reaches 1503

hold tcp 1700
printf '[ModbusServer]\nModbusInterface=0.0.0.0:1700:10\n' >/usr/local/etc/varnel-browser.ini
applied modbus "1 1504 with the server on 1700" modbuscfg.sh 1 1504
check "the panel's settings name the server's port" reaches 1504
check_not "1700: not open by itself" reaches 1700
echo "MODBUS_SERVER_PORT=502" >>/usr/local/etc/varnel-device.conf
applied modbus "MODBUS_SERVER_PORT: wins over the panel's settings" modbuscfg.sh 1 502
check "502: open" reaches 502

# --- ports that the controller must not take ---

before=$(nft list ruleset)
says 1 "another program listens on port 1700, the Modbus port stays as it is" modbuscfg.sh 1 1700
for port in 22 80 501 503 1023; do
    says 1 "MODBUS_PORTS does not allow port $port" modbuscfg.sh 1 "$port"
done
echo 'MODBUS_PORTS="22 502 40000-40002"' >>/usr/local/etc/varnel-device.conf
for port in 1023 1700 39999 40003; do
    run 1 "MODBUS_PORTS, port $port: refused" modbuscfg.sh 1 "$port"
done
check_equal "refused ports: nothing changed" "$before" "$(nft list ruleset)"
applied modbus "MODBUS_PORTS: a port in its range" modbuscfg.sh 1 40002
check "40002: open" reaches 40002
applied modbus "MODBUS_PORTS: a single port" modbuscfg.sh 1 22
echo "MODBUS_SERVER_PORT=none" >>/usr/local/etc/varnel-device.conf
says 1 "'none' is no port" modbuscfg.sh 1 502

# --- what happens to the rules behind the panel's back ---

echo "MODBUS_SERVER_PORT=502" >>/usr/local/etc/varnel-device.conf
nft delete table ip varnel_modbus
unsettled modbus "the nftables table varnel_modbus does not have it"
"$SCRIPTS/varnel-config" apply modbus 2>"$WORK/err"
said "modbus in effect: open on TCP port 22"
settled modbus "after a restart: the last wish comes back"
# The program that took the port first keeps it.
echo 'MODBUS_PORTS="502 1024-65535"' >>/usr/local/etc/varnel-device.conf
applied modbus "1 1800" modbuscfg.sh 1 1800
nft delete table ip varnel_modbus
hold tcp 1800
"$SCRIPTS/varnel-config" apply modbus 2>"$WORK/err" &
unsettled modbus "another program listens on port 1800"
applied modbus "0 1800: the last wish wins over one that is tried again" modbuscfg.sh 0 1800

check_equal "another table: untouched" "$other" "$(nft list table ip other)"
finish
