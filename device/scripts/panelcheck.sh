#!/bin/sh
# SPDX-License-Identifier: MIT
# What the panel would stumble over, one clear line for each. Run by varnel-browser.service before the panel; fails, and
# with it the start, when there is nothing to draw on. Everything else the panel lives without.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/varnel-common.sh"

usage() {
    echo "Usage: $SCRIPT_NAME (QT_QPA_PLATFORM in the environment, as the panel will see it)"
}

# The device that "linuxfb:fb=/dev/fb1:..." names, /dev/fb0 if none.
frame_buffer() {
    case $1 in
        *:fb=*)
            device=${1#*:fb=}
            echo "${device%%:*}"
            ;;
        *) echo /dev/fb0 ;;
    esac
}

check_display() {
    case $1 in
        linuxfb*)
            device=$(frame_buffer "$1")
            [ -e "$device" ] || fail "no frame buffer $device: is its driver there? QT_QPA_PLATFORM=$1"
            ;;
        eglfs*)
            set -- /dev/dri/card*
            [ -e "$1" ] || fail "no display below /dev/dri: is its driver there? QT_QPA_PLATFORM is eglfs"
            ;;
    esac
}

check_outputs() {
    [ -e /sys/class/gpio/export ] || say "no GPIO lines below /sys/class/gpio: LEDs and buzzer stay dark"
}

# The panel takes a file that is no INI file for an empty one, without a word.
check_settings() {
    [ -e "$PANEL_SETTINGS" ] || return 0
    if [ ! -r "$PANEL_SETTINGS" ]; then
        say "$PANEL_SETTINGS cannot be read: all settings have their defaults"
    elif ! grep -Eq '^[[:space:]]*\[[A-Za-z]+\]' -- "$PANEL_SETTINGS" ||
        grep -Evq '^[[:space:]]*(|[;].*|\[.*\]|[^=]+=.*)[[:space:]]*$' -- "$PANEL_SETTINGS"; then
        say "$PANEL_SETTINGS is not the INI file that it should be: what cannot be read has its default"
    fi
}

case ${1:-} in
    '') ;;
    -h | --help)
        usage
        exit
        ;;
    *) bad_usage "no arguments are taken" ;;
esac
check_settings
check_outputs
check_display "${QT_QPA_PLATFORM:-}"
