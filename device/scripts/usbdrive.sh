#!/bin/sh
# SPDX-License-Identifier: MIT
# Mounts a USB drive read-only when it is plugged in and lets go of it when it is pulled, with the marker file that
# tells the panel that a drive is there. Run by varnel-usbdrive@.service, which the udev rule starts.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/varnel-common.sh"

usage() {
    echo "Usage: $SCRIPT_NAME attach|detach DEVICE"
}

POINT=$(panel_setting Files Directory /usbmnt)
MARKER=$(panel_setting Files UsbDriveFile /tmp/usbdrive)

# The mount that the panel sees is a copy of one that is prepared aside: see unlock_mount.
STAGE=$STATE_DIR/usbdrive

mount_drive() {
    mkdir -p -- "$STAGE"
    mount --make-private -o "ro,$USB_MOUNT_OPTIONS" -- "$1" "$STAGE" || return 1
    unlock_mount "$STAGE" && mount --bind -- "$STAGE" "$POINT" && mounted=yes || mounted=no
    umount -- "$STAGE"
    rmdir -- "$STAGE"
    [ "$mounted" = yes ]
}

# The panel has one slot and one mount point: with two partitions, or two drives on a hub, the first one counts.
attach() {
    if [ ! -b "$1" ]; then
        fail "$1 is no block device"
    fi
    if mountpoint -q -- "$POINT"; then
        fail "a drive is already mounted on $POINT, $1 is left alone"
    fi
    mkdir -p -- "$POINT"
    mount_drive "$1" || fail "cannot mount $1 on $POINT"
    # The marker comes last: what the panel sees of it is usable.
    replace_file 0644 "$MARKER" "$1"
}

# The drive may be gone already, so the mount is let go lazily; the marker goes first, for the same reason as above.
detach() {
    if [ ! -r "$MARKER" ] || [ "$(cat -- "$MARKER")" != "$1" ]; then
        say "$1 is not the drive that is mounted on $POINT"
        return 0
    fi
    rm -f -- "$MARKER"
    if mountpoint -q -- "$POINT"; then
        umount -l -- "$POINT" || fail "cannot unmount $POINT"
    fi
}

case ${1:-} in
    -h | --help)
        usage
        exit
        ;;
esac
[ $# -eq 2 ] || bad_usage "two arguments are needed, not $#"
case $2 in
    /dev/*) ;;
    *) bad_usage "'$2' is no device" ;;
esac
case $1 in
    attach | detach) "$1" "$2" ;;
    *) bad_usage "unknown verb '$1'" ;;
esac
