# SPDX-License-Identifier: MIT
# shellcheck shell=sh disable=SC2034
# The panel's device scripts share this: messages, settings, checks of the controller's data, and files that change
# in one step. It is in the directory of the scripts, each of which begins with
#
#     set -eu
#     . "$(dirname -- "$(readlink -f -- "$0")")/varnel-common.sh"
#
# The panel waits for these scripts and does nothing else meanwhile. On its processor each program that a script starts
# takes 10 ms and more, so scripts that run often use built-in commands of the shell.

LC_ALL=C
export LC_ALL
PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
export PATH
umask 022

SCRIPT_NAME=${0##*/}
SCRIPT_DIR=${0%/*}
[ -r "$SCRIPT_DIR/varnel-common.sh" ] || SCRIPT_DIR=$(dirname -- "$(readlink -f -- "$0")")

# A line end, for patterns and lists.
NEWLINE='
'

# Marks every file that the scripts write as a whole, to distinguish it from one of the distribution or the
# integrator.
MADE_BY_MARK="Written by the panel's device scripts; changes are lost."

# The two places where an integrator changes something: the panel's own settings and these scripts' settings.
PANEL_SETTINGS=/usr/local/etc/varnel-browser.ini
DEVICE_SETTINGS=/usr/local/etc/varnel-device.conf

# --- messages ---

# say TEXT...: one line on standard error, with the script's name; a character that is not printable ASCII becomes
# "?".
say() {
    said="$SCRIPT_NAME: $*"
    case $said in
        *[!\ -~]*) said=$(printf '%s' "$said" | tr -c ' -~' '?') ;;
    esac
    printf '%.400s\n' "$said" >&2
}

# fail TEXT...: says why and ends the script with status 1.
fail() {
    say "$@"
    exit 1
}

# bad_usage TEXT...: says what is wrong with the arguments and ends the script with status 2.
bad_usage() {
    say "$* ($SCRIPT_NAME --help shows the usage)"
    exit 2
}

# --- settings ---

# panel_setting GROUP KEY DEFAULT: a key of the panel's settings file, so that a path that both need is set in one
# place.
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

# Every setting with its default; device/varnel-device.conf explains them. The defaults are assigned, not taken from
# the environment: the panel's environment must not change what its scripts do.
load_settings() {
    STATE_DIR=/run/varnel
    KEEP_DIR=/var/lib/varnel

    R7M_DROPIN_DIR=/usr/local/etc/r7m.d
    R7M_HOST_NAMES="r7m controller"
    R7M_DROPIN_SECONDS=15

    NET_INTERFACE=eth0
    NET_BACKEND=auto
    NET_WAIT_SECONDS=60

    APPLY_PAUSE_SECONDS=5

    SNMP_USER=Debian-snmp
    SNMP_AGENT_PORT=
    SNMP_CONTROLLER_PORT=

    MODBUS_SERVER_PORT=
    MODBUS_PORTS="502 1024-65535"
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
    case $1 in
        0*) return 1 ;;
    esac
    is_number "$1" && [ "$1" -ge 1 ] && [ "$1" -le 65535 ]
}

# Four decimal octets without leading zeros; "010" is refused because some programs read it as octal.
is_ipv4() {
    case $1 in
        '' | *[!0-9.]* | .* | *. | *..*) return 1 ;;
        *.*.*.*.*) return 1 ;;
        *.*.*.*) ;;
        *) return 1 ;;
    esac
    rest=$1.
    while [ -n "$rest" ]; do
        octet=${rest%%.*}
        rest=${rest#*.}
        case $octet in
            0?* | ????*) return 1 ;;
        esac
        [ "$octet" -le 255 ] || return 1
    done
}

# An address that one host can have: no 0.x, loopback, multicast or broadcast.
is_host_address() {
    is_ipv4 "$1" || return 1
    case $1 in
        0.* | 127.* | 22[4-9].* | 23?.* | 24?.* | 25?.*) return 1 ;;
    esac
}

# ipv4_number ADDRESS: sets number; the address has been checked before.
ipv4_number() {
    rest=$1.
    number=0
    while [ -n "$rest" ]; do
        number=$((number * 256 + ${rest%%.*}))
        rest=${rest#*.}
    done
}

# prefix_length NETMASK: sets prefix, 24 for 255.255.255.0; fails for a mask with holes and for what is no address.
prefix_length() {
    is_ipv4 "$1" || return 1
    ipv4_number "$1"
    prefix=0
    while [ $((number & 0x80000000)) -ne 0 ]; do
        number=$(((number << 1) & 0xffffffff))
        prefix=$((prefix + 1))
    done
    [ "$number" -eq 0 ]
}

# Printable ASCII without the two characters that a quoted word of a configuration file cannot hold unchanged.
# Other bytes differ between the controller's Latin-1 and the panel's locale.
is_plain_text() {
    case $1 in
        *[!\ -~]* | *\"* | *\\*) return 1 ;;
    esac
}

# Plain text of up to 64 characters that is one bare word: no blank, no apostrophe, no leading "-", which would read as
# an option, and no leading "#", which would begin a comment. The controller's fields have 32 octets.
is_word() {
    case $1 in
        '' | [-#]* | *[!\!-~]* | *[\'\"\\]*) return 1 ;;
    esac
    [ "${#1}" -le 64 ]
}

# A name that is safe in a path or on a command line: an interface, a user, a device.
is_name() {
    case $1 in
        '' | -* | .* | *[!A-Za-z0-9._@:-]*) return 1 ;;
    esac
}

# --- files ---

# replace_file MODE PATH CONTENT [OWNER]: writes the content and a newline to another file, syncs it to the disk and
# moves it into place: a reader sees the old file or the new one, also after a power cut.
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

# private_dir PATH: a directory that only root can read. One that another user has made is not used.
private_dir() {
    # Another script may be creating it.
    [ -d "$1" ] || (umask 022 && mkdir -p -- "${1%/*}" && mkdir -m 0700 -- "$1" 2>/dev/null) || [ -d "$1" ] ||
        fail "cannot make $1"
    if [ -h "$1" ] || [ ! -O "$1" ]; then
        fail "$1 is not a directory of $(id -un)'s own"
    fi
}

# --- the USB drive ---

# unlock_mount POINT: leaves the decision between ro and rw to the filesystem. A mount has a read-only flag of its own,
# beside the filesystem's; a service with a private view of the mounts keeps a copy of the former, which a remount
# outside does not change. The mount's other flags stay.
unlock_mount() {
    mount -o remount,bind,rw -- "$1"
}

# --- wishes ---

# A wish is a configuration that the controller wants. The script that checked it moves its description, one file, to
# $STATE_DIR/wanted/KIND; varnel-config applies it. KIND is snmp, network or modbus.

# unit_starts_applier KIND: systemd watches for the wish.
unit_starts_applier() {
    [ -d /run/systemd/system ] || return 1
    for unit_dir in /etc/systemd/system /usr/local/lib/systemd/system /lib/systemd/system /usr/lib/systemd/system; do
        if [ -e "$unit_dir/varnel-config-$1.path" ]; then
            return 0
        fi
    done
    return 1
}

# start_applier KIND: lets varnel-config check the kind again, in the background.
start_applier() {
    if unit_starts_applier "$1"; then
        systemctl --no-block start "varnel-config@$1.service"
    else
        setsid --fork "$SCRIPT_DIR/varnel-config" apply "$1" </dev/null >/dev/null 8>&- 9>&-
    fi
}

# hand_over KIND FILE: makes the file, complete and on the same filesystem, the wish in one step. The last wish wins.
hand_over() {
    private_dir "$STATE_DIR/wanted"
    mv -f -- "$2" "$STATE_DIR/wanted/$1"
    unit_starts_applier "$1" || start_applier "$1"
}

# write_wish KIND TEXT: writes a wish with this description.
write_wish() {
    private_dir "$STATE_DIR/wanted"
    umask 077
    printf '%s\n' "$2" >"$STATE_DIR/wanted/.new-$1" || fail "cannot write to $STATE_DIR/wanted"
    hand_over "$1" "$STATE_DIR/wanted/.new-$1"
}

# registered_controller: sets registered, the address of the controller that r7m.sh has registered, or nothing.
registered_controller() {
    registered=
    if [ -r "$STATE_DIR/controller" ]; then
        read -r registered <"$STATE_DIR/controller" || :
        registered=${registered#ADDRESS=}
        is_host_address "$registered" || registered=
    fi
}

# snmp_wish: sets wish, the file of the last SNMP description, or nothing, and wish_controller, the address in it. A
# description moves from the wish to its place on the disk, or below $STATE_DIR/keep if the disk cannot be written, and is
# looked for in this order.
snmp_wish() {
    wish_controller=
    for wish in "$STATE_DIR/wanted/snmp" "$STATE_DIR/taken/snmp" "$STATE_DIR/keep/wanted/snmp" \
        "$STATE_DIR/keep/effective/snmp" "$KEEP_DIR/wanted/snmp" "$KEEP_DIR/effective/snmp"; do
        if [ -e "$wish" ]; then
            while IFS= read -r wish_line; do
                case $wish_line in
                    "controller "*)
                        wish_controller=${wish_line#controller }
                        return
                        ;;
                esac
            done <"$wish"
        fi
    done
    wish=
}

have() {
    command -v "$1" >/dev/null 2>&1
}

load_settings
