#!/bin/sh
# SPDX-License-Identifier: MIT
# Stops serving Modbus clients.

set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/varnel-modbus.sh"

usage() {
    cat <<EOF
Usage: $SCRIPT_NAME

Makes the Modbus server disconnect its clients, close its interface and forget its registers. Succeeds, too, when the
server does not run.
EOF
}

stop() {
    if server_runs; then
        server_call Stop
    fi
}

case ${1:-} in
    -h | --help) usage ;;
    *)
        [ $# -eq 0 ] || bad_usage "no argument expected, $# given"
        stop
        ;;
esac
