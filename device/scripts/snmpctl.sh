#!/bin/sh
# SPDX-License-Identifier: MIT
# A new SNMP configuration is a transaction: "init" begins it, snmpcfg.sh and snmptrap.sh describe it, "apply" brings
# it into effect. When a step was refused, or net-snmp does not take the result, the former configuration stays.
# "follow" points the running agent at the controller that has just been registered.
set -eu
. "$(dirname -- "$(readlink -f -- "$0")")/varnel-common.sh"
. "$SCRIPT_DIR/varnel-snmp.sh"

SNMPD_CONF=/etc/snmp/snmpd.conf
SNMPTRAPD_CONF=/etc/snmp/snmptrapd.conf
PERSISTENT_DIR=/var/lib/snmp
FORMER=$STATE_DIR/snmp-former

usage() {
    echo "Usage: $SCRIPT_NAME init|apply|follow"
}

# --- what is written ---

registered_controller() {
    if [ -r "$STATE_DIR/controller" ]; then
        sed -n 's/^ADDRESS=//p' "$STATE_DIR/controller"
    fi
}

# Empty for a part that no step has written.
part() {
    cat -- "$1/$2" 2>/dev/null || :
}

# agent_lines DIRECTORY: without a controller there is nobody to ask, and no proxy line.
agent_lines() {
    address=$(part "$1" controller)
    [ -n "$address" ] || address=$(registered_controller)
    if [ -n "$address" ]; then
        part "$1" agent | sed "s/@CONTROLLER@/$address/"
    else
        part "$1" agent | sed '/@CONTROLLER@/d'
    fi
}

snmpd_conf() {
    cat <<END
# $MADE_BY_MARK
agentAddress udp:$(part "$1" port)
$(agent_lines "$1")
$(part "$1" sinks)
END
    if [ -d /etc/snmp/snmpd.conf.d ]; then
        echo "includeDir /etc/snmp/snmpd.conf.d"
    fi
}

is_own_address() {
    ip -4 -o address show | grep -qF "inet $1/"
}

# A destination that is the panel itself would get back what it passes on, for ever.
snmptrapd_conf() {
    cat <<END
# $MADE_BY_MARK
$(part "$1" trapd)
END
    for destination in $(part "$1" forwards); do
        is_own_address "${destination%:*}" || echo "forward default udp:$destination"
    done
}

# --- trying out ---

log_has_version() {
    grep -q "NET-SNMP version" "$1"
}

# check_snmpd_conf DIRECTORY: lets a second snmpd read the agent's lines without a port, sinks or the running agent's
# state, because net-snmp starts in spite of lines that it does not take (an algorithm its build lacks, for one) and
# only logs them.
check_snmpd_conf() {
    check=$(mktemp -d)
    lines=$(agent_lines "$1")
    replace_file 0600 "$check/snmpd.conf" "$lines"
    SNMP_PERSISTENT_DIR=$check/state timeout 5 snmpd -f -r -C -c "$check/snmpd.conf" -Lf "$check/log" \
        -I -smux,mteTrigger,mteTriggerConf "unix:$check/socket" </dev/null >/dev/null 2>&1 &
    pid=$!
    await 4 log_has_version "$check/log" 2>/dev/null || echo "Error: snmpd does not start" >>"$check/log"
    kill "$pid" 2>/dev/null || :
    wait "$pid" || :
    complaint=$(grep -E 'line [0-9]+: |^Error' "$check/log" | head -n 1) || :
    rm -rf -- "$check"
    if [ -n "$complaint" ]; then
        say "snmpd refuses: ${complaint##*: line }"
        return 1
    fi
}

# --- bringing into effect ---

# Users live on in net-snmp's own state after they are gone from its configuration; a daemon that is stopped writes it.
forget_users() {
    state=$PERSISTENT_DIR/$1.conf
    if [ -f "$state" ]; then
        sed -i '/^usmUser/d' "$state"
    fi
}

daemon_listens() {
    ss -H -l -u -n -p "sport = :$2" | grep -qF "\"$1\""
}

# start_daemon NAME PORT
start_daemon() {
    control_service start "$1" && await 3 daemon_listens "$1" "$2"
}

restart_agent() {
    control_service stop snmpd || :
    forget_users snmpd
    start_daemon snmpd "$1"
}

# Without a destination the controller's traps are of no use to anyone, and nothing listens.
# restart_trap_daemon PORT DESTINATIONS
restart_trap_daemon() {
    if ! have snmptrapd; then
        [ -z "$2" ] || say "snmptrapd is not installed: the controller's traps are not passed on"
        return 0
    fi
    control_service stop snmptrapd || :
    forget_users snmptrapd
    if [ -n "$2" ]; then
        start_daemon snmptrapd "${1:-162}"
    fi
}

trap_port() {
    sed -n 's/^snmpTrapdAddr udp://p' "$SNMPTRAPD_CONF" 2>/dev/null || :
}

agent_port() {
    sed -n 's/^agentAddress udp://p' "$SNMPD_CONF" 2>/dev/null || :
}

destinations() {
    sed -n 's/^forward default //p; s/^trapsess .* //p' "$SNMPD_CONF" "$SNMPTRAPD_CONF" 2>/dev/null || :
}

restart_daemons() {
    restart_agent "$(agent_port)" && restart_trap_daemon "$(trap_port)" "$(destinations)"
}

save_former() {
    rm -rf -- "$FORMER"
    private_dir "$FORMER.new"
    for file in "$SNMPD_CONF" "$SNMPTRAPD_CONF"; do
        keep_original "$file"
        if [ -f "$file" ]; then
            cp -p -- "$file" "$FORMER.new/"
        fi
    done
    mv -- "$FORMER.new" "$FORMER"
}

# A configuration that was the distribution's own has no port of ours to wait for; its daemon is started all the same.
restore_former() {
    allow_seconds 12
    for file in "$SNMPD_CONF" "$SNMPTRAPD_CONF"; do
        saved=$FORMER/${file##*/}
        if [ -f "$saved" ]; then
            cp -p -- "$saved" "$file.new" && mv -f -- "$file.new" "$file"
        else
            rm -f -- "$file"
        fi
    done
    port=$(agent_port)
    restart_agent "${port:-161}" || say "the former agent does not start"
    restart_trap_daemon "$(trap_port)" "$(destinations)" || say "the former trap daemon does not start"
    rm -rf -- "$FORMER"
}

# An apply that was killed half-way, or cut off by a power loss short of one, has left the former files.
recover() {
    if [ -d "$FORMER" ]; then
        say "the last apply did not end, the former configuration is put back"
        restore_former
    fi
}

owner() {
    if id -u "$SNMP_USER" >/dev/null 2>&1; then
        echo "$SNMP_USER"
    fi
}

# activate DIRECTORY: the described configuration takes the place of the running one, or leaves it as it was.
activate() {
    have snmpd || fail "net-snmp's snmpd is not installed"
    check_snmpd_conf "$1" || fail "the former SNMP configuration stays"
    agent=$(snmpd_conf "$1")
    traps=$(snmptrapd_conf "$1")
    save_former
    allow_seconds 13
    if replace_file 0600 "$SNMPD_CONF" "$agent" "$(owner)" &&
        replace_file 0600 "$SNMPTRAPD_CONF" "$traps" "$(owner)" &&
        restart_daemons; then
        rm -rf -- "$FORMER"
        return 0
    fi
    restore_former
    fail "net-snmp does not run with the new configuration, the former one is back"
}

# --- the verbs ---

init() {
    recover
    rm -rf -- "$SNMP_STAGE"
    private_dir "$SNMP_STAGE"
}

apply() {
    [ -d "$SNMP_STAGE" ] || fail "nothing was begun; run $SCRIPT_NAME init first"
    for mark in "$SNMP_STAGE"/unfinished.*; do
        [ ! -e "$mark" ] || fail "a step was refused, the former SNMP configuration stays"
    done
    for needed in port agent trapd; do
        [ -e "$SNMP_STAGE/$needed" ] || fail "a step is missing, the former SNMP configuration stays"
    done
    activate "$SNMP_STAGE"
    private_dir "$SNMP_KEPT"
    for name in $SNMP_PARTS; do
        replace_file 0600 "$SNMP_KEPT/$name" "$(part "$SNMP_STAGE" "$name")"
    done
    rm -rf -- "$SNMP_STAGE"
}

follow() {
    address=$(registered_controller)
    if [ ! -e "$SNMP_KEPT/agent" ] || [ -z "$address" ] || [ "$address" = "$(part "$SNMP_KEPT" controller)" ]; then
        return 0
    fi
    replace_file 0600 "$SNMP_KEPT/controller" "$address"
    activate "$SNMP_KEPT"
}

[ $# -eq 1 ] || bad_usage "one verb is needed, not $#"
case $1 in
    -h | --help) usage ;;
    init | apply | follow) "$1" ;;
    *) bad_usage "unknown verb '$1'" ;;
esac
