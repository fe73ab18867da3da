#!/bin/sh
# SPDX-License-Identifier: MIT
# Writes down the TCP port under which the controller wants the Modbus server, or that it wants none; varnel-config opens
# and closes the port. A port that another program needs is refused: a sender of frames must not block SSH.
set -eu
SCRIPT_DIR=${0%/*}
[ -r "$SCRIPT_DIR/varnel-common.sh" ] || SCRIPT_DIR=$(dirname -- "$(readlink -f -- "$0")")
. "$SCRIPT_DIR/varnel-common.sh"
. "$SCRIPT_DIR/varnel-modbusport.sh"

usage() {
    echo "Usage: $SCRIPT_NAME 0|1 PORT"
}

case ${1:-} in
    -h | --help)
        usage
        exit
        ;;
esac
[ $# -eq 2 ] || bad_usage "two arguments are needed, not $#"
case $1 in
    0)
        # A controller that closes the port need not name a real one.
        [ "$2" = 0 ] || is_port "$2" || bad_usage "'$2' is no port"
        write_wish modbus closed
        ;;
    1)
        is_port "$2" || bad_usage "'$2' is no port"
        why=
        may_open "$2" || fail "$why, the Modbus port stays as it is"
        write_wish modbus "open $2"
        ;;
    *) bad_usage "the status is 0 or 1, not '$1'" ;;
esac
