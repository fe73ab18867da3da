#!/bin/sh
# SPDX-License-Identifier: MIT
# Hostile arguments for every device script: no file outside its own is written, no other program is started, and a
# configuration has no line that was not meant. Each command gets a quarter of the values,
# each in one place; VARNEL_ARGUMENTS=all tries every value in every place, which takes half an hour.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/testlib.sh"
enter_namespace "$@"

# As in the packaged panel, where systemd brings into effect what the scripts have written down.
mkdir -p /run/systemd/system /etc/systemd/system /run/varnel /run/keep
for kind in snmp network modbus; do
    touch "/etc/systemd/system/varnel-config-$kind.path"
done
# No disk of this machine may be mounted.
mount -t tmpfs -o mode=0755 tmpfs /dev
for device in null:3 zero:5 urandom:9; do
    mknod -m 0666 "/dev/${device%:*}" c 1 "${device#*:}"
done
mount -t tmpfs -o mode=1777 tmpfs /tmp
mount -t tmpfs -o mode=1777 tmpfs /var/tmp
echo "NET_INTERFACE=lo" >>/usr/local/etc/varnel-device.conf
mount -o remount,bind,ro /
mkdir "$WORK/here"
cd "$WORK/here"

exec setpriv --bounding-set -sys_ptrace -- python3 "$TEST_DIR/arguments.py" "$SCRIPTS" "${VARNEL_ARGUMENTS:-some}"
