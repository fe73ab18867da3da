# SPDX-License-Identifier: MIT
# shellcheck shell=sh disable=SC2034
# modbuscfg.sh and varnel-config share this: the Modbus server's port, and the ports that may lead to it.
# Needs varnel-common.sh. Each function sets "why" when it fails.

# server_port: sets port, the one of ModbusInterface ("address:port:clients" in TCP mode) or of MODBUS_SERVER_PORT.
server_port() {
    if [ -n "$MODBUS_SERVER_PORT" ]; then
        port=$MODBUS_SERVER_PORT
    else
        port=$(panel_setting ModbusServer ModbusInterface 0.0.0.0:502:10)
        port=${port#*:}
        port=${port%%:*}
    fi
    if ! is_port "$port"; then
        why="the Modbus server's port '$port' is no port"
        return 1
    fi
}

# is_allowed PORT: MODBUS_PORTS names it, or has it in one of its ranges.
is_allowed() {
    for range in $MODBUS_PORTS; do
        if is_port "${range%-*}" && is_port "${range#*-}" && [ "$1" -ge "${range%-*}" ] && [ "$1" -le "${range#*-}" ]; then
            return 0
        fi
    done
    return 1
}

# may_open PORT: PORT may be redirected to the Modbus server.
may_open() {
    server_port || return 1
    if ! is_allowed "$1"; then
        why="MODBUS_PORTS does not allow port $1"
        return 1
    fi
    if [ "$1" -ne "$port" ] && [ -n "$(ss -H -l -t -n "sport = :$1")" ]; then
        why="another program listens on port $1"
        return 1
    fi
}
