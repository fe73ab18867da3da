#!/bin/sh
# SPDX-License-Identifier: MIT
# panelcheck.sh and safestate.sh, which the panel's unit runs before and after it, with plain files in place of /sys.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/testlib.sh"
enter_namespace "$@"

INI=/usr/local/etc/varnel-browser.ini
GPIO=/sys/class/gpio

# --- safestate.sh ---

run 0 "no GPIO lines: nothing to do" safestate.sh

mount -t tmpfs tmpfs /sys
# lines NUMBER...: exported lines, all outputs and all lit
lines() {
    rm -rf "$GPIO"
    for number in "$@"; do
        mkdir -p "$GPIO/gpio$number"
        echo out >"$GPIO/gpio$number/direction"
        echo 9 >"$GPIO/gpio$number/active_low"
        echo 1 >"$GPIO/gpio$number/value"
    done
}
# state NUMBER...: value and active_low of each
state() {
    for number in "$@"; do
        printf '%s/%s ' "$(cat "$GPIO/gpio$number/value")" "$(cat "$GPIO/gpio$number/active_low")"
    done
}

rm -f "$INI"
lines 224 225 228 230
export SERVICE_RESULT=success
run 0 "orderly end: done" safestate.sh
check_equal "orderly end: nothing changes" "1/9 1/9 1/9 1/9 " "$(state 224 225 228 230)"
for result in watchdog signal core-dump exit-code timeout; do
    lines 224 225 228 230
    export SERVICE_RESULT=$result
    says 0 "ended by $result" safestate.sh
    check_equal "end by $result: green, yellow off, red lit, buzzer off" "0/1 0/1 1/1 0/0 " "$(state 224 225 228 230)"
done

lines 224 225 228 230
echo in >"$GPIO/gpio230/direction"
run 0 "an input: done" safestate.sh
check_equal "an input: left alone" "1/9 " "$(state 230)"

cat >"$INI" <<END
[GPIO]
LedGreenPin=256
LedYellowPin=007
LedRedPin=red
BuzzerPin=300
LedGreenHigh=off
LedRedHigh=FALSE
BuzzerHigh=0
END
lines 0 7 44 224 230
run 0 "other lines: done" safestate.sh
check_equal "low 8 bits, leading zeros, polarity words as the panel reads them" "0/1 0/1 " "$(state 7 44)"
check_equal "red is no number: line 0, written last" "1/1 " "$(state 0)"
check_equal "the default lines are left alone" "1/9 1/9 " "$(state 224 230)"

# --- paneloutputs.sh ---

rm -f "$INI"
echo 'varnel:x:4712:' >>/etc/group
BLANK=/sys/devices/platform/fb0/blank
BACKLIGHT=/sys/devices/platform/pwm-backlight.0/backlight/pwm-backlight.0/bl_power
lines 224 225 228 230 17
mkdir -p /sys/class/graphics "${BACKLIGHT%/*}" "${BLANK%/*}"
ln -s "${BLANK%/*}" /sys/class/graphics/fb0
touch "$GPIO/export" "$GPIO/unexport" "$BLANK" "$BACKLIGHT" "${BACKLIGHT%/*}/brightness"
rm "$GPIO/gpio225/direction"
# given: the files that the panel's group may write
given() {
    find -L /sys -type f -group varnel -perm -020 | sort
}
run 0 "outputs: done" paneloutputs.sh
check_equal "outputs: the files that the panel writes, and no other" "$(
    printf '/sys/class/gpio/%s\n' export gpio224/active_low gpio224/direction gpio224/value gpio225/active_low gpio225/value \
        gpio228/active_low gpio228/direction gpio228/value gpio230/active_low gpio230/direction gpio230/value
    printf '%s\n' /sys/class/graphics/fb0/blank "$BLANK" "$BACKLIGHT"
)" "$(given)"
check_equal "outputs: nothing is exported while no panel runs" "" "$(cat "$GPIO/export")"
rm -r "$GPIO/gpio230"
mkdir /run/varnel-browser
run 0 "outputs for a panel that starts" paneloutputs.sh
check_equal "outputs: what is missing is exported" "230" "$(cat "$GPIO/export")"
rmdir /run/varnel-browser
mkdir -p /run/udev/rules.d
sed "s:@VARNEL_FULL_SCRIPT_DIR@:$SCRIPTS:" "$ROOT_DIR/device/udev/91-varnel-outputs.rules.in" >/run/udev/rules.d/91-test.rules
check_equal "udev rule: udev finds nothing wrong" "" \
    "$(udevadm test /sys/class/net/lo 2>&1 | grep 91-test | grep -v Reading || :)"

# --- panelcheck.sh ---

rm -rf "$GPIO"
mkdir -p "$GPIO"
touch "$GPIO/export"
mount -t tmpfs tmpfs /dev -o mode=0755
mknod -m 0666 /dev/null c 1 3
# By hand the script does not ask whether this opens; scripts/package-booted starts the unit with it.
echo text >/dev/kmsg
unset SERVICE_RESULT
ip link add eth1 type veth peer name cable
ip address add 192.168.7.1/24 broadcast 192.168.7.255 dev eth1
ip link set eth1 up

export QT_QPA_PLATFORM=linuxfb
says 1 "no frame buffer /dev/fb0" panelcheck.sh
touch /dev/fb0
silent "linuxfb: fine" panelcheck.sh
export QT_QPA_PLATFORM=linuxfb:rotation=90:fb=/dev/fb1:nographicsmodeswitch
says 1 "no frame buffer /dev/fb1" panelcheck.sh
export QT_QPA_PLATFORM=eglfs
says 1 "no display below /dev/dri" panelcheck.sh
mkdir /dev/dri
touch /dev/dri/card1
run 0 "eglfs with a card: fine" panelcheck.sh
export QT_QPA_PLATFORM=offscreen
run 0 "offscreen needs nothing" panelcheck.sh

cp "$ROOT_DIR/device/varnel-browser.ini" "$INI"
silent "the sample settings: fine" panelcheck.sh
ln -s "$(readlink -f -- "${1:?the directory of the programs}")/varnel-check" /usr/local/bin/
mkdir -p /usr/local/share
mount --bind "$ROOT_DIR/device/share" /usr/local/share
cp "$ROOT_DIR/device/modbus.map" /usr/local/etc/
for broken in 'Network' 'UdpPort=9876' '<html>'; do
    printf '%s\n' "$broken" >"$INI"
    says 0 "panelcheck.sh: error: $INI:1: " panelcheck.sh
done
head -c 4096 /bin/sh >"$INI"
says 0 "panelcheck.sh: error: $INI: the settings file is not a text file" panelcheck.sh
rm /usr/local/bin/varnel-check

# --- settings that the panel cannot read ---

rights() {
    stat -c '%G %a' "$INI"
}
printf '[Network]\nUdpPort=1\n' >"$INI"
chmod 0600 "$INI"
says 0 "$INI could not be read by the panel: it belongs to the group varnel now" panelcheck.sh
check_equal "settings of root's alone: the panel's group reads them" "varnel 640" "$(rights)"
silent "settings of the panel's group: goes on" panelcheck.sh
chown root:root "$INI"
chmod 0644 "$INI"
run 0 "settings for everybody: goes on" panelcheck.sh
check_equal "settings for everybody: left alone" "root 644" "$(rights)"
chmod 0600 "$INI"
mount --bind -o ro /usr/local/etc /usr/local/etc
says 0 "the panel cannot read $INI and takes defaults: chgrp varnel $INI && chmod g+r $INI" panelcheck.sh
umount /usr/local/etc
rm "$INI"

# --- the panel's address ---

# late WHAT LINE COMMAND...: panelcheck.sh waits, says so, and is done within a second after the command
late() {
    late_what=$1 late_line=$2
    shift 2
    "$SCRIPTS/panelcheck.sh" 2>"$WORK/err" &
    late_pid=$!
    check "$late_what: waits" eventually grep -qF "$late_line" "$WORK/err"
    sleep 1 # a change of something else must not end it, nor must time
    check "$late_what: still waits" kill -0 "$late_pid"
    "$@"
    late_since=$(date +%s%N)
    check "$late_what: done" wait "$late_pid"
    check "$late_what: within a second" [ $(($(date +%s%N) - late_since)) -lt 1000000000 ]
}
ip address flush dev eth1
late "no address" "waiting for an address of eth1" ip address add 192.168.7.1/24 dev eth1
ip link set eth1 down
late "an interface that is down" "waiting for an address of eth1" ip link set eth1 up
printf '[Network]\nUdpBindAddress=10.1.1.1\n' >"$INI"
late "no such own address" "waiting for 10.1.1.1, on which" ip address add 10.1.1.1/24 dev lo
for address in 192.168.7.255 0.0.0.0 127.0.0.1 nonsense; do
    printf '[Network]\nUdpBindAddress=%s\nUdpInterface=eth9\n' "$address" >"$INI"
    silent "listening on $address: done" panelcheck.sh
done
printf '[Network]\nUdpInterface=\n' >"$INI"
run 0 "no interface wanted: done" panelcheck.sh

# --- the drive's directory ---

for directory in / relative /run/../etc; do
    printf '[Files]\nDirectory=%s\n' "$directory" >"$INI"
    says 0 "'$directory'" panelcheck.sh
done
mkdir -m 0777 /run/used
touch /run/used/file
printf '[Files]\nDirectory=/run/used\n' >"$INI"
run 0 "a directory in use: goes on" panelcheck.sh
check_equal "a directory in use: left alone" "777" "$(stat -c %a /run/used)"
rm /run/used/file
run 0 "an empty directory: goes on" panelcheck.sh
check_equal "an empty directory: closed" "755" "$(stat -c %a /run/used)"

finish
