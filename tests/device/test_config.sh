#!/bin/sh
# SPDX-License-Identifier: MIT
# varnel-config: the last wish wins, also after it was cut off; the system and its disk are changed no oftener than is
# allowed; the status tells what is the case.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/testlib.sh"
enter_namespace "$@"

CONF=/usr/local/etc/varnel-device.conf

apply() {
    "$SCRIPTS/varnel-config" apply modbus 2>"$WORK/err"
}

rules() {
    nft list table ip varnel_modbus 2>/dev/null | sed -n 's/.*proto-dst \([0-9]*\) accept.*/\1/p'
}

rules_are() {
    [ "$(rules)" = "$1" ]
}

# --- nothing wanted ---

run 0 "status without a wish" varnel-config status
check_equal "nothing is wanted" 3 "$(grep -c "wanted     nothing" "$WORK/out")"
apply
check_equal "apply without a wish: nothing to do" "" "$(cat "$WORK/err")$(rules)"
wrong_usage varnel-config "" "stop" "status usb" "status snmp network" "apply" "apply usb" "apply snmp now" "apply ../x"
run 0 "--help" varnel-config --help

# --- the last wish ---

applied modbus "a wish" modbuscfg.sh 1 1502
check "the status names it" grep -q "wanted     open on TCP port 1502" "$WORK/status"
check "the status says since when" grep -Eq "in effect  yes, since [0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:]{8}$" "$WORK/status"
check_equal "one line of the journal for what was wanted, one for what came of it" "varnel-config: modbus wanted: open on TCP port 1502
varnel-config: modbus in effect: open on TCP port 1502" "$(cat "$WORK/err")"

# A panel that starts again wants what is there: not an octet goes to the disk.
on_disk() {
    find /run/keep -type f -printf '%p %i %T@\n' | sort
}
before=$(on_disk)
run 0 "the same wish again" modbuscfg.sh 1 1502
taken() { [ ! -e /run/varnel/wanted/modbus ] && ! pidof -x varnel-config >/dev/null; }
check "the same wish again: taken" eventually taken
check_equal "the same wish again: nothing is written" "$before" "$(on_disk)"
check_equal "the same wish again: not a word" "" "$(cat "$WORK/err")"

# A wish that nobody has taken is there after a power cut at the latest.
echo "open 1503" >/run/varnel/wanted/modbus
apply
check "a wish found at the start" rules_are 1503
echo "open 1504" >/run/varnel/taken/modbus
apply
check "a wish taken and cut off" rules_are 1504
echo "open 1505" >/run/keep/wanted/modbus
rm -r /run/varnel
nft delete table ip varnel_modbus
apply
check "a wish on the disk and cut off" rules_are 1505
nft delete table ip varnel_modbus
apply
check "what was in effect before the power cut" rules_are 1505

# A wish that cannot come true does not keep what was in effect from coming back.
hold tcp 1800
echo "open 1800" >/run/keep/wanted/modbus
rm -r /run/varnel
nft delete table ip varnel_modbus
apply &
applier=$!
unsettled modbus "another program listens on port 1800"
check "after a power cut: the former configuration is back" eventually rules_are 1505
check "the status names it" grep -q "meanwhile  open on TCP port 1505" "$WORK/status"
kill "$holder"
wait "$applier"
check "the port is free: the wish comes true" rules_are 1800

# --- the pace ---

# A controller that changes its mind with each frame.
echo "APPLY_PAUSE_SECONDS=2" >>"$CONF"
: >"$WORK/journal"
changes() { grep -c "in effect" "$WORK/journal"; }
now() { date +%s; }
started=$(now)
port=2000
while [ $(($(now) - started)) -lt 9 ]; do
    port=$((port + 1))
    "$SCRIPTS/modbuscfg.sh" 1 "$port" 2>>"$WORK/journal"
    sleep 0.2
done
check "the last of many wishes comes true" eventually rules_are "$port"
settled modbus "the last of many wishes is in effect"
took=$(($(now) - started))
check "many wishes were asked for ($((port - 2000)))" [ "$port" -gt 2010 ]
check "few of them were brought into effect ($(changes) in $took s)" [ "$(changes)" -le 5 ]
check_equal "as many lines of the journal as changes" "$(changes)" "$(grep -c wanted "$WORK/journal")"
read -r last pause </run/varnel/state/modbus.pace
check "the pause has grown to $pause s" [ "$pause" -ge 4 ]
# A clock that is set back must not stop everything.
echo "$((last + 100000)) 2" >/run/varnel/state/modbus.pace
run 0 "a wish after the clock was set back" modbuscfg.sh 1 1502
settled modbus "it comes true"
echo "APPLY_PAUSE_SECONDS=0" >>"$CONF"

# --- what cannot be kept ---

mkdir "$WORK/read-only"
mount -t tmpfs -o ro tmpfs "$WORK/read-only"
echo "KEEP_DIR=$WORK/read-only/varnel" >>"$CONF"
run 0 "a root that cannot be written" modbuscfg.sh 1 1509
settled modbus "it is in effect until the next start"
check "the rules are there" rules_are 1509

# --- others ---

rm -r /run/varnel/wanted
mkdir /run/varnel/wanted
chown nobody /run/varnel/wanted
says 1 "is not a directory of root's own" modbuscfg.sh 1 1502
rmdir /run/varnel/wanted
check_equal "status for another user: refused" "varnel-config: only root can look at the configuration" \
    "$(setpriv --reuid nobody --regid nogroup --clear-groups -- "$SCRIPTS/varnel-config" status 2>&1)"
finish
