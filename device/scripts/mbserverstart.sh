#!/bin/sh
# SPDX-License-Identifier: MIT
# Starts the Modbus server with the register tables and the interface that an init file describes.

set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/varnel-modbus.sh"

usage() {
    cat <<EOF
Usage: $SCRIPT_NAME INIT-FILE

Makes the Modbus server serve what INIT-FILE, written by the panel, describes, instead of what it served before.
Succeeds once clients can connect.
EOF
}

start() {
    case $1 in
        /*) init_file=$1 ;;
        *) init_file=$PWD/$1 ;; # the server has another working directory
    esac
    [ -r "$init_file" ] || fail "cannot read $init_file"
    server_call Start "$init_file"
}

case ${1:-} in
    -h | --help) usage ;;
    *)
        [ $# -eq 1 ] || bad_usage "one argument expected, $# given"
        start "$1"
        ;;
esac
