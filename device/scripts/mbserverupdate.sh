#!/bin/sh
# SPDX-License-Identifier: MIT
# Hands new register values to the Modbus server.

set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/varnel-modbus.sh"

usage() {
    cat <<EOF
Usage: $SCRIPT_NAME COMMAND

Publishes the register values in COMMAND, a JSON object in one argument, to the Modbus server's clients: all of them
at once, or none of them if something is wrong with one. Example:
    $SCRIPT_NAME '{"cmd":"setconfig","data":[{"address":100,"values":[0,1,4660,22136]}]}'
EOF
}

update() {
    server_call Update "$1"
}

case ${1:-} in
    -h | --help) usage ;;
    *)
        [ $# -eq 1 ] || bad_usage "one argument expected, $# given"
        update "$1"
        ;;
esac
