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

# mounted OPTION...: the drive's directory has these options of a mount.
mounted() {
    for option in "$@"; do
        findmnt -n -o OPTIONS "$POINT" | grep -Eq "(^|,)$option(,|$)" || return 1
    done
}

# --- usbremount.sh ---

says 3 "no drive is mounted on $POINT" usbremount.sh rw

mount -t tmpfs -o ro tmpfs "$POINT"
says 3 "was not mounted by usbdrive.sh" usbremount.sh rw
check "a mount of somebody else: read-only as before" mounted ro
mkdir -p /run/varnel
echo tmpfs >/run/varnel/usbdrive.device
run 0 "rw: remounted" usbremount.sh rw
check "rw: can be written" touch "$POINT/file"
run 0 "rw again: no error" usbremount.sh rw

exec 9>"$POINT/open"
says 4 "busy" usbremount.sh ro
check "busy: still read-write" mounted rw
exec 9>&-
run 0 "ro: remounted" usbremount.sh ro
check "ro: read-only" mounted ro

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
for name in /etc/passwd /dev/../etc/passwd /dev/disk/by-id/x /dev/ "/dev/sda 1" "/dev/sda;id" /dev/-sda; do
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
check_equal "a link in the marker's place: the marker is there, and nothing beside it" "usbdrive" "$(ls -A /run/tmp)"
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
stand_in /usr/local/sbin/mount <<'END'
#!/bin/sh
echo "$*" >>/run/mounts
exit 1
END
for type in vfat exfat ext4; do
    stick ID_BUS=usb ID_FS_USAGE=filesystem ID_FS_TYPE=$type
    : >/run/mounts
    run 1 "$type: not mounted" usbdrive.sh attach "$device"
    owners=$(sed -n '1s/.*\(,uid=[^,]*,gid=[^,]*,\).*nosymfollow .*/\1/p' /run/mounts)
    case $type in
        ext4) check_equal "ext4: owners as on the stick" "" "$owners" ;;
        *) check_equal "$type: the panel's, links are not followed" ",uid=4711,gid=4712," "$owners" ;;
    esac
done
rm /usr/local/sbin/mount
stick ID_BUS=usb ID_FS_USAGE=filesystem ID_FS_TYPE=ext2

run 0 "attach: mounted" usbdrive.sh attach "$device"
check "attach: read-only" mounted ro
check "attach: no programs, devices, set-user-id or links from a stick" mounted nosuid nodev noexec nosymfollow
says 1 "already mounted" usbdrive.sh attach "$device"
check_equal "marker: names the first drive" "$device" "$(cat "$MARKER")"

run 0 "rw on the image: remounted" usbremount.sh rw
echo "a log" >"$POINT/log.txt"
run 0 "ro on the image: remounted" usbremount.sh ro
check "ro: the file is on the medium" sh -c "debugfs -R 'cat /log.txt' '$WORK/image' 2>/dev/null | grep -qx 'a log'"
check "remount: the drive's own limits stay" mounted noexec nosymfollow

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

# The service is there before the drive at first, then comes after it.
confined before
run 0 "attach under a service: mounted" usbdrive.sh attach "$device"
check "attach under a service: seen inside" inside mountpoint -q "$POINT"
check_not "attach: nothing is left aside" grep -q /run/varnel /proc/self/mountinfo
for turn in first second later; do
    if [ "$turn" = later ]; then
        kill "$confined_pid"
        confined after
    fi
    run 0 "rw, $turn" usbremount.sh rw
    check "rw, $turn: inside can write" inside touch "$POINT/$turn"
    run 0 "ro, $turn" usbremount.sh ro
    check_not "ro, $turn: inside cannot write" inside touch "$POINT/refused"
done
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
stand_in /usr/local/sbin/systemctl <<'END'
#!/bin/sh
echo "$*" >>/run/started
END
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
rm /usr/local/sbin/systemctl
check_not "detach: not mounted" mountpoint -q "$POINT"
check_not "detach: no marker" test -e "$MARKER"

dd if=/dev/zero of="$WORK/image" bs=64k count=1 conv=notrunc status=none
run 1 "a drive without a filesystem: refused" usbdrive.sh attach "$device"
check_not "a drive without a filesystem: no marker" test -e "$MARKER"
run 1 "a file instead of a drive: refused" usbdrive.sh attach /dev/null

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
wants_unit() {
    udevadm test --action=add "/sys/class/block/${device##*/}" 2>/dev/null |
        grep -q "SYSTEMD_WANTS=varnel-usbdrive@${device##*/}.service"
}
check "udev rule: a stick with a filesystem wants the unit" wants_unit
rm /run/udev/rules.d/10-stick.rules
check_not "udev rule: a built-in drive wants nothing" wants_unit

sed "s:@VARNEL_FULL_SCRIPT_DIR@:$SCRIPTS:" "$ROOT_DIR/device/systemd/varnel-usbdrive@.service.in" \
    >/run/systemd/system/varnel-usbdrive@.service
check_equal "unit: systemd finds nothing wrong" "" \
    "$(systemd-analyze verify --man=no "varnel-usbdrive@${device##*/}.service" 2>&1 | grep varnel-usbdrive || :)"
finish
