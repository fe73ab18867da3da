#!/bin/sh
# SPDX-License-Identifier: MIT
# modbuscfg.sh: a real client reaches a listening server through real nftables, or does not.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/testlib.sh"
enter_namespace "$@"
add_links
ip address add 192.168.7.2/24 dev eth0
ip link set eth0 up
far ip address add 192.168.7.1/24 dev far0

# In the place of the Modbus server: greets every connection and keeps it while octets come.
cat >"$WORK/server" <<'END'
import socketserver, sys
class Answer(socketserver.BaseRequestHandler):
    def handle(self):
        self.request.sendall(b"hello")
        while self.request.recv(1):
            self.request.sendall(b"x")
class Server(socketserver.ThreadingTCPServer):
    allow_reuse_address = True
    daemon_threads = True
Server(("0.0.0.0", int(sys.argv[1])), Answer).serve_forever()
END
# Exit status 0 when the server greets; with "stay", says so and then goes on until the connection breaks.
cat >"$WORK/client" <<'END'
import socket, sys
try:
    connection = socket.create_connection((sys.argv[1], int(sys.argv[2])), 3)
    if connection.recv(5) != b"hello":
        sys.exit(1)
except OSError:
    sys.exit(1)
if sys.argv[3:] == ["stay"]:
    print("connected", flush=True)
    try:
        while True:
            connection.sendall(b"x")
            if not connection.recv(1):
                break
    except OSError:
        pass
    print("cut", flush=True)
END

listens() {
    ss -H -l -t -n "sport = :$1" | grep -q .
}

serve() {
    python3 "$WORK/server" "$1" 2>/dev/null &
    eventually listens "$1"
}

reaches() {
    far python3 "$WORK/client" 192.168.7.2 "$1"
}

serve 502
nft add table ip other
nft add chain ip other input '{ type filter hook input priority 10; }'
nft add rule ip other input tcp dport 9999 drop
other=$(nft list table ip other)

check "before: a client gets through" reaches 502
run 0 "0 502: closed" modbuscfg.sh 0 502
check_not "closed: a client is refused" reaches 502
check "closed: the panel itself gets through" python3 "$WORK/client" 127.0.0.1 502
run 0 "0 0: closed without a port" modbuscfg.sh 0 0
run 0 "1 502: open" modbuscfg.sh 1 502
check "open: a client gets through" reaches 502

run 0 "1 1502: open under the controller's port" modbuscfg.sh 1 1502
check "1502: a client gets through to the server's port" reaches 1502
check_not "502: no longer open" reaches 502
run 0 "1 1503: moved" modbuscfg.sh 1 1503
check "1503: a client gets through" reaches 1503
check_not "1502: no longer open" reaches 1502

before=$(nft list ruleset)
for bad in "" "1" "2 502" "1 0" "1 65536" "1 x" "x 502" "1 502 3" "0 -1" "1 502;accept"; do
    # shellcheck disable=SC2086
    run 2 "arguments '$bad': refused" modbuscfg.sh $bad
done
check_equal "refused: nothing changed" "$before" "$(nft list ruleset)"

mkfifo "$WORK/answer"
far python3 "$WORK/client" 192.168.7.2 1503 stay >"$WORK/answer" &
exec 7<"$WORK/answer"
read -r line <&7
check_equal "standing connection: there" "connected" "$line"
run 0 "0 1503: closed" modbuscfg.sh 0 1503
read -r line <&7
check_equal "standing connection: cut when the port closes" "cut" "$line"
check_not "1503: closed" reaches 1503

serve 1700
printf '[ModbusServer]\nModbusInterface=0.0.0.0:1700:10\n' >/usr/local/etc/varnel-browser.ini
run 0 "1 502 with the server on 1700: open" modbuscfg.sh 1 502
check "the panel's settings name the server's port" reaches 502
check_not "1700: not open by itself" reaches 1700
echo "MODBUS_SERVER_PORT=502" >>/usr/local/etc/varnel-device.conf
run 0 "MODBUS_SERVER_PORT: wins over the panel's settings" modbuscfg.sh 1 502
check "502: open" reaches 502
echo "MODBUS_SERVER_PORT=none" >>/usr/local/etc/varnel-device.conf
run 1 "a bad server port: refused" modbuscfg.sh 1 502

check_equal "another table: untouched" "$other" "$(nft list table ip other)"
finish
