#!/bin/sh
# SPDX-License-Identifier: MIT
# The scripts' shared part: checks, settings, files that change in one step; and the rules common to all scripts.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/testlib.sh"
enter_namespace "$@"

# The shared part with its state in the test's hands; it says "run.sh" where a script would say its own name.
cat >"$WORK/run.sh" <<END
#!/bin/sh
set -eu
. "$SCRIPTS/varnel-common.sh"
"\$@"
END
chmod 0755 "$WORK/run.sh"

shared() {
    "$WORK/run.sh" "$@" 2>"$WORK/err"
}

# accepts CHECK VALUE..., refuses CHECK VALUE...
accepts() {
    checked=$1
    shift
    for value in "$@"; do
        check "$checked: '$value' is one" shared "$checked" "$value"
    done
}
refuses() {
    checked=$1
    shift
    for value in "$@"; do
        check_not "$checked: '$value' is none" shared "$checked" "$value"
    done
}

newline='1.2.3.4
5'
accepts is_ipv4 0.0.0.0 1.2.3.4 192.168.1.20 255.255.255.255
refuses is_ipv4 "" 1.2.3 1.2.3.4.5 1.2.3.256 1.2.3.1234 01.2.3.4 1..2.3 .1.2.3 1.2.3. a.b.c.d 1.2.3.-4 " 1.2.3.4" "$newline"
accepts is_host_address 10.0.0.1 192.168.1.20 223.255.255.254
refuses is_host_address 0.0.0.0 0.1.2.3 127.0.0.1 224.0.0.1 239.1.1.1 240.0.0.1 255.255.255.255 host
accepts is_port 1 502 65535
refuses is_port "" 0 0502 00 65536 -1 +1 5x 0x10 99999999999999999999 "5
02"
accepts is_plain_text "" "a b" "it's #1 \$x" "~!"
refuses is_plain_text 'a"b' "a\\b" "a
b" "$(printf 'a\tb')" "é" "$(printf 'a\177b')"
accepts is_word public "c#1" "a\$b"
accepts is_word "$(printf '%064d' 0)"
refuses is_word "$(printf '%065d' 0)" "#c"
refuses is_word "" "a b" "it's" -v 'a"' "a\\"
accepts is_name eth0 eth0.5 wlan-1 a:b
refuses is_name "" -x .. a/b "a b" "a;b"

for pair in 255.255.255.255=32 255.255.255.252=30 255.255.255.0=24 255.255.0.0=16 128.0.0.0=1 0.0.0.0=0; do
    # shellcheck disable=SC2016
    check_equal "prefix_length ${pair%=*}" "${pair#*=}" "$(shared eval "prefix_length ${pair%=*} && echo \$prefix")"
done
refuses prefix_length 255.0.255.0 255.255.255.1 0.0.0.255 255.255.255 mask

# --- messages ---

shared say "a$(printf '\033[31mb\nc\td\377')e"
check_equal "say: one line without control characters" "run.sh: a?[31mb?c?d?e" "$(cat "$WORK/err")"
shared say "$(printf '%05000d' 0)"
check "say: a long text is cut" [ "$(wc -c <"$WORK/err")" -le 401 ]

# --- files ---

check "private_dir: made" shared private_dir "$WORK/own/private"
check_equal "private_dir: for root alone" "700 root" "$(stat -c '%a %U' "$WORK/own/private")"
mkdir "$WORK/foreign"
chown nobody "$WORK/foreign"
check_not "private_dir: another user's directory is not used" shared private_dir "$WORK/foreign"
ln -s "$WORK/own" "$WORK/link"
check_not "private_dir: a link is not used" shared private_dir "$WORK/link"

printf 'former\n' >"$WORK/file"
check "replace_file: writes" shared replace_file 0640 "$WORK/file" "line 1
line 2"
check_equal "replace_file: the content" "line 1
line 2" "$(cat "$WORK/file")"
check_equal "replace_file: the mode" 640 "$(stat -c %a "$WORK/file")"
mkdir "$WORK/full"
mount -t tmpfs -o size=8k tmpfs "$WORK/full"
printf 'former\n' >"$WORK/full/file"
check_not "replace_file on a full disk: fails" shared replace_file 0644 "$WORK/full/file" "$(seq 1 5000)"
said "run.sh: cannot write $WORK/full/file"
check_equal "a full disk: the former content stays" "former" "$(cat "$WORK/full/file")"
check_equal "a full disk: nothing is left aside" "file" "$(ls -A "$WORK/full")"

# --- settings ---

cat >/usr/local/etc/varnel-browser.ini <<'END'
[Other]
Directory=/wrong
[Files]
 Directory = /media/stick
UsbDriveFile="/tmp/a marker"
Empty=
[ModbusServer]
ModbusInterface=0.0.0.0:1502:10
END
check_equal "panel setting: with blanks around it" "/media/stick" "$(shared panel_setting Files Directory x)"
check_equal "panel setting: in quotes" "/tmp/a marker" "$(shared panel_setting Files UsbDriveFile x)"
check_equal "panel setting: in another group" "0.0.0.0:1502:10" "$(shared panel_setting ModbusServer ModbusInterface x)"
check_equal "panel setting: empty" "" "$(shared panel_setting Files Empty x)"
check_equal "panel setting: not there" "x" "$(shared panel_setting Files ScriptDir x)"
rm /usr/local/etc/varnel-browser.ini
check_equal "panel setting: no file" "x" "$(shared panel_setting Files Directory x)"

echo 'NET_INTERFACE=lan0' >/usr/local/etc/varnel-device.conf
# shellcheck disable=SC2016
check_equal "device setting: from the file" "lan0" "$(shared eval 'echo $NET_INTERFACE')"
rm /usr/local/etc/varnel-device.conf
# shellcheck disable=SC2016
check_equal "device setting: the environment does not count" "eth0" "$(NET_INTERFACE=evil0 shared eval 'echo $NET_INTERFACE')"
check_equal "the sample names every setting with its default" \
    "$(sed -n '/^load_settings()/,/^}/s/^    \([A-Z0-9_]*=\)/\1/p' "$SCRIPTS/varnel-common.sh" | sort)" \
    "$(sed -n 's/^#\([A-Z0-9_]*=\)/\1/p' "$ROOT_DIR/device/varnel-device.conf" | sort)"

# --- every script ---

"$SCRIPTS/snmpctl.sh" init
for script in "$SCRIPTS"/*.sh; do
    name=${script##*/}
    case $name in
        varnel-*) continue ;;
    esac
    run 0 "$name --help: shown" "$name" --help
    check "$name --help: the usage" grep -q "^Usage: $name" "$WORK/out"
    run 2 "$name with an argument too many: refused" "$name" a b c d e f g h i j k l
    check_equal "$name: nothing on standard output for a failure" "" "$(cat "$WORK/out")"
done
finish
