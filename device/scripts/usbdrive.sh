#!/bin/sh
# SPDX-License-Identifier: MIT
# Mounts a USB drive read-only when it is plugged in and unmounts it when it is pulled. Also sets and removes the
# marker file that tells the panel that a drive is mounted. Run by varnel-usbdrive@.service, which the udev rule
# starts.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/varnel-panel.sh"

usage() {
    echo "Usage: $SCRIPT_NAME attach|detach DEVICE"
}

MARKER=$(panel_setting Files UsbDriveFile /tmp/usbdrive)

# The mount that the panel sees is a copy of one that is prepared aside: see unlock_mount.
STAGE=$STATE_DIR/usbdrive

# check_device DEVICE: by its number udev knows it under this very name, on USB, with a filesystem. A node or a link that
# somebody else has put into /dev leads to another device, or to none.
check_device() {
    if [ -L "$1" ] || [ ! -b "$1" ]; then
        fail "$1 is no block device"
    fi
    number=$(stat -c '%Hr:%Lr' -- "$1")
    found=$(udevadm info --query=property --path="/sys/dev/block/$number" 2>/dev/null) || found=
    for property in "DEVNAME=$1" SUBSYSTEM=block ID_BUS=usb ID_FS_USAGE=filesystem; do
        printf '%s\n' "$found" | grep -Fqx -- "$property" || fail "$1 is no USB drive with a filesystem ($property)"
    done
    TYPE=$(printf '%s\n' "$found" | sed -n 's/^ID_FS_TYPE=//p')
}

# FAT and exFAT have no owners: all files on them belong to the panel. Those of other filesystems keep their owners.
owner_options() {
    case $TYPE in
        vfat | exfat) ! id -u "$PANEL_GROUP" >/dev/null 2>&1 ||
            echo ",uid=$(id -u "$PANEL_GROUP"),gid=$(id -g "$PANEL_GROUP")" ;;
    esac
}

# A link on a stick must not lead to a file of the panel.
mount_stage() {
    options=ro,$USB_MOUNT_OPTIONS$(owner_options)
    mount --make-private -o "$options,nosymfollow" -- "$1" "$STAGE" && return 0
    mount --make-private -o "$options" -- "$1" "$STAGE" || return 1
    say "this system cannot mount $1 with nosymfollow: links on it are followed"
}

mount_drive() {
    mkdir -p -- "$STAGE"
    mount_stage "$1" || return 1
    unlock_mount "$STAGE" && mount --bind -- "$STAGE" "$POINT" && mounted=yes || mounted=no
    umount -- "$STAGE"
    rmdir -- "$STAGE"
    [ "$mounted" = yes ]
}

# set_marker DEVICE: the marker is a link, because it is in a directory in which everybody may write: a link is made and
# replaced without opening anything. Where others could replace it, there is none.
set_marker() {
    directory=$(dirname -- "$MARKER")
    mkdir -p -- "$directory" || return 1
    if [ -z "$(find -L "$directory" -maxdepth 0 -user root \( ! -perm /022 -o -perm -1000 \))" ]; then
        say "others can replace files in $directory, where UsbDriveFile is"
        return 1
    fi
    replace_file 0644 "$DRIVE_RECORD" "$1" && ln -sfT -- "$DRIVE_RECORD" "$MARKER"
}

# An empty file varnel-report on the drive asks for a report.
start_report() {
    request=$POINT/varnel-report
    if [ -f "$request" ] && [ ! -L "$request" ] && [ ! -s "$request" ]; then
        systemctl --no-block start varnel-report.service || say "cannot start the report that the drive asks for"
    fi
}

# The panel has one slot and one mount point: with two partitions, or two drives on a hub, the first one counts.
attach() {
    check_device "$1"
    if mountpoint -q -- "$POINT"; then
        fail "a drive is already mounted on $POINT, $1 is left alone"
    fi
    mkdir -p -- "$POINT"
    close_mount_point "$POINT"
    mount_drive "$1" || fail "cannot mount $1 on $POINT"
    # The marker comes last, when the drive is usable.
    if ! set_marker "$1"; then
        rm -f -- "$DRIVE_RECORD"
        umount -l -- "$POINT"
        fail "cannot set the marker file $MARKER, $1 is left alone"
    fi
    start_report
}

# The drive may be gone already, so unmount lazily; remove the marker first, for the same reason as above. A drive from
# before an update of these scripts has no record.
detach() {
    if [ "$(attached_drive)" != "$1" ] && [ "$(mounted_device "$POINT")" != "$1" ]; then
        say "$1 is not the drive that is mounted on $POINT"
        return 0
    fi
    rm -f -- "$MARKER" "$DRIVE_RECORD" || :
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
case ${2#/dev/} in
    '' | "$2" | *[!A-Za-z0-9]*) bad_usage "'$2' is no device" ;;
esac
POINT=$(mount_point)
case $1 in
    attach | detach) "$1" "$2" ;;
    *) bad_usage "unknown verb '$1'" ;;
esac
