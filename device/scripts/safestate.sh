#!/bin/sh
# SPDX-License-Identifier: MIT
# The state of LEDs and buzzer while no panel drives them: red lit, all else off. Run by varnel-browser.service whenever
# the panel has ended. After an orderly end everything stays as the controller wanted it. After a crash, a kill or a hang
# the buzzer could sound for ever, or a green light could wrongly mean that all is well.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/varnel-panel.sh"

usage() {
    echo "Usage: $SCRIPT_NAME (SERVICE_RESULT=success in the environment: do nothing)"
}

GPIO=/sys/class/gpio

# active_low KEY DEFAULT: as the panel writes it for a polarity setting; "no" and "off" are true there.
active_low() {
    case $(panel_setting GPIO "$1" "$2") in
        '' | 0 | [Ff][Aa][Ll][Ss][Ee]) echo 1 ;;
        *) echo 0 ;;
    esac
}

# switch NAME DEFAULT-PIN DEFAULT-POLARITY 0|1: a line that the panel has not made an output has never been lit, and is
# left alone.
switch() {
    line=$GPIO/gpio$(pin_number "$1Pin" "$2")
    [ -r "$line/direction" ] && [ "$(cat "$line/direction")" = out ] || return 0
    if ! { active_low "$1High" "$3" >"$line/active_low" && echo "$4" >"$line/value"; } 2>/dev/null; then
        say "cannot write to $line"
    fi
}

no_arguments "$@"
if [ "${SERVICE_RESULT:-}" = success ]; then
    exit 0
fi
switch Buzzer 230 true 0
switch LedGreen 224 false 0
switch LedYellow 225 false 0
switch LedRed 228 false 1
say "the panel ended by ${SERVICE_RESULT:-hand}: red is lit, all else is off"
