# SPDX-License-Identifier: MIT
# shellcheck shell=sh disable=SC2034
# What the panel's device scripts share: messages, settings, checks of what comes from the controller, and files
# that change in one step. It lies beside the scripts, each of which begins with
#
#     set -eu
#     . "$(dirname -- "$(readlink -f -- "$0")")/varnel-common.sh"
#
# The panel waits 30 s for a script and ignores its exit status; the status and the messages on standard error are
# for the integrator, who sees them with QT_LOGGING_RULES=varnel.script.debug=true or by running a script by hand.

LC_ALL=C
export LC_ALL
PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
export PATH
umask 022

SCRIPT_NAME=$(basename -- "$0")
SCRIPT_DIR=$(dirname -- "$(readlink -f -- "$0")")

# Stands in every file that the scripts write whole, to tell it from one of the distribution or the integrator.
MADE_BY_MARK="Written by the panel's device scripts; changes are lost."

# The two places where an integrator changes something: the panel's own settings and these scripts' settings.
PANEL_SETTINGS=/usr/local/etc/varnel-browser.ini
DEVICE_SETTINGS=/usr/local/etc/varnel-device.conf

# --- messages ---

# say TEXT...: one line on standard error, with the script's name.
say() {
    printf '%s: %s\n' "$SCRIPT_NAME" "$*" >&2
}

# fail TEXT...: says why and ends the script with status 1.
fail() {
    say "$@"
    exit 1
}

# bad_usage TEXT...: says what is wrong with the arguments, shows usage() of the script, ends with status 2.
bad_usage() {
    say "$@"
    usage >&2
    exit 2
}

# --- settings ---

# panel_setting GROUP KEY DEFAULT: a key of the panel's settings file, so that a path both need stands in one place.
panel_setting() {
    if [ -r "$PANEL_SETTINGS" ]; then
        awk -v group="$1" -v key="$2" -v value="$3" '
            /^[ \t]*\[.*\][ \t\r]*$/ { current = $0; gsub(/^[ \t]*\[|\][ \t\r]*$/, "", current); next }
            current == group {
                at = index($0, "=")
                name = substr($0, 1, at - 1)
                gsub(/^[ \t]+|[ \t]+$/, "", name)
                if (at > 0 && name == key) {
                    value = substr($0, at + 1)
                    gsub(/^[ \t]+|[ \t\r]+$/, "", value)
                    if (value ~ /^".*"$/)
                        value = substr(value, 2, length(value) - 2)
                }
            }
            END { print value }' "$PANEL_SETTINGS"
    else
        printf '%s\n' "$3"
    fi
}

# Every setting with its default; device/varnel-device.conf explains them. The defaults are assigned, not taken over
# from the environment: what the panel happens to be started with must not change what its scripts do.
load_settings() {
    STATE_DIR=/run/varnel
    KEEP_DIR=/var/lib/varnel

    R7M_DROPIN_DIR=/usr/local/etc/r7m.d
    R7M_HOST_NAMES="r7m controller"
    R7M_DROPIN_SECONDS=15

    NET_INTERFACE=eth0
    NET_BACKEND=auto
    NET_WAIT_SECONDS=6

    SNMP_USER=Debian-snmp
    SNMP_AGENT_PORT=
    SNMP_CONTROLLER_PORT=

    MODBUS_SERVER_PORT=
    MODBUS_BUS=system

    USB_MOUNT_OPTIONS=nosuid,nodev,noexec

    if [ -r "$DEVICE_SETTINGS" ]; then
        # shellcheck disable=SC1090
        . "$DEVICE_SETTINGS"
    fi
}

# --- checks: each returns 0 when the value is what its name says ---

is_number() {
    case $1 in
        '' | *[!0-9]*) return 1 ;;
    esac
    [ "${#1}" -le 10 ]
}

is_port() {
    is_number "$1" && [ "$1" -ge 1 ] && [ "$1" -le 65535 ]
}

# Four decimal octets without leading zeros; "010" is refused because some programs read it as octal.
is_ipv4() {
    case $1 in
        '' | *[!0-9.]* | .* | *. | *..*) return 1 ;;
    esac
    checked=$1
    set -- 0 0
    rest=$checked.
    while [ -n "$rest" ]; do
        octet=${rest%%.*}
        rest=${rest#*.}
        case $octet in
            0?* | ????*) return 1 ;;
        esac
        [ "$octet" -le 255 ] || return 1
        set -- $(($1 + 1)) 0
    done
    [ "$1" -eq 4 ]
}

# An address that one host can have: no 0.x, loopback, multicast or broadcast.
is_host_address() {
    is_ipv4 "$1" || return 1
    case $1 in
        0.* | 127.* | 22[4-9].* | 23?.* | 24?.* | 25?.*) return 1 ;;
    esac
}

# ipv4_number ADDRESS: the address as one number; the address has been checked before.
ipv4_number() {
    rest=$1.
    number=0
    while [ -n "$rest" ]; do
        number=$((number * 256 + ${rest%%.*}))
        rest=${rest#*.}
    done
    printf '%s\n' "$number"
}

# prefix_length NETMASK: 255.255.255.0 gives 24; fails for a mask with holes and for what is no address.
prefix_length() {
    is_ipv4 "$1" || return 1
    mask=$(ipv4_number "$1")
    bits=0
    while [ $((mask & 0x80000000)) -ne 0 ]; do
        mask=$(((mask << 1) & 0xffffffff))
        bits=$((bits + 1))
    done
    [ "$mask" -eq 0 ] || return 1
    printf '%s\n' "$bits"
}

# Printable ASCII without the two characters that a quoted word of a configuration file cannot hold unchanged.
# Other octets have no one spelling between the controller's Latin-1 and the panel's locale.
is_plain_text() {
    case $1 in
        *[!\ -~]* | *\"* | *\\*) return 1 ;;
    esac
}

# Plain text that is one bare word: no blank, no apostrophe, and no leading "-", which would read as an option.
is_word() {
    case $1 in
        '' | -* | *[!\!-~]* | *[\'\"\\]*) return 1 ;;
    esac
}

# A name that may stand in a path or on a command line: an interface, a user, a device.
is_name() {
    case $1 in
        '' | -* | .* | *[!A-Za-z0-9._@:-]*) return 1 ;;
    esac
}

# --- files ---

# replace_file MODE PATH CONTENT [OWNER]: writes the content and a newline aside, brings it to the medium and moves it
# into place: a reader sees the former file or the new one, also after a power cut.
replace_file() {
    replace_aside=$2.new.$$
    if mkdir -p -- "$(dirname -- "$2")" &&
        (umask 077 && printf '%s\n' "$3" >"$replace_aside") &&
        chmod -- "$1" "$replace_aside" &&
        { [ -z "${4:-}" ] || chown -- "$4" "$replace_aside"; } &&
        sync -- "$replace_aside" &&
        mv -f -- "$replace_aside" "$2"; then
        return 0
    fi
    rm -f -- "$replace_aside"
    say "cannot write $2"
    return 1
}

# keep_original PATH: puts the distribution's own file aside once, before the first of ours takes its place.
keep_original() {
    if [ -f "$1" ] && [ ! -e "$1.before-varnel" ] && ! grep -q "$MADE_BY_MARK" "$1"; then
        cp -p -- "$1" "$1.before-varnel"
    fi
}

# private_dir PATH: a directory that root alone can look into.
private_dir() {
    mkdir -p -- "$1" && chmod 0700 -- "$1"
}

# --- the USB drive ---

# unlock_mount POINT: leaves the decision between ro and rw to the filesystem. A mount has a read-only flag of its own,
# beside the filesystem's; a service with a view of its own of the mounts keeps a copy of the former, which a remount
# outside of it does not reach. The mount's other flags stay.
unlock_mount() {
    mount -o remount,bind,rw -- "$1"
}

# --- services ---

have() {
    command -v "$1" >/dev/null 2>&1
}

# allow_seconds N: all that follows, until the next call, may take so long together. The panel kills a script after
# 30 s, and one that has to put a former state back needs a share of them for that.
allow_seconds() {
    DEADLINE=$(($(date +%s) + $1))
}

# The whole seconds that are left, at least one.
seconds_left() {
    left=$((DEADLINE - $(date +%s)))
    [ "$left" -ge 1 ] || left=1
    echo "$left"
}

# control_service VERB NAME: start, stop or restart, with the panel's init system.
control_service() {
    if [ -d /run/systemd/system ]; then
        # Several configurations in a row are no crash loop: start afresh with systemd's own count.
        systemctl reset-failed "$2.service" 2>/dev/null || :
        timeout "$(seconds_left)" systemctl --no-ask-password "$1" "$2.service" >&2
    elif [ -x "/etc/init.d/$2" ]; then
        timeout "$(seconds_left)" "/etc/init.d/$2" "$1" >/dev/null
    else
        say "no service $2 on this panel"
        return 1
    fi
}

# await SECONDS COMMAND...: runs the command ten times a second until it succeeds; fails when the time is over.
await() {
    await_left=$(($1 * 10))
    shift
    until "$@"; do
        await_left=$((await_left - 1))
        [ "$await_left" -gt 0 ] || return 1
        sleep 0.1
    done
}

load_settings
allow_seconds 25
