#!/bin/sh
# SPDX-License-Identifier: MIT
# usbremount.sh and usbdrive.sh on a real filesystem, the udev rule and the unit that run the latter.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/testlib.sh"
enter_namespace "$@"

POINT=/run/usbmnt
MARKER=/run/usbdrive

# places DIRECTORY MARKER: the panel's settings for a drive
places() {
    printf '[Files]\nDirectory=%s\nUsbDriveFile=%s\n' "$1" "$2" >/usr/local/etc/varnel-browser.ini
}

is_state() {
    findmnt -n -o OPTIONS "$POINT" | grep -Eq "^$1,"
}

# --- usbremount.sh ---

says 3 "no drive is mounted on $POINT" usbremount.sh rw

mount -t tmpfs -o ro tmpfs "$POINT"
says 3 "was not mounted by usbdrive.sh" usbremount.sh rw
check "a mount of somebody else: read-only as before" is_state ro
mkdir -p /run/varnel
echo tmpfs >/run/varnel/usbdrive.device
run 0 "rw: remounted" usbremount.sh rw
check "rw: can be written" touch "$POINT/file"
run 0 "rw again: no error" usbremount.sh rw

exec 9>"$POINT/open"
says 4 "busy" usbremount.sh ro
check "busy: still read-write" is_state rw
exec 9>&-
run 0 "ro: remounted" usbremount.sh ro
check "ro: read-only" is_state ro
check "ro: what was written stays" test -e "$POINT/file"

before=$(cat /proc/self/mountinfo)
wrong_usage usbremount.sh "" "rx" "RW" "rw ro" "ro /" "-o" "rw,exec"
for directory in / /run/../ relative /run//usbmnt; do
    places "$directory" "$MARKER"
    run 1 "mount point '$directory': refused" usbremount.sh rw
done
places /run/test "$MARKER"
run 3 "a directory without a mount: missing" usbremount.sh rw
check_equal "refused: no mount changed" "$before" "$(cat /proc/self/mountinfo)"
umount "$POINT"
rm /run/varnel/usbdrive.device
places "$POINT" "$MARKER"

# --- usbdrive.sh with a filesystem image on a loop device ---

truncate -s 1M "$WORK/image"
mke2fs -q "$WORK/image"
device=$(losetup --find --show "$WORK/image")
trap 'umount -l "$POINT" 2>/dev/null || :; losetup -d "$device" 2>/dev/null || :' EXIT

# A loop device has no bus; what udev finds out about a stick is put into its records.
record=/run/udev/data/b$(stat -c '%Hr:%Lr' "$device")
mkdir -p /run/udev/data
# stick PROPERTY...
stick() {
    printf 'I:1\n' >"$record"
    printf 'E:%s\n' "$@" >>"$record"
}

says 1 "$device is no USB drive with a filesystem (ID_BUS=usb)" usbdrive.sh attach "$device"
stick ID_BUS=ata ID_FS_USAGE=filesystem
says 1 "(ID_BUS=usb)" usbdrive.sh attach "$device"
stick ID_BUS=usb ID_FS_USAGE=crypto
says 1 "(ID_FS_USAGE=filesystem)" usbdrive.sh attach "$device"
stick ID_BUS=usb ID_FS_USAGE=filesystem ID_FS_TYPE=ext2
ln -s "$device" /dev/varnellink
says 1 "/dev/varnellink is no block device" usbdrive.sh attach /dev/varnellink
rm /dev/varnellink
mknod /dev/varnelnode b "$(stat -c %Hr "$device")" "$(stat -c %Lr "$device")"
says 1 "/dev/varnelnode is no USB drive with a filesystem (DEVNAME=/dev/varnelnode)" usbdrive.sh attach /dev/varnelnode
rm /dev/varnelnode
for name in /dev/../etc/passwd /dev/disk/by-id/x /dev/ "/dev/sda 1" "/dev/sda;id" /dev/-sda; do
    run 2 "the name '$name': refused" usbdrive.sh attach "$name"
done
check_not "refused: nothing is mounted" mountpoint -q "$POINT"

# Files that an attacker has put where the marker is to be, in a directory in which everybody may write.
mkdir -m 1777 /run/tmp
echo victim >/run/victim
chown nobody /run/tmp
places "$POINT" /run/tmp/usbdrive
says 1 "others can replace files in /run/tmp" usbdrive.sh attach "$device"
check_not "a marker in a directory of somebody else: not mounted" mountpoint -q "$POINT"
chown root /run/tmp
ln -s /run/victim /run/tmp/usbdrive
run 0 "a link in the marker's place: mounted" usbdrive.sh attach "$device"
check_equal "a link in the marker's place: replaced, not followed" "victim" "$(cat /run/victim)"
check "a link in the marker's place: the marker is there" test -e /run/tmp/usbdrive
check_equal "nothing else is made beside the marker" "usbdrive" "$(ls -A /run/tmp)"
rm /run/tmp/usbdrive
ln -s /run/victim /run/tmp/usbdrive
run 0 "a marker that was exchanged: detached" usbdrive.sh detach "$device"
check "a marker that was exchanged: its target stays" test -s /run/victim
mkdir -p /run/tmp/usbdrive/full
says 1 "cannot set the marker file" usbdrive.sh attach "$device"
check_not "a directory in the marker's place: not mounted" mountpoint -q "$POINT"
places "$POINT" "$MARKER"

# Owners: FAT and exFAT, which have none, are the panel's. This kernel need not know them: the options are looked at.
echo 'varnel:x:4711:4712::/:/bin/false' >>/etc/passwd
echo 'varnel:x:4712:' >>/etc/group
mkdir -p /usr/local/sbin
mount -t tmpfs tmpfs /usr/local/sbin
# shellcheck disable=SC2016
printf '%s\n' '#!/bin/sh' 'echo "$*" >>/run/mounts' 'exit 1' >/usr/local/sbin/mount
chmod 0755 /usr/local/sbin/mount
for type in vfat exfat ext4; do
    stick ID_BUS=usb ID_FS_USAGE=filesystem ID_FS_TYPE=$type
    : >/run/mounts
    run 1 "$type: not mounted" usbdrive.sh attach "$device"
    sed -n 's/.*-o \([^ ]*\) .*/\1/p' /run/mounts | head -n 1 >/run/options
    case $type in
        ext4) check_not "ext4: owners as on the stick" grep -q uid= /run/options ;;
        *) check "$type: the panel's" grep -q ',uid=4711,gid=4712,' /run/options ;;
    esac
    check "$type: links are not followed" grep -q ',nosymfollow$' /run/options
done
umount /usr/local/sbin
stick ID_BUS=usb ID_FS_USAGE=filesystem ID_FS_TYPE=ext2

run 0 "attach: mounted" usbdrive.sh attach "$device"
check "attach: read-only" is_state ro
check "attach: marker" test -e "$MARKER"
check "attach: no programs, devices or set-user-id from a stick" \
    sh -c "findmnt -n -o OPTIONS $POINT | grep nosuid | grep nodev | grep -q noexec"
says 1 "already mounted" usbdrive.sh attach "$device"
check_equal "marker: names the first drive" "$device" "$(cat "$MARKER")"
check "attach: links are not followed" sh -c "findmnt -n -o OPTIONS $POINT | grep -q nosymfollow"

run 0 "rw on the image: remounted" usbremount.sh rw
echo "a log" >"$POINT/log.txt"
run 0 "ro on the image: remounted" usbremount.sh ro
check "ro: the file is on the medium" sh -c "debugfs -R 'cat /log.txt' '$WORK/image' 2>/dev/null | grep -qx 'a log'"
check "remount: the drive's own limits stay" \
    sh -c "findmnt -n -o OPTIONS $POINT | grep noexec | grep -q nosymfollow"

# --- a service with a view of its own of the mounts: it sees the drive writable exactly between rw and ro ---

run 0 "detach: done" usbdrive.sh detach "$device"
mount --make-shared /run
# confined FIFO: a process with its own copy of the mounts, which gets those of the test, but not the other way round
confined() {
    mkfifo "$WORK/$1"
    # shellcheck disable=SC2016
    unshare --mount --propagation slave sh -c 'echo >"$1"; exec sleep 1000' sh "$WORK/$1" &
    confined_pid=$!
    read -r _ <"$WORK/$1"
}
inside() {
    nsenter --mount="/proc/$confined_pid/ns/mnt" -- "$@" 2>/dev/null
}

confined before
run 0 "attach under a service: mounted" usbdrive.sh attach "$device"
check "attach under a service: seen inside" inside mountpoint -q "$POINT"
check_not "attach: nothing is left aside" sh -c 'grep -q /run/varnel /proc/self/mountinfo'
for turn in first second; do
    run 0 "rw, $turn time" usbremount.sh rw
    check "rw, $turn time: inside can write" inside touch "$POINT/$turn"
    run 0 "ro, $turn time" usbremount.sh ro
    check_not "ro, $turn time: inside cannot write" inside touch "$POINT/refused"
done
kill "$confined_pid"
confined after
run 0 "rw for a service that came later" usbremount.sh rw
check "rw: it can write" inside touch "$POINT/later"
run 0 "ro for it" usbremount.sh ro
check_not "ro: it cannot write" inside touch "$POINT/refused"
check "inside: no programs, devices or set-user-id either" \
    inside sh -c "findmnt -n -o OPTIONS $POINT | grep nosuid | grep nodev | grep -q noexec"
run 0 "detach under a service: done" usbdrive.sh detach "$device"
check_not "detach: gone inside, too" inside mountpoint -q "$POINT"
kill "$confined_pid"
run 0 "attach again" usbdrive.sh attach "$device"

run 0 "detach of another device: nothing" usbdrive.sh detach /dev/other
check "detach of another device: still mounted" mountpoint -q "$POINT"
exec 8<"$POINT/log.txt"
run 0 "detach with a file open: let go" usbdrive.sh detach "$device"
exec 8<&-

run 0 "attach once more" usbdrive.sh attach "$device"
rm /run/varnel/usbdrive.device "$MARKER"
echo "$device" >"$MARKER"
run 0 "detach of a drive from before an update" usbdrive.sh detach "$device"
check_not "a drive from before an update: not mounted" mountpoint -q "$POINT"
check_not "a drive from before an update: no marker" test -e "$MARKER"

# A drive with an empty file varnel-report asks for a report.
mount -t tmpfs tmpfs /usr/local/sbin
# shellcheck disable=SC2016
printf '%s\n' '#!/bin/sh' 'echo "$*" >>/run/started' >/usr/local/sbin/systemctl
chmod 0755 /usr/local/sbin/systemctl
: >/run/started
# asks COMMAND...: what is started for a drive on which the command was run
asks() {
    mount "$WORK/image" /mnt
    rm -rf /mnt/varnel-report
    "$@"
    umount /mnt
    run 0 "after '$*': attached" usbdrive.sh attach "$device"
    run 0 "after '$*': detached" usbdrive.sh detach "$device"
}
asks true
asks sh -c 'echo text >/mnt/varnel-report'
asks ln -s /dev/null /mnt/varnel-report
asks mkdir /mnt/varnel-report
check_equal "no request: no report" "" "$(cat /run/started)"
asks touch /mnt/varnel-report
check_equal "a request: the report is started" "--no-block start varnel-report.service" "$(cat /run/started)"
umount /usr/local/sbin
check_not "detach: not mounted" mountpoint -q "$POINT"
check_not "detach: no marker" test -e "$MARKER"

dd if=/dev/zero of="$WORK/image" bs=64k count=1 conv=notrunc status=none
run 1 "a drive without a filesystem: refused" usbdrive.sh attach "$device"
check_not "a drive without a filesystem: no marker" test -e "$MARKER"
run 1 "a file instead of a drive: refused" usbdrive.sh attach /dev/null
run 2 "a path elsewhere: refused" usbdrive.sh attach /etc/passwd

# --- without a drive its directory is closed ---

# ramfs and tmpfs have no such attribute; this one has.
truncate -s 1M "$WORK/image2"
mke2fs -q -F "$WORK/image2"
mkdir -p /run/disk
mount "$WORK/image2" /run/disk
mkdir -m 0777 /run/disk/point
places /run/disk/point "$MARKER"
stick ID_BUS=usb ID_FS_USAGE=filesystem ID_FS_TYPE=ext2
mke2fs -q -F "$WORK/image"
run 0 "attach to a directory of a disk" usbdrive.sh attach "$device"
run 0 "detach from it" usbdrive.sh detach "$device"
check_not "without a drive: root itself cannot write" sh -c "touch /run/disk/point/file 2>/dev/null"
check_equal "without a drive: nobody else could" "755" "$(stat -c %a /run/disk/point)"
run 0 "attach to it again" usbdrive.sh attach "$device"
run 0 "detach from it again" usbdrive.sh detach "$device"
umount /run/disk
places "$POINT" "$MARKER"
dd if=/dev/zero of="$WORK/image" bs=64k count=1 conv=notrunc status=none

mke2fs -q -F "$WORK/image"
losetup -d "$device"
device=$(losetup --find --show --read-only "$WORK/image")
record=/run/udev/data/b$(stat -c '%Hr:%Lr' "$device")
stick ID_BUS=usb ID_FS_USAGE=filesystem ID_FS_TYPE=ext2
run 0 "write-protected drive: mounted" usbdrive.sh attach "$device"
says 5 "write-protected" usbremount.sh rw
run 0 "write-protected drive: detached" usbdrive.sh detach "$device"

# --- the udev rule and the unit ---

mkdir -p /run/udev/rules.d /run/systemd/system
cp "$ROOT_DIR/device/udev/90-varnel-usbdrive.rules" /run/udev/rules.d/
# A loop device has no bus; what udev finds out about a stick is set in its place.
cat >/run/udev/rules.d/10-stick.rules <<END
KERNEL=="${device##*/}", ENV{ID_BUS}="usb", ENV{ID_FS_USAGE}="filesystem"
END
check "udev rule: a stick with a filesystem wants the unit" \
    sh -c "udevadm test --action=add /sys/class/block/${device##*/} 2>/dev/null |
        grep -q 'SYSTEMD_WANTS=varnel-usbdrive@${device##*/}.service'"
rm /run/udev/rules.d/10-stick.rules
check_not "udev rule: a built-in drive wants nothing" sh -c "udevadm test /sys/class/block/${device##*/} 2>/dev/null |
    grep -q varnel-usbdrive"

sed "s:@VARNEL_FULL_SCRIPT_DIR@:$SCRIPTS:" "$ROOT_DIR/device/systemd/varnel-usbdrive@.service.in" \
    >/run/systemd/system/varnel-usbdrive@.service
check_equal "unit: systemd finds nothing wrong" "" \
    "$(systemd-analyze verify --man=no "varnel-usbdrive@${device##*/}.service" 2>&1 | grep varnel-usbdrive || :)"
finish
