#!/bin/sh
# SPDX-License-Identifier: MIT
# Remounts the USB drive read-write while a file is saved, and read-only again afterwards, so that a drive pulled at
# any other time is never damaged. Exit status: 3 no drive, 4 busy, 5 the drive is write-protected, 1 anything else.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/varnel-panel.sh"

usage() {
    echo "Usage: $SCRIPT_NAME rw|ro"
}

remount() {
    [ $# -eq 1 ] || bad_usage "one argument is needed, not $#"
    point=$(mount_point)
    if ! mountpoint -q -- "$point"; then
        say "no drive is mounted on $point"
        exit 3
    fi
    if [ "$(mounted_device "$point")" != "$(attached_drive)" ]; then
        say "what is mounted on $point was not mounted by usbdrive.sh and is left alone"
        exit 3
    fi
    # Flush the data before the drive's state changes; a failing drive is reported, not hidden.
    sync -f -- "$point" || say "cannot flush $point"
    if message=$(mount -o "remount,$1" -- "$point" 2>&1 && unlock_mount "$point" 2>&1); then
        return 0
    fi
    case $message in
        *busy*)
            say "$point is busy: a file on it is still open for writing"
            exit 4
            ;;
        *write-protected* | *"Read-only file system"*)
            say "the drive on $point is write-protected"
            exit 5
            ;;
        *)
            fail "$message"
            ;;
    esac
}

case ${1:-} in
    -h | --help)
        usage
        ;;
    rw | ro)
        remount "$@"
        ;;
    *)
        bad_usage "unknown argument '${1:-}'"
        ;;
esac
