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
    run 0 "end by $result: done" safestate.sh
    said "ended by $result"
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
run 2 "an argument: refused" safestate.sh now

# --- panelcheck.sh ---

rm -f "$INI"
mkdir -p "$GPIO"
touch "$GPIO/export"
mount -t tmpfs tmpfs /dev -o mode=0755
mknod -m 0666 /dev/null c 1 3
unset SERVICE_RESULT

export QT_QPA_PLATFORM=linuxfb
run 1 "linuxfb without a frame buffer: fails" panelcheck.sh
said "no frame buffer /dev/fb0"
touch /dev/fb0
run 0 "linuxfb: fine" panelcheck.sh
check_equal "all fine: not a word" "" "$(cat "$WORK/err")"
export QT_QPA_PLATFORM=linuxfb:rotation=90:fb=/dev/fb1:nographicsmodeswitch
run 1 "the frame buffer of the option is missing: fails" panelcheck.sh
said "no frame buffer /dev/fb1"
export QT_QPA_PLATFORM=eglfs
run 1 "eglfs without a card: fails" panelcheck.sh
said "no display below /dev/dri"
mkdir /dev/dri
touch /dev/dri/card1
run 0 "eglfs with a card: fine" panelcheck.sh
export QT_QPA_PLATFORM=offscreen
run 0 "offscreen needs nothing" panelcheck.sh

rm "$GPIO/export"
run 0 "no GPIO: goes on" panelcheck.sh
said "LEDs and buzzer stay dark"
touch "$GPIO/export"

cp "$ROOT_DIR/device/varnel-browser.ini" "$INI"
run 0 "the sample settings: fine" panelcheck.sh
check_equal "the sample settings: not a word" "" "$(cat "$WORK/err")"
for broken in 'Network' '[Network]
UdpPort 9876' 'UdpPort=9876' '<html>'; do
    printf '%s\n' "$broken" >"$INI"
    run 0 "broken settings: goes on" panelcheck.sh
    said "is not the INI file"
done
head -c 4096 /bin/sh >"$INI"
run 0 "settings are a program: goes on" panelcheck.sh
said "is not the INI file"

finish
