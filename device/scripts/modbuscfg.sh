#!/bin/sh
# SPDX-License-Identifier: MIT
# Opens the Modbus TCP port that the controller asks for, or closes it. The Modbus server listens on the port of the
# panel's settings all the time; a table of our own in nftables leads the asked-for port there and turns away whoever
# comes another way. Rules of other tables are neither read nor changed.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/varnel-common.sh"

usage() {
    echo "Usage: $SCRIPT_NAME 0|1 PORT"
}

TABLE=varnel_modbus

# The port of ModbusInterface, "address:port:clients" in TCP mode.
server_port() {
    if [ -n "$MODBUS_SERVER_PORT" ]; then
        port=$MODBUS_SERVER_PORT
    else
        port=$(panel_setting ModbusServer ModbusInterface 0.0.0.0:502:10)
        port=${port#*:}
        port=${port%%:*}
    fi
    is_port "$port" || fail "the Modbus server's port '$port' is no port"
    printf '%s\n' "$port"
}

# ruleset STATUS PORT SERVER-PORT: "add" before "delete" lets one transaction replace a table that may not exist yet.
# Every packet is judged, not only the first of a connection, so closing also ends what is connected; the panel's own
# connections over the loopback interface stay.
ruleset() {
    cat <<END
add table ip $TABLE
delete table ip $TABLE
add table ip $TABLE
add chain ip $TABLE prerouting { type nat hook prerouting priority dstnat; }
add chain ip $TABLE input { type filter hook input priority filter; }
add rule ip $TABLE input iif lo accept
END
    if [ "$1" -eq 1 ]; then
        if [ "$2" -ne "$3" ]; then
            echo "add rule ip $TABLE prerouting fib daddr type local tcp dport $2 redirect to :$3"
        fi
        echo "add rule ip $TABLE input tcp dport $3 ct original proto-dst $2 accept"
    fi
    echo "add rule ip $TABLE input tcp dport $3 reject with tcp reset"
}

configure() {
    have nft || fail "nftables is not installed, the Modbus port stays as it is"
    port=$(server_port)
    rules=$(ruleset "$1" "$2" "$port")
    printf '%s\n' "$rules" | nft -f - || fail "nftables refused the rules, the Modbus port stays as it is"
}

case ${1:-} in
    -h | --help)
        usage
        exit
        ;;
esac
[ $# -eq 2 ] || bad_usage "two arguments are needed, not $#"
case $1 in
    0 | 1) ;;
    *) bad_usage "the status is 0 or 1, not '$1'" ;;
esac
# A controller that closes the port need not name a real one.
if [ "$1" -eq 1 ] || [ "$2" != 0 ]; then
    is_port "$2" || bad_usage "'$2' is no port"
fi
configure "$1" "$2"
