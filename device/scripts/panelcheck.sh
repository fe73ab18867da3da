#!/bin/sh
# SPDX-License-Identifier: MIT
# Run by varnel-browser.service before the panel, as root and outside of its confinement. It prepares what needs root's
# privileges, reports each problem of the panel in one line, and waits for the panel's display and for the address on which
# it listens. If one of them is missing, it fails, and so does the start.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/varnel-panel.sh"

usage() {
    echo "Usage: $SCRIPT_NAME (QT_QPA_PLATFORM in the environment, as the panel will see it)"
}

# How long one start waits; the service manager starts the next one right after it.
DISPLAY_SECONDS=5
ADDRESS_SECONDS=120

# --- settings ---

# The panel ignores mistakes in its files without a message; varnel-check finds them. It is in the panel's package.
LARGEST_NUMBER_OF_FINDINGS=10
check_files() {
    have varnel-check || return 0
    varnel-check --short settings pictures mapping 2>&1 | head -n "$LARGEST_NUMBER_OF_FINDINGS" |
        while read -r finding; do say "$finding"; done
}

# make_readable FILE: a file with a password must not be readable for everybody, but the panel has to read it.
make_readable() {
    [ -f "$1" ] || return 0
    [ -z "$(find -L "$1" -maxdepth 0 \( -perm -004 -o -group "$PANEL_GROUP" -perm -040 \))" ] || return 0
    if { chgrp -- "$PANEL_GROUP" "$1" && chmod g+r -- "$1"; } 2>/dev/null; then
        say "$1 could not be read by the panel: it belongs to the group $PANEL_GROUP now"
    else
        say "the panel cannot read $1 and takes defaults: chgrp $PANEL_GROUP $1 && chmod g+r $1"
    fi
}

# --- confinement ---

# The unit may open only a few devices. A kernel that cannot enforce this ignores it, and so does systemd; then this
# device can be opened.
check_confinement() {
    if [ -n "${INVOCATION_ID:-}" ] && (: </dev/kmsg) 2>/dev/null; then
        say "THE CONFINEMENT IS INCOMPLETE: this kernel does not hold the unit to its devices and addresses" \
            "(CONFIG_CGROUP_BPF)"
    fi
}

# --- outputs ---

check_outputs() {
    [ -e /sys/class/gpio/export ] || say "no GPIO lines below /sys/class/gpio: LEDs and buzzer stay dark"
    "$SCRIPT_DIR/paneloutputs.sh"
}

# --- directories ---

# In its confinement the panel sees these two directories as they are now.
prepare_directories() {
    mkdir -p -- /dev/input || :
    if point=$(mount_point); then
        mkdir -p -- "$point" 2>/dev/null || :
        [ ! -d "$point" ] || close_mount_point "$point"
    fi
}

# --- display ---

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

has_display() {
    case $1 in
        linuxfb*) [ -e "$(frame_buffer "$1")" ] ;;
        eglfs*)
            set -- /dev/dri/card*
            [ -e "$1" ]
            ;;
    esac
}

await_display() {
    looks=$((DISPLAY_SECONDS * 10))
    while [ "$looks" -gt 0 ]; do
        if has_display "$1"; then
            return 0
        fi
        looks=$((looks - 1))
        sleep 0.1
    done
    case $1 in
        linuxfb*) fail "no frame buffer $(frame_buffer "$1"): is its driver there? QT_QPA_PLATFORM=$1" ;;
        *) fail "no display below /dev/dri: is its driver there? QT_QPA_PLATFORM is eglfs" ;;
    esac
}

# --- address ---

# has_address INTERFACE ADDRESS: what the panel listens on is there; INTERFACE does not count beside ADDRESS.
has_address() {
    case $2 in
        '') [ -z "$1" ] || [ -n "$(ip -4 -o address show dev "$1" up 2>/dev/null)" ] ;;
        0.0.0.0 | 127.*) ;;
        *) ! is_ipv4 "$2" || ip -4 route show table local | grep -Eq "^(local|broadcast) $2( |$)" ;;
    esac
}

# The monitor reports each change. At first it may not listen yet, so check once more.
await_address() {
    interface=$(panel_setting Network UdpInterface eth1)
    address=$(panel_setting Network UdpBindAddress '')
    if has_address "$interface" "$address"; then
        return 0
    fi
    wanted=${address:-"an address of $interface"}
    say "waiting for $wanted, on which the panel listens"
    {
        timeout "$ADDRESS_SECONDS" ip monitor link address route &
        echo "$!"
        sleep 0.3
        echo
        wait
    } | {
        read -r monitor
        until has_address "$interface" "$address"; do
            read -r _ || break
        done
        kill "$monitor" 2>/dev/null || :
    }
    has_address "$interface" "$address" || fail "still waiting for $wanted: is the interface there and configured?"
}

no_arguments "$@"
if getent group "$PANEL_GROUP" >/dev/null; then
    make_readable "$PANEL_SETTINGS"
    make_readable "$(panel_setting ModbusServer ModbusMap /usr/local/etc/modbus.map)"
fi
check_files
check_confinement
check_outputs
prepare_directories
await_display "${QT_QPA_PLATFORM:-}"
await_address
