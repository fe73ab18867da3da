#!/bin/sh
# SPDX-License-Identifier: MIT
# snmpctl.sh, snmpcfg.sh and snmptrap.sh: managers read a controller's value through the panel's snmpd, and traps
# reach a manager's snmptrapd, with every security model; refused configurations leave the former one running.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/testlib.sh"
enter_namespace "$@"
add_links 192.168.7.1 192.168.7.20 192.168.7.21 192.168.7.50

CONTROLLER=192.168.7.20
MANAGER=192.168.7.50
OID=.1.3.6.1.4.1.99999
ENGINE=0x8000000001020304
PHRASE="pass phrase #1 it's"
KEY="key phrase #2"

# --- stand-ins: controllers with an agent each, a manager with a trap receiver ---

# Afresh for each model: a manager that has heard the controller with an engine id takes no start trap of the panel's
# agent with the same one, which net-snmp sends with a boot count of 0 (RFC 3414, 3.2, step 7).
fresh_manager() {
    if [ -e "$WORK/manager.pid" ]; then
        kill "$(cat "$WORK/manager.pid")"
        eventually manager_gone
    fi
    rm -rf "$WORK/manager"
    stand_in_manager <<END
snmpTrapdAddr udp:$MANAGER:1162
format1 %P %v\n
format2 %P %v\n
authCommunity log trap#comm
createUser -e $ENGINE nouser
createUser -e $ENGINE hashuser MD5 "$PHRASE"
createUser -e $ENGINE privuser SHA "$PHRASE" AES "$KEY"
createUser -e $ENGINE desuser SHA "$PHRASE" DES "$KEY"
authUser log nouser noauth
authUser log hashuser
authUser log privuser priv
authUser log desuser priv
END
}

manager_gone() {
    ! far ss -H -l -u -n "sport = :1162" | grep -q .
}

# In systemd's place: starts and stops the daemons as Debian's units do, by their process ids. Debian's init scripts look
# into the daemons' processes, which needs a right that the panel's scripts do not have under systemd.
mkdir -p /run/systemd/system
stand_in /usr/local/sbin/systemctl <<'END'
#!/bin/sh
case $* in
    "--no-ask-password start snmptrapd.socket") exec touch /run/test/socket-unit ;;
    "--no-ask-password stop snmptrapd.socket") exec rm -f /run/test/socket-unit ;;
    *.socket) exit 0 ;;
esac
for word in "$@"; do name=${word%.service}; done
pid=$(cat "/run/test/$name.pid" 2>/dev/null)
runs() { [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null; }
case $* in
    *ActiveState*) runs && echo active || echo inactive ;;
    *stop*)
        if runs; then
            kill "$pid"
            while runs; do sleep 0.05; done
        fi
        ;;
    *start*)
        . /run/test/before-start
        [ "$name" = snmpd ] || [ ! -e /run/test/socket-unit ] || exit 1
        runs && exit 0
        "/usr/sbin/$name" -Lf /dev/null -u Debian-snmp -I -smux,mteTrigger,mteTriggerConf -p "/run/test/$name.pid"
        ;;
esac
END
: >"$WORK/before-start"

# As Debian leaves them: the agent of the distribution's configuration on port 161, a socket unit on the trap port.
/usr/local/sbin/systemctl start snmpd.service
touch "$WORK/socket-unit"

stand_in_controller "$CONTROLLER" comm
stand_in_controller 192.168.7.21 comm

# get OPTION...: what a manager reads of the controller's value through the panel.
get() {
    far snmpget -r 1 -t 2 -O qv "$@" 192.168.7.2 "$OID.1.0" 2>/dev/null
}

# reads NAME OPTION...: a manager with these options gets the controller's value; denies: it gets nothing.
reads() {
    reads_name=$1
    shift
    check_equal "$reads_name" "$VALUE" "$(get "$@")"
}
denies() {
    denies_name=$1
    shift
    check_not "$denies_name" get -r 0 -t 0.5 "$@"
}

# transaction AGENT-ARGUMENT...: without trap destinations.
transaction() {
    run 0 "init" snmpctl.sh init
    run 0 "snmpcfg.sh $*" snmpcfg.sh "$@"
    run 0 "snmptrap.sh init" snmptrap.sh init 0.0.0.0 1162 V2 "trap#comm"
}

want() {
    transaction "$@"
    run 0 "apply" snmpctl.sh apply
}

configure() {
    want "$@"
    settled snmp "in effect"
}

VALUE="\"value of $CONTROLLER\""

# --- the agent, each security model ---

# The environment of the trial run of snmpd.
: >"$WORK/trial"
chmod 0666 "$WORK/trial"
stand_in /usr/local/sbin/snmpd <<'END'
#!/bin/sh
dir=/run/varnel/trial
echo "as $(id -un)($(id -Gn)), in a directory of $(stat -c '%U %a' $dir)," \
    "lines $(stat -c '%U %a' $dir/snmpd.conf)," "$([ -w $dir ] || echo not) writable" >/run/test/trial
exec /usr/sbin/snmpd "$@"
END
configure "$CONTROLLER" 161 "" comm "$OID" V1
check_equal "the trial run has no rights" "as Debian-snmp(Debian-snmp), in a directory of root 711, lines Debian-snmp 600, not writable" \
    "$(cat "$WORK/trial")"
rm /usr/local/sbin/snmpd
reads "V1: a manager reads the controller's value" -v 1 -c comm
denies "V1: version 2c is refused" -v 2c -c comm
denies "V1: another community is refused" -v 1 -c public

configure "$CONTROLLER" 161 ctx comm "$OID" V2
reads "V2: a manager reads the controller's value" -v 2c -c comm
denies "V2: version 1 is refused" -v 1 -c comm
check_not "V2: nothing can be written" far snmpset -r 0 -t 0.5 -v 2c -c comm 192.168.7.2 "$OID.1.0" s x 2>/dev/null

configure 192.168.7.21 161 "" @CONTROLLER@ "$OID" V3NOPRIV hashuser MD5 "at @CONTROLLER@"
check "the text @CONTROLLER@ in a pass phrase stays" grep -qF '"at @CONTROLLER@"' /etc/snmp/snmpd.conf

configure "$CONTROLLER" 161 "" comm .1.3.6.1.2.1.1 V2
check_equal "V2: the controller's system group, not the panel's" "\"controller $CONTROLLER\"" \
    "$(far snmpget -O qv -v 2c -c comm 192.168.7.2 .1.3.6.1.2.1.1.1.0)"

configure "$CONTROLLER" 161 "" comm "$OID" V3NOAUTH nouser
reads "V3NOAUTH: read" -v 3 -u nouser -l noAuthNoPriv
denies "V3NOAUTH: another user is refused" -v 3 -u other -l noAuthNoPriv
denies "V3NOAUTH: version 2c is refused" -v 2c -c comm

for hash in MD5 SHA; do
    configure "$CONTROLLER" 161 ctx comm "$OID" V3NOPRIV hashuser "$hash" "$PHRASE"
    reads "V3NOPRIV $hash: read in the context" -v 3 -n ctx -u hashuser -l authNoPriv -a "$hash" -A "$PHRASE"
    denies "V3NOPRIV $hash: without authentication refused" -v 3 -n ctx -u hashuser -l noAuthNoPriv
    denies "V3NOPRIV $hash: a wrong pass phrase is refused" -v 3 -n ctx -u hashuser -l authNoPriv \
        -a "$hash" -A "wrong phrase"
    for cipher in DES AES; do
        configure "$CONTROLLER" 161 "" comm "$OID" V3PRIV privuser "$hash" "$PHRASE" "$cipher" "$KEY"
        reads "V3PRIV $hash $cipher: read" -v 3 -u privuser -l authPriv -a "$hash" -A "$PHRASE" -x "$cipher" -X "$KEY"
        denies "V3PRIV $hash $cipher: without encryption refused" -v 3 -u privuser -l authNoPriv -a "$hash" -A "$PHRASE"
    done
done
denies "the user of a former configuration is gone" -v 3 -u hashuser -l authNoPriv -a SHA -A "$PHRASE"

# The same user with a new pass phrase: net-snmp's own state must not bring the old one back.
configure "$CONTROLLER" 161 "" comm "$OID" V3NOPRIV privuser SHA "another phrase"
former_answers() {
    reads "$1" -v 3 -u privuser -l authNoPriv -a SHA -A "another phrase"
}
former_answers "a changed pass phrase: the new one counts"
denies "a changed pass phrase: the old one is refused" -v 3 -u privuser -l authNoPriv -a SHA -A "$PHRASE"

check_equal "files with secrets: root and the daemon's user alone" "600 Debian-snmp
600 root" "$(stat -c '%a %U' /etc/snmp/snmpd.conf /etc/snmp/snmptrapd.conf /run/keep/effective/snmp | uniq)"
check_equal "directories with secrets: root alone" "700 root" \
    "$(stat -c '%a %U' /run/varnel/snmp /run/varnel/wanted /run/keep /run/keep/effective | uniq)"
check_equal "nothing secret is told" "" "$("$SCRIPTS/varnel-config" status | grep -E 'phrase|comm|privuser')"
check "the distribution's own file is kept" grep -q "agentaddress  127.0.0.1" /etc/snmp/snmpd.conf.before-varnel
check_equal "nothing is left of the transaction" "" "$(cat /run/varnel/snmp/lines /run/varnel/wanted/* 2>/dev/null)"
check_not "nothing is left of the trial" test -e /run/varnel/trial

# --- refusals: the former configuration stays ---

files() {
    sums /etc/snmp/snmpd.conf /etc/snmp/snmptrapd.conf /run/keep/effective/snmp
}
before=$(files)
daemon=$(pidof snmpd)

# unchanged NAME: neither the files nor the daemon, which answers
unchanged() {
    check_equal "$1: nothing changed" "$before" "$(files)"
    check_equal "$1: the daemon was not restarted" "$daemon" "$(pidof snmpd)"
    former_answers "$1: the former configuration answers"
}

# refuse STATUS TEXT AGENT-ARGUMENT...
refuse() {
    run 0 "init" snmpctl.sh init
    status=$1 text=$2
    shift 2
    says "$status" "$text" snmpcfg.sh "$@"
    run 0 "snmptrap.sh init" snmptrap.sh init 0.0.0.0 1162 V2 x
    says 1 "former SNMP configuration stays" snmpctl.sh apply
}
refuse 2 "is no address" 192.168.7.300 161 "" comm "$OID" V1
refuse 2 "is no port" "$CONTROLLER" 0 "" comm "$OID" V1
refuse 1 "snmpd.conf cannot hold" "$CONTROLLER" 161 "" "comm
rwcommunity evil" "$OID" V1
refuse 1 "community is empty" "$CONTROLLER" 161 "" "" "$OID" V1
refuse 1 "snmpd.conf cannot hold" "$CONTROLLER" 161 "a b" comm "$OID" V1
for object in sysDescr .1.3.4294967296 ""; do
    refuse 1 "is no numeric object identifier" "$CONTROLLER" 161 "" comm "$object" V1
done
# refuse_model STATUS TEXT MODEL...: all else is fine.
refuse_model() {
    model_status=$1 model_text=$2
    shift 2
    refuse "$model_status" "$model_text" "$CONTROLLER" 161 "" comm "$OID" "$@"
}
refuse_model 2 "unknown model 'V4'" V4
refuse_model 2 "takes 3 values" V3NOPRIV user SHA
refuse_model 1 "the hash is none that snmpd knows" V3NOPRIV user UNDEF "$PHRASE"
refuse_model 1 "the cipher is none that snmpd knows" V3PRIV user SHA "$PHRASE" UNDEF "$KEY"
refuse_model 1 "shorter than the 8 characters" V3NOPRIV user SHA 1234567
refuse_model 1 "snmpd.conf cannot hold" V3NOPRIV user SHA "$(printf '12345678\t')"

run 0 "init" snmpctl.sh init
says 1 "a step is missing" snmpctl.sh apply
rm -r /run/varnel/snmp
run 1 "apply without init: refused" snmpctl.sh apply
run 1 "snmpcfg.sh without init: refused" snmpcfg.sh "$CONTROLLER" 161 "" comm "$OID" V1
wrong_usage snmpctl.sh "reload"

transaction "$CONTROLLER" 161 "" comm "$OID" V2
unchanged "before apply"
wrong_usage snmptrap.sh "add 192.168.7.x 162 V2 c" "add $MANAGER 0 V2 c" "add $MANAGER 162 V9 c" "add $MANAGER 162 V2" \
    "add 224.0.0.1 162 V2 c" "drop $MANAGER 162 V2 c" "add"
run 1 "an engine id that is none: refused" snmptrap.sh add "$MANAGER" 162 V3NOAUTH "engine" user
unchanged "refusals"

transaction "$CONTROLLER" 161 "" comm "$OID" V2
run 1 "snmptrap.sh add with a short pass phrase: refused" snmptrap.sh add "$MANAGER" 162 V3NOPRIV "$ENGINE" user MD5 short
says 1 "a step was refused, the former SNMP configuration stays" snmpctl.sh apply

# Errors that only net-snmp itself finds: here too long a context.
want "$CONTROLLER" 161 "$(printf '%040d' 0)" comm "$OID" V2
unsettled snmp "snmpd refuses"
said "former configuration stays"
check "the status tells what is in effect meanwhile" grep -q "meanwhile  agent V3NOPRIV on UDP port 161" "$WORK/status"
unchanged "apply refused"

# A port that another program holds: nothing is stopped, and as soon as it is free the wish comes true.
hold udp 2161
want "$CONTROLLER" 2161 "" comm "$OID" V2
unsettled snmp "another program has UDP port 2161"
unchanged "a port in use"
kill "$holder"
settled snmp "the port is free: in effect without being asked again"

# A root that cannot be written: nothing is stopped.
daemon=$(pidof snmpd)
mount -o remount,bind,ro /etc
want "$CONTROLLER" 161 "" comm "$OID" V2
unsettled snmp "/etc/snmp cannot be written"
check_equal "a root that cannot be written: the daemon was not restarted" "$daemon" "$(pidof snmpd)"
mount -o remount,bind,rw /etc
settled snmp "the root can be written again: in effect"

# A daemon that does not come up: the former configuration comes back, and with it the daemon.
configure "$CONTROLLER" 161 "" comm "$OID" V3NOPRIV privuser SHA "another phrase"
before=$(files)
echo 'grep -qs "udp:3161" /etc/snmp/snmpd.conf && exit 1' >"$WORK/before-start"
want "$CONTROLLER" 3161 "" comm "$OID" V2
unsettled snmp "snmpd does not run with it"
check_equal "a daemon that fails: the former files are back" "$before" "$(files)"
former_answers "a daemon that fails: the former configuration answers"

# Killed in the middle of a change: the next start goes on from there.
configure "$CONTROLLER" 161 "" comm "$OID" V2
# shellcheck disable=SC2016
echo 'kill -9 $PPID; exit 1' >"$WORK/before-start"
want "$CONTROLLER" 161 "" comm "$OID" V1
cut_off() { [ -d /run/keep/former/snmp ] && ! pidof snmpd >/dev/null && ! pidof -x varnel-config >/dev/null; }
check "killed half-way: nothing runs" eventually cut_off
: >"$WORK/before-start"
"$SCRIPTS/varnel-config" apply snmp 2>"$WORK/err"
said "snmp in effect: agent V1"
reads "killed half-way: the last wish comes true" -v 1 -c comm
check_not "killed half-way: nothing former is left" test -e /run/keep/former/snmp

# Power cuts at different moments of a change: the files are whole, and the former configuration or the new one answers.
whole() {
    [ "$(grep -c '^agentAddress udp:161$' /etc/snmp/snmpd.conf)" -eq 1 ] && status snmp &&
        { get -v 1 -c comm || get -v 2c -c comm; } >/dev/null
}
configure "$CONTROLLER" 161 "" comm "$OID" V2
for cut in V1:0.01 V2:0.03 V1:0.06 V2:0.1 V1:0.15 V2:0.2 V1:0.3 V2:0.4 V1:0.6 V2:0.9; do
    want "$CONTROLLER" 161 "" comm "$OID" "${cut%:*}"
    sleep "${cut#*:}"
    for process in $(pidof -x varnel-config snmpd); do
        kill -9 "$process" 2>/dev/null || :
    done
    rm -rf /run/varnel "$WORK/snmpd.pid"
    "$SCRIPTS/varnel-config" apply snmp 2>"$WORK/err"
    check "power cut ${cut#*:} s after a wish: the former configuration or the new one answers" whole
done

# --- another controller with the same configuration ---

configure "$CONTROLLER" 161 "" comm "$OID" V2
run 0 "r7m.sh add: the same controller" r7m.sh add "$CONTROLLER" 7 161 1162 0 502 1
daemon=$(pidof snmpd)
run 0 "r7m.sh add again" r7m.sh add "$CONTROLLER" 7 161 1162 0 502 1
check_equal "the same controller: the daemon was not restarted" "$daemon" "$(pidof snmpd)"
run 0 "r7m.sh add: another controller" r7m.sh add 192.168.7.21 7 161 1162 0 502 1
settled snmp "another controller: in effect"
check_equal "another controller: its value is read" '"value of 192.168.7.21"' "$(get -v 2c -c comm)"

# --- traps ---

# traps NAME SESSION MODEL...: the panel's own start trap, and one that the controller sends to the panel with the
# session's options, reach the manager.
traps() {
    name=$1 session=$2
    shift 2
    transaction "$CONTROLLER" 161 "" comm "$OID" V2
    run 0 "snmptrap.sh init" snmptrap.sh init "$MANAGER" 1162 "$@"
    # The last two are no destinations: one is not set, the other is the panel itself.
    for destination in "$MANAGER" 0.0.0.0 192.168.7.2; do
        run 0 "snmptrap.sh add $destination" snmptrap.sh add "$destination" 1162 "$@"
    done
    fresh_manager
    : >"$WORK/traps"
    run 0 "apply" snmpctl.sh apply
    settled snmp "$name: in effect"
    start="3.6.1.6.3.1.1.5.1"
    trap="5 $OID.0.1"
    if [ "$1" = V1 ]; then
        start="TRAP, SNMP v1"
        trap="$OID $CONTROLLER 6 1 5"
    fi
    check "$name: the agent's start trap reaches the manager" eventually grep -qF -- "$start" "$WORK/traps"
    # shellcheck disable=SC2086
    eval "far snmptrap $session 192.168.7.2:1162 $trap $OID.2.0 s '$name-trap'"
    check "$name: the controller's trap reaches the manager" eventually grep -qF -- "$name-trap" "$WORK/traps"
}

traps V1 "-v 1 -c 'trap#comm'" V1 "trap#comm"
traps V2 "-v 2c -c 'trap#comm'" V2 "trap#comm"
usm="-v 3 -e $ENGINE -A \"\$PHRASE\" -X \"\$KEY\" -u"
traps V3NOAUTH "$usm nouser -l noAuthNoPriv" V3NOAUTH "$ENGINE" nouser
traps V3NOPRIV "$usm hashuser -l authNoPriv -a MD5" V3NOPRIV "$ENGINE" hashuser MD5 "$PHRASE"
traps V3PRIV-AES "$usm privuser -l authPriv -a SHA -x AES" V3PRIV "${ENGINE#0x}" privuser SHA "$PHRASE" AES "$KEY"
traps V3PRIV-DES "$usm desuser -l authPriv -a SHA -x DES" V3PRIV "$ENGINE" desuser SHA "$PHRASE" DES "$KEY"
check_equal "one trap is passed on once" 1 "$(grep -cF V3PRIV-DES-trap "$WORK/traps")"

# --- no agent wanted, no destinations ---

run 0 "init" snmpctl.sh init
run 0 "snmpcfg.sh without a model" snmpcfg.sh "$CONTROLLER" 161 "" comm
run 0 "snmptrap.sh init without a model" snmptrap.sh init 0.0.0.0 1162
run 0 "snmptrap.sh add without a model" snmptrap.sh add "$MANAGER" 1162
run 0 "apply" snmpctl.sh apply
settled snmp "no model: in effect"
denies "no model: nobody reads anything" -v 2c -c comm
check_not "no destination: nothing takes traps" sh -c 'ss -H -l -u -n "sport = :1162" | grep -q .'

# --- without systemd: Debian's init scripts, with all rights ---

/usr/local/sbin/systemctl stop snmpd
/usr/local/sbin/systemctl stop snmptrapd
mv /run/systemd /run/systemd.away
rm /usr/local/sbin/systemctl
transaction "$CONTROLLER" 161 "" comm "$OID" V2
"$SCRIPTS/snmptrap.sh" add "$MANAGER" 1162 V2 "trap#comm"
"$SCRIPTS/snmpctl.sh" apply 2>"$WORK/err"
settled snmp "init scripts: in effect"
reads "init scripts: a manager reads the controller's value" -v 2c -c comm
mv /run/systemd.away /run/systemd

# --- the unit of the trap daemon ---

cp -r "$ROOT_DIR/device/systemd/snmptrapd.service.d" /run/systemd/system/
check_equal "drop-in: systemd finds nothing wrong" "" \
    "$(systemd-analyze verify --man=no snmptrapd.service 2>&1 | grep snmptrapd || :)"
finish
