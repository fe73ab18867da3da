#!/bin/sh
# SPDX-License-Identifier: MIT
# Gives the panel's group the files of the panel's outputs: the lines of LEDs and buzzer that the settings name, display
# and backlight. They belong to root. Run as root before the panel starts and, by a udev rule, whenever one of them
# appears; while the panel's unit runs, lines that are missing are exported.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/varnel-panel.sh"

usage() {
    echo "Usage: $SCRIPT_NAME"
}

GPIO=/sys/class/gpio
BLANK=/sys/class/graphics/fb0/blank
BACKLIGHT=/sys/devices/platform/pwm-backlight.0/backlight/pwm-backlight.0/bl_power

# grant FILE...: those that exist; a line that only is an output has no direction.
grant() {
    for file in "$@"; do
        shift
        [ ! -e "$file" ] || set -- "$@" "$file"
    done
    [ $# -eq 0 ] || { chgrp -- "$PANEL_GROUP" "$@" && chmod g+w -- "$@"; } ||
        say "cannot give the group $PANEL_GROUP all files of the outputs"
}

export_line() {
    if [ -d /run/varnel-browser ] && [ -e "$GPIO/export" ] && [ ! -e "$GPIO/gpio$1" ]; then
        echo "$1" 2>/dev/null >"$GPIO/export" || say "the kernel offers no GPIO line $1"
    fi
}

no_arguments "$@"
# Without the panel there is no user to give the files to.
getent group "$PANEL_GROUP" >/dev/null || exit 0
set -- "$GPIO/export" "$BLANK" "$BACKLIGHT"
for line in $(output_lines); do
    export_line "$line"
    set -- "$@" "$GPIO/gpio$line/direction" "$GPIO/gpio$line/active_low" "$GPIO/gpio$line/value"
done
grant "$@"
