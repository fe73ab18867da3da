# SPDX-License-Identifier: MIT
# shellcheck shell=sh disable=SC2034
# The scripts around the panel's unit and the USB drive share this: the panel's user, its output lines, the drive's mount
# point. It is in their directory, and each begins with
#
#     set -eu
#     . "$(dirname -- "$(readlink -f -- "$0")")/varnel-panel.sh"

SCRIPT_DIR=$(dirname -- "$(readlink -f -- "$0")")
. "$SCRIPT_DIR/varnel-common.sh"

# The panel's unit runs it as this user and group.
PANEL_GROUP=varnel

# no_arguments [ARGUMENT...]: for a script that takes none. The script has usage().
no_arguments() {
    case ${1:-} in
        '') ;;
        -h | --help)
            usage
            exit
            ;;
        *) bad_usage "no arguments are taken" ;;
    esac
}

# --- outputs ---

# pin_number KEY DEFAULT: as the panel reads it: a decimal number, of which the low 8 bits count; anything else is 0.
pin_number() {
    pin=$(panel_setting GPIO "$1" "$2")
    is_number "$pin" || pin=0
    while [ "$pin" != 0 ] && [ "${pin#0}" != "$pin" ]; do
        pin=${pin#0}
    done
    echo $((${pin:-0} & 255))
}

# output_lines: the numbers of the lines for green, yellow, red and buzzer.
output_lines() {
    pin_number LedGreenPin 224
    pin_number LedYellowPin 225
    pin_number LedRedPin 228
    pin_number BuzzerPin 230
}

# --- the USB drive ---

# mount_point: the directory in which the panel saves; fails for one that cannot be a drive's mount point, because a
# mistyped setting must not change the system.
mount_point() {
    directory=$(panel_setting Files Directory /usbmnt)
    case $directory in
        / | *//* | */./* | */../* | */. | */..) fail "'$directory' cannot be the drive's mount point" ;;
        /*) ;;
        *) fail "'$directory' is no absolute path" ;;
    esac
    printf '%s\n' "$directory"
}

# This file has the device that usbdrive.sh has mounted; the marker file in /tmp is a link to it.
DRIVE_RECORD=$STATE_DIR/usbdrive.device

attached_drive() {
    [ ! -f "$DRIVE_RECORD" ] || cat -- "$DRIVE_RECORD"
}

# mounted_device POINT: the device that is mounted there, or nothing.
mounted_device() {
    findmnt -n -o SOURCE --mountpoint "$1" | tail -n 1
}

# close_mount_point POINT: without a drive the directory is on the system's disk, where nothing may be saved. A directory
# with files in it is not only for the drive, and is not changed.
close_mount_point() {
    if mountpoint -q -- "$1" || [ -L "$1" ] || [ -n "$(ls -A -- "$1")" ]; then
        return 0
    fi
    # On a filesystem without this attribute the permissions keep the panel out, which has no privileges.
    chattr -i -- "$1" 2>/dev/null || :
    if ! { chown root:root -- "$1" && chmod 0755 -- "$1"; } 2>/dev/null && [ -n "$(find "$1" -maxdepth 0 -perm /022)" ]; then
        say "cannot protect $1 against writing while no drive is mounted"
    fi
    chattr +i -- "$1" 2>/dev/null || :
}
