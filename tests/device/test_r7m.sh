#!/bin/sh
# SPDX-License-Identifier: MIT
# r7m.sh: the registration file, the hosts snippet and the drop-in directory.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/testlib.sh"
enter_namespace "$@"

DROPINS=/usr/local/etc/r7m.d
mkdir -p "$DROPINS"

dropin() {
    printf '#!/bin/sh\n%s\n' "$2" | stand_in "$DROPINS/$1"
}

# shellcheck disable=SC2016
dropin 10-first 'printf "first %s\n" "$*" >>/run/test/calls'
# shellcheck disable=SC2016
dropin 20-second 'printf "second %s\n" "$*" >>/run/test/calls'
echo "not executable" >"$DROPINS/README"

run 0 "add: registered" r7m.sh add 192.168.1.20 7 161 162 1 502 4711
check_equal "registration file: every value" "ADDRESS=192.168.1.20
TYPE=7
SNMP_PORT=161
TRAP_PORT=162
MODBUS_STATUS=1
MODBUS_PORT=502
BUILD=4711" "$(cat /run/varnel/controller)"
check_equal "hosts snippet: address and names" "192.168.1.20 r7m controller" "$(cat /run/varnel/hosts)"
check_equal "drop-ins: called in order with the arguments" "first add 192.168.1.20 7 161 162 1 502 4711
second add 192.168.1.20 7 161 162 1 502 4711" "$(cat "$WORK/calls")"
check_equal "nothing is left aside" "controller
hosts
new" "$(ls -A /run/varnel)"
check_equal "nothing is left aside" "" "$(ls -A /run/varnel/new)"

before=$(sums /run/varnel/controller /run/varnel/hosts)
wrong_usage r7m.sh "add" "add 192.168.1.20 7 161 162 1 502" "add 192.168.1.256 7 161 162 1 502 1" \
    "add 127.0.0.1 7 161 162 1 502 1" "add 192.168.1.20 x 161 162 1 502 1" "add 192.168.1.20 7 65536 162 1 502 1" \
    "add 192.168.1.20 7 161 162 2 502 1" "add 192.168.1.20 7 161 162 1 -1 1" "delete" "delete 192.168.1.20 7 161 162" \
    "delete nobody 7 161 162 1" "list" ""
run 2 "a newline in the address: refused" r7m.sh add "192.168.1.20
10.0.0.1" 7 161 162 1 502 1
check_equal "bad arguments: nothing changed" "$before" "$(sums /run/varnel/controller /run/varnel/hosts)"

says 0 "controller '192.168.1.99' is not registered" r7m.sh delete 192.168.1.99 7 161 162 4711
run 0 "delete before any address is known: no error" r7m.sh delete "" 7 161 162 4711
check_equal "delete of another: nothing changed" "$before" "$(sums /run/varnel/controller /run/varnel/hosts)"

: >"$WORK/calls"
run 0 "delete: removed" r7m.sh delete 192.168.1.20 7 161 162 4711
check_not "registration file: gone" test -e /run/varnel/controller
check_not "hosts snippet: gone" test -e /run/varnel/hosts
check_equal "drop-ins: told of the removal" "first delete 192.168.1.20 7 161 162 4711
second delete 192.168.1.20 7 161 162 4711" "$(cat "$WORK/calls")"

: >"$WORK/calls"
dropin 15-broken 'exit 3'
says 1 "15-broken failed" r7m.sh add 10.0.0.9 7 161 162 0 502 1
check_equal "a drop-in that fails: the others are called" "2" "$(wc -l <"$WORK/calls")"
check_equal "a drop-in that fails: registered all the same" "10.0.0.9 r7m controller" "$(cat /run/varnel/hosts)"

dropin 15-broken 'sleep 60'
echo "R7M_DROPIN_SECONDS=1" >>/usr/local/etc/varnel-device.conf
says 1 "15-broken failed" r7m.sh add 10.0.0.9 7 161 162 0 502 1

echo "R7M_HOST_NAMES=plc" >>/usr/local/etc/varnel-device.conf
rm "$DROPINS"/*
run 0 "no drop-ins: registered" r7m.sh add 10.0.0.10 7 161 162 0 502 1
check_equal "host names: a setting" "10.0.0.10 plc" "$(cat /run/varnel/hosts)"
finish
