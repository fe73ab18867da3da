# SPDX-License-Identifier: MIT
# shellcheck shell=sh disable=SC2034
# The tests of the device scripts share this. A test begins with
#
#     set -eu
#     . "$(dirname -- "$(readlink -f -- "$0")")/testlib.sh"
#     enter_namespace "$@"
#
# and then has the machine to itself: a network without links, a private copy of /etc, empty /run and /usr/local,
# and its own processes, all of which end with it. VARNEL_DEVICE_SCRIPTS names the directory of the scripts to test,
# so that an integrator's replacements pass through the same tests.

TEST_DIR=$(dirname -- "$(readlink -f -- "$0")")
ROOT_DIR=$(dirname -- "$(dirname -- "$TEST_DIR")")
SCRIPTS=$(readlink -f -- "${VARNEL_DEVICE_SCRIPTS:-$ROOT_DIR/device/scripts}")
PATH=/usr/sbin:/usr/bin:/sbin:/bin
export PATH
export LC_ALL=C MIBS=

enter_namespace() {
    if [ "${VARNEL_IN_NAMESPACE:-}" = yes ]; then
        prepare_machine
        return
    fi
    become_root=
    [ "$(id -u)" -eq 0 ] || become_root="sudo -n --"
    # The first process of a PID namespace inherits the daemons that the test starts, and has to take note of their
    # end: whoever waits for a daemon to disappear would otherwise wait for ever. A shell in "wait" does.
    # shellcheck disable=SC2016,SC2086
    exec $become_root env VARNEL_IN_NAMESPACE=yes VARNEL_DEVICE_SCRIPTS="$SCRIPTS" unshare --mount --net --uts --ipc \
        --pid --fork --kill-child --mount-proc -- /bin/sh -c '"$0" "$@" & wait "$!"' "$0" "$@"
}

prepare_machine() {
    mount --make-rprivate /
    mount -t tmpfs -o mode=0755 tmpfs /run
    # systemd's network daemon asks udev about every link unless /sys cannot be written.
    mount -t sysfs -o ro sysfs /sys
    WORK=/run/test
    mkdir -p "$WORK" /run/lock /run/network /run/usbmnt
    cp -a /etc "$WORK/etc"
    mount --bind "$WORK/etc" /etc
    # A container's name servers are a mount of their own, beneath the copy.
    rm -f /etc/resolv.conf
    echo "# the test's own" >/etc/resolv.conf
    for directory in etc bin sbin; do
        mount -t tmpfs -o mode=0755 tmpfs "/usr/local/$directory"
    done
    if [ -d /var/lib/snmp ]; then
        mount -t tmpfs -o mode=0755 tmpfs /var/lib/snmp
        chown Debian-snmp: /var/lib/snmp
    fi
    cat >/usr/local/etc/varnel-browser.ini <<END
[Files]
Directory=/run/usbmnt
UsbDriveFile=/run/usbdrive
END
    cat >/usr/local/etc/varnel-device.conf <<END
KEEP_DIR=/run/keep
APPLY_PAUSE_SECONDS=0
END
    ip link set lo up
}

# add_links ADDRESS...: eth0 is the panel's interface, the namespace "far" the network behind it, with these addresses.
add_links() {
    ip netns add far
    ip link add eth0 type veth peer name far0
    ip link set far0 netns far
    far ip link set lo up
    far ip link set far0 up
    for far_address in "$@"; do
        far ip address add "$far_address/24" dev far0
    done
    ip address add 192.168.7.2/24 dev eth0
    ip link set eth0 up
}

far() {
    ip netns exec far "$@"
}

# stand_in PROGRAM: takes what it reads in the place of a program.
stand_in() {
    cat >"$1"
    chmod 0755 "$1"
}

# stand_in_controller ADDRESS COMMUNITY: a controller's agent with a value at $OID. It and the manager run copies, as on
# machines of their own: Debian's init script looks for every process of the program snmpd.
stand_in_controller() {
    mkdir -p "$WORK/controller-$1"
    cp /usr/sbin/snmpd "$WORK/controller-agent-$1"
    cat >"$WORK/controller-$1/snmpd.conf" <<END
agentAddress udp:$1:161
rocommunity $2
sysDescr controller $1
override $OID.1.0 octet_str "value of $1"
END
    SNMP_PERSISTENT_DIR=$WORK/controller-$1 far "$WORK/controller-agent-$1" -r -C -c "$WORK/controller-$1/snmpd.conf" \
        -Lf "$WORK/controller-$1/log" -I -smux,mteTrigger,mteTriggerConf
}

# stand_in_manager: reads its configuration and writes the traps that it receives to $WORK/traps.
stand_in_manager() {
    [ -e "$WORK/trap-receiver" ] || cp /usr/sbin/snmptrapd "$WORK/trap-receiver"
    cat >"$WORK/manager.conf"
    SNMP_PERSISTENT_DIR=$WORK/manager far "$WORK/trap-receiver" -C -c "$WORK/manager.conf" -Lf "$WORK/traps" \
        -p "$WORK/manager.pid"
}

# hold tcp|udp PORT: another program, whose process is $holder, has the port.
hold() {
    python3 -c 'import signal, socket, sys
held = socket.socket(type=socket.SOCK_STREAM if sys.argv[1] == "tcp" else socket.SOCK_DGRAM)
held.bind(("0.0.0.0", int(sys.argv[2])))
if sys.argv[1] == "tcp":
    held.listen(100)
signal.pause()' "$1" "$2" &
    holder=$!
    check "$1 port $2 is held" eventually is_held "$1" "$2"
}

is_held() {
    ss -H -l -n "--$1" "sport = :$2" | grep -q .
}

# --- checks ---

checks=0
failures=0

# check NAME COMMAND...: the command succeeds.
check() {
    check_name=$1
    shift
    checks=$((checks + 1))
    if "$@"; then
        echo "ok   - $check_name"
    else
        failures=$((failures + 1))
        echo "FAIL - $check_name"
        # What was said last.
        tail -v -n 20 "$WORK/err" "$WORK/status" 2>/dev/null | sed 's/^/       /'
    fi
}

not() {
    ! "$@"
}

# check_not NAME COMMAND...: the command fails.
check_not() {
    not_name=$1
    shift
    check "$not_name" not "$@"
}

# check_equal NAME EXPECTED ACTUAL
check_equal() {
    check "$1" equal "$2" "$3"
}

equal() {
    [ "$1" = "$2" ] || not printf '       expected: %s\n       actual:   %s\n' "$1" "$2"
}

# run STATUS NAME SCRIPT ARGUMENT...: runs a script of the panel as the script service does: with null input and without
# the right to look into other processes. Its standard error is kept in $WORK/err for said().
run() {
    run_expected=$1 run_name=$2 run_script=$3
    shift 3
    run_status=0
    setpriv --bounding-set -sys_ptrace -- "$SCRIPTS/$run_script" "$@" </dev/null >"$WORK/out" 2>"$WORK/err" ||
        run_status=$?
    check "$run_name (status $run_expected)" [ "$run_status" -eq "$run_expected" ]
}

# said TEXT: the last run said so on standard error.
said() {
    check "said: $1" grep -qF -- "$1" "$WORK/err"
}

# says STATUS TEXT SCRIPT ARGUMENT...: the run ends with this status and says so.
says() {
    says_status=$1 says_text=$2
    shift 2
    run "$says_status" "$*" "$@"
    said "$says_text"
}

# silent NAME SCRIPT ARGUMENT...: the run succeeds and says nothing.
silent() {
    silent_name=$1
    shift
    run 0 "$silent_name" "$@"
    check_equal "$silent_name: not a word" "" "$(cat "$WORK/err")"
}

# wrong_usage SCRIPT TEXT...: with the words of each text as its arguments, the script shows its usage.
wrong_usage() {
    wrong_script=$1
    shift
    for wrong_words in "$@"; do
        # shellcheck disable=SC2086
        says 2 "($wrong_script --help shows the usage)" "$wrong_script" $wrong_words
    done
}

# eventually COMMAND...: within a minute the command succeeds.
eventually() {
    tries=600
    until "$@"; do
        tries=$((tries - 1))
        [ "$tries" -gt 0 ] || return 1
        sleep 0.1
    done
}

# A configuration is written down by the device scripts and brought into effect by varnel-config, which they start here
# in the background. status KIND: what varnel-config tells about it, kept in $WORK/status.
status() {
    "$SCRIPTS/varnel-config" status "$1" >"$WORK/status" 2>&1
}

# settled KIND NAME: what was written down last comes into effect.
settled() {
    check "$2" eventually status "$1"
}

# unsettled KIND TEXT: what was written down last does not come into effect, and the status says why.
unsettled() {
    check "$1 is not in effect: $2" eventually status_says "$1" "$2"
}

status_says() {
    not status "$1" && grep -q "in effect  no" "$WORK/status" && grep -qF -- "$2" "$WORK/status"
}

# applied KIND NAME SCRIPT ARGUMENT...: the run succeeds, and what it asks for comes into effect.
applied() {
    applied_kind=$1 applied_name=$2
    shift 2
    run 0 "$applied_name" "$@"
    settled "$applied_kind" "$applied_name: in effect"
}

# postponed KIND TEXT SCRIPT ARGUMENT...: the run succeeds, but what it asks for does not come into effect.
postponed() {
    postponed_kind=$1 postponed_text=$2
    shift 2
    run 0 "$*: written down" "$@"
    unsettled "$postponed_kind" "$postponed_text"
}

# sums PATH...: what the files hold, and that they are there; for "nothing changed".
sums() {
    md5sum -- "$@" 2>&1 || :
}

# The end of each test; a test that checked nothing has failed.
finish() {
    echo "$checks checks, $failures failures"
    [ "$checks" -gt 0 ] && [ "$failures" -eq 0 ]
}
