#!/bin/sh
# SPDX-License-Identifier: MIT
# usbremount.sh and usbdrive.sh on a real filesystem, the udev rule and the unit that run the latter.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/testlib.sh"
enter_namespace "$@"

POINT=/run/usbmnt
MARKER=/run/usbdrive

is_state() {
    findmnt -n -o OPTIONS "$POINT" | grep -Eq "^$1,"
}

# --- usbremount.sh ---

run 3 "no drive: missing" usbremount.sh rw
said "no drive is mounted on $POINT"

mount -t tmpfs -o ro tmpfs "$POINT"
run 0 "rw: remounted" usbremount.sh rw
check "rw: can be written" touch "$POINT/file"
run 0 "rw again: no error" usbremount.sh rw

exec 9>"$POINT/open"
run 4 "ro with an open file: busy" usbremount.sh ro
said "busy"
check "busy: still read-write" is_state rw
exec 9>&-
run 0 "ro: remounted" usbremount.sh ro
check "ro: read-only" is_state ro
check "ro: what was written stays" test -e "$POINT/file"

before=$(cat /proc/self/mountinfo)
for bad in "" "rx" "RW" "rw ro" "ro /" "-o" "rw,exec"; do
    # shellcheck disable=SC2086
    run 2 "argument '$bad': refused" usbremount.sh $bad
done
for directory in / /run/../ relative /run//usbmnt; do
    printf '[Files]\nDirectory=%s\n' "$directory" >/usr/local/etc/varnel-browser.ini
    run 1 "mount point '$directory': refused" usbremount.sh rw
done
printf '[Files]\nDirectory=/run/test\n' >/usr/local/etc/varnel-browser.ini
run 3 "a directory without a mount: missing" usbremount.sh rw
check_equal "refused: no mount changed" "$before" "$(cat /proc/self/mountinfo)"
umount "$POINT"
printf '[Files]\nDirectory=/run/usbmnt\nUsbDriveFile=/run/usbdrive\n' >/usr/local/etc/varnel-browser.ini

# --- usbdrive.sh with a filesystem image on a loop device ---

truncate -s 1M "$WORK/image"
mke2fs -q "$WORK/image"
device=$(losetup --find --show "$WORK/image")
trap 'umount -l "$POINT" 2>/dev/null || :; losetup -d "$device" 2>/dev/null || :' EXIT

run 0 "attach: mounted" usbdrive.sh attach "$device"
check "attach: read-only" is_state ro
check "attach: marker" test -e "$MARKER"
check "attach: no programs, devices or set-user-id from a stick" \
    sh -c "findmnt -n -o OPTIONS $POINT | grep nosuid | grep nodev | grep -q noexec"
run 1 "a second drive: left alone" usbdrive.sh attach "$device"
said "already mounted"
check_equal "marker: names the first drive" "$device" "$(cat "$MARKER")"

run 0 "rw on the image: remounted" usbremount.sh rw
echo "a log" >"$POINT/log.txt"
run 0 "ro on the image: remounted" usbremount.sh ro
check "ro: the file is on the medium" sh -c "debugfs -R 'cat /log.txt' '$WORK/image' 2>/dev/null | grep -qx 'a log'"
check "remount: the drive's own limits stay" sh -c "findmnt -n -o OPTIONS $POINT | grep -q noexec"

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
check_not "detach: not mounted" mountpoint -q "$POINT"
check_not "detach: no marker" test -e "$MARKER"

dd if=/dev/zero of="$WORK/image" bs=64k count=1 conv=notrunc status=none
run 1 "a drive without a filesystem: refused" usbdrive.sh attach "$device"
check_not "a drive without a filesystem: no marker" test -e "$MARKER"
run 1 "a file instead of a drive: refused" usbdrive.sh attach /dev/null
run 2 "a path elsewhere: refused" usbdrive.sh attach /etc/passwd

mke2fs -q -F "$WORK/image"
losetup -d "$device"
device=$(losetup --find --show --read-only "$WORK/image")
run 0 "write-protected drive: mounted" usbdrive.sh attach "$device"
run 5 "write-protected drive: rw is refused" usbremount.sh rw
said "write-protected"
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
