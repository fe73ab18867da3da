# SPDX-License-Identifier: MIT
# shellcheck shell=sh disable=SC2034,SC2154
# The part of varnel-config that is about net-snmp: snmpd answers managers in place of the controller, snmptrapd
# passes the controller's traps on. varnel-snmp.sh lists the lines of a description. Needs varnel-apply.sh.

SNMPD_CONF=/etc/snmp/snmpd.conf
SNMPTRAPD_CONF=/etc/snmp/snmptrapd.conf
PERSISTENT_DIR=/var/lib/snmp
TRIAL=$STATE_DIR/trial

# --- the description ---

# snmp_read FILE: sets snmp_* from the description.
snmp_read() {
    snmp_port=
    snmp_begin_agent ""
    snmp_begin_traps none
    while IFS= read -r line; do
        value=${line#* }
        case ${line%% *} in
            controller) snmp_begin_agent "$value" ;;
            port) snmp_port=$value ;;
            model) snmp_model=$value ;;
            agent) snmp_agent=$snmp_agent$value$NEWLINE ;;
            proxy) snmp_proxy=$value ;;
            target) snmp_target=$value ;;
            traps) snmp_begin_traps "$value" ;;
            trapport) snmp_trap_port=$value ;;
            listen) snmp_listen=$snmp_listen$value$NEWLINE ;;
            sink) sink=$value ;;
            forward)
                snmp_sinks="${snmp_sinks}trapsess $sink udp:$value$NEWLINE"
                snmp_forwards="${snmp_forwards:+$snmp_forwards }$value"
                ;;
        esac
    done <"$1"
    if [ -z "$snmp_controller" ]; then
        registered_controller
        snmp_controller=$registered
    fi
}

snmp_begin_agent() {
    snmp_controller=$1
    snmp_model=none snmp_agent='' snmp_proxy='' snmp_target=''
}

snmp_begin_traps() {
    snmp_trap_model=$1
    snmp_trap_port='' snmp_listen='' snmp_sinks='' snmp_forwards=''
}

# snmp_summary FILE: one line without secrets.
snmp_summary() {
    snmp_read "$1"
    if [ "$snmp_model" = none ]; then
        summary="an agent that answers nobody"
    else
        summary="agent $snmp_model on UDP port $snmp_port for ${snmp_controller:-no controller}"
    fi
    if [ -n "$snmp_forwards" ]; then
        summary="$summary; traps $snmp_trap_model to $snmp_forwards"
    fi
    printf '%s\n' "$summary"
}

# --- the files ---

# Without a controller there is no proxy line.
snmp_agent_lines() {
    printf '%s' "$snmp_agent"
    if [ -n "$snmp_target" ] && [ -n "$snmp_controller" ]; then
        printf 'proxy %s udp:%s:%s\n' "$snmp_proxy" "$snmp_controller" "$snmp_target"
    fi
}

snmpd_conf() {
    printf '# %s\nagentAddress udp:%s\n' "$MADE_BY_MARK" "$snmp_port"
    snmp_agent_lines
    printf '%s' "$snmp_sinks"
    if [ -d /etc/snmp/snmpd.conf.d ]; then
        echo "includeDir /etc/snmp/snmpd.conf.d"
    fi
}

is_own_address() {
    ip -4 -o address show | grep -qF "inet $1/"
}

# A trap to the panel itself would circulate for ever.
snmptrapd_conf() {
    printf '# %s\n' "$MADE_BY_MARK"
    if [ -n "$snmp_trap_port" ]; then
        printf 'snmpTrapdAddr udp:%s\n' "$snmp_trap_port"
    fi
    printf '%s' "$snmp_listen"
    for destination in $snmp_forwards; do
        is_own_address "${destination%:*}" || echo "forward default udp:$destination"
    done
}

# --- trying out ---

# trial_says TEXT: true if the trial's log has this text.
trial_says() {
    grep -q "$1" "$TRIAL/log"
}

trial_ended() {
    trial_says "NET-SNMP version" || ! kill -0 "$trial_pid" 2>/dev/null
}

# snmp_trial: lets a second snmpd read the agent's lines without a port, sinks or the running agent's state, because
# net-snmp starts even if it does not accept a line (for example an algorithm that its build lacks), and only logs it.
# It runs as net-snmp's user: in this directory, which is root's, it can read the lines and write its state. Status 2:
# it does not accept a line.
snmp_trial() {
    if ! group=$(id -g "$SNMP_USER" 2>/dev/null); then
        why="there is no user $SNMP_USER"
        return 1
    fi
    rm -rf -- "$TRIAL"
    mkdir -m 0711 -- "$TRIAL"
    (umask 077 && snmp_agent_lines >"$TRIAL/snmpd.conf" && : >"$TRIAL/log" && mkdir "$TRIAL/state")
    chown "$SNMP_USER" "$TRIAL/snmpd.conf" "$TRIAL/state"
    SNMP_PERSISTENT_DIR=$TRIAL/state setpriv --reuid "$SNMP_USER" --regid "$group" --clear-groups -- \
        snmpd -f -r -C -c "$TRIAL/snmpd.conf" -Lo -I -smux,mteTrigger,mteTriggerConf "unix:$TRIAL/state/socket" \
        </dev/null >>"$TRIAL/log" 2>&1 8>&- 9>&- &
    trial_pid=$!
    await 1200 trial_ended || :
    started=no
    ! trial_says "NET-SNMP version" || started=yes
    kill "$trial_pid" 2>/dev/null || :
    wait "$trial_pid" 2>/dev/null || :
    complaint=$(grep -E 'line [0-9]+: |^Error' "$TRIAL/log" | head -n 1) || :
    rm -rf -- "$TRIAL"
    if [ -n "$complaint" ]; then
        why="snmpd refuses: ${complaint##*: line }"
        return 2
    elif [ "$started" = no ]; then
        why="snmpd does not start"
        return 1
    fi
}

# --- daemons ---

# Users stay in net-snmp's own state after they are removed from its configuration; a daemon writes this state when it
# stops.
forget_users() {
    state_file=$PERSISTENT_DIR/$1.conf
    if [ -f "$state_file" ]; then
        sed -i '/^usmUser/d' "$state_file"
    fi
}

udp_port_is_bound() {
    [ -n "$(ss -H -l -u -n "sport = :$1")" ]
}

# daemon_listens NAME PORT: it is enough that it runs and its port is in use: no other program had the port when it
# started.
daemon_listens() {
    udp_port_is_bound "$2" && daemon_runs "$1"
}

# A daemon that has ended will not listen; wait two minutes for one that still runs.
daemon_decided() {
    daemon_listens "$1" "$2" || ! daemon_runs "$1"
}

udp_port_is_free() {
    ! udp_port_is_bound "$1"
}

# start_daemon NAME PORT: starts a daemon that has been stopped.
start_daemon() {
    if ! await 50 udp_port_is_free "$2"; then
        why="another program has UDP port $2"
        return 1
    fi
    control_service start "$1" || :
    await 1200 daemon_decided "$1" "$2" || :
    if ! daemon_listens "$1" "$2"; then
        why="$1 does not run with it"
        return 1
    fi
}

restart_agent() {
    control_service stop snmpd || :
    forget_users snmpd
    start_daemon snmpd "$1"
}

# Debian's socket unit would keep port 162 and start the daemon, whatever the configuration says.
# trap_socket VERB
trap_socket() {
    if [ -d /run/systemd/system ]; then
        systemctl --no-ask-password "$1" snmptrapd.socket 2>/dev/null || :
    fi
}

stop_trap_daemon() {
    trap_socket stop
    control_service stop snmptrapd || :
}

# Without a destination nobody gets the controller's traps, so the daemon does not run.
# restart_trap_daemon PORT DESTINATIONS
restart_trap_daemon() {
    have snmptrapd || return 0
    stop_trap_daemon
    forget_users snmptrapd
    if [ -n "$2" ]; then
        start_daemon snmptrapd "${1:-162}"
    fi
}

# --- the former configuration ---

trap_port() {
    sed -n 's/^snmpTrapdAddr udp://p' "$SNMPTRAPD_CONF" 2>/dev/null || :
}

agent_port() {
    sed -n 's/^agentAddress udp://p' "$SNMPD_CONF" 2>/dev/null || :
}

destinations() {
    sed -n 's/^forward default //p; s/^trapsess .* //p' "$SNMPD_CONF" "$SNMPTRAPD_CONF" 2>/dev/null || :
}

# The distribution's own configuration has no port of ours to wait for; its daemon is started anyway.
snmp_restore() {
    failure=$why
    restore_former "$SNMPD_CONF" "$SNMPTRAPD_CONF"
    former_port=$(agent_port)
    restart_agent "${former_port:-161}" || say "the former agent does not start: $why"
    restart_trap_daemon "$(trap_port)" "$(destinations)" || say "the former trap daemon does not start: $why"
    grep -qs "$MADE_BY_MARK" "$SNMPTRAPD_CONF" || trap_socket start
    why=$failure
}

# --- applying ---

snmp_trap_daemon_holds() {
    [ -z "$snmp_forwards" ] || ! have snmptrapd || daemon_listens snmptrapd "${snmp_trap_port:-162}"
}

# snmp_compare: sets agent_text, traps_text (the files' contents) and stale_agent, stale_traps (a daemon has to restart).
snmp_compare() {
    agent_text=$(snmpd_conf)
    traps_text=$(snmptrapd_conf)
    stale_agent=no
    stale_traps=no
    if ! holds_text "$SNMPD_CONF" "$agent_text" || ! daemon_listens snmpd "$snmp_port"; then
        stale_agent=yes
    fi
    if ! holds_text "$SNMPTRAPD_CONF" "$traps_text" || ! snmp_trap_daemon_holds; then
        stale_traps=yes
    fi
    if [ -n "$snmp_forwards" ] && ! have snmptrapd; then
        note="snmptrapd is not installed: the controller's traps are not passed on"
    fi
}

# snmp_holds FILE: true if the description is in effect.
snmp_holds() {
    snmp_read "$1"
    snmp_compare
    if [ "$stale_agent$stale_traps" != nono ]; then
        why="net-snmp does not run with it"
        return 1
    fi
}

# If another program has the port, the running daemons are not stopped. The ports of the distribution's own
# configuration are not checked.
snmp_ports_are_free() {
    former_port=$(agent_port)
    if [ -n "$former_port" ] && [ "$snmp_port" != "$former_port" ] && [ "$snmp_port" != "$(trap_port)" ] &&
        udp_port_is_bound "$snmp_port"; then
        why="another program has UDP port $snmp_port"
        return 1
    fi
}

snmp_owner() {
    if id -u "$SNMP_USER" >/dev/null 2>&1; then
        echo "$SNMP_USER"
    fi
}

snmp_activate() {
    owner=$(snmp_owner)
    replace_file 0600 "$SNMPD_CONF" "$agent_text" "$owner" || why="cannot write $SNMPD_CONF"
    replace_file 0600 "$SNMPTRAPD_CONF" "$traps_text" "$owner" || why="cannot write $SNMPTRAPD_CONF"
    [ -z "$why" ] || return 1
    if [ "$stale_traps" = yes ] && have snmptrapd; then
        stop_trap_daemon
    fi
    if [ "$stale_agent" = yes ]; then
        restart_agent "$snmp_port" || return 1
    fi
    if [ "$stale_traps" = yes ]; then
        restart_trap_daemon "$snmp_trap_port" "$snmp_forwards"
    fi
}

# snmp_apply FILE
snmp_apply() {
    snmp_read "$1"
    snmp_compare
    if [ "$stale_agent$stale_traps" = nono ]; then
        drop_former
        return 0
    fi
    if ! have snmpd; then
        why="net-snmp's snmpd is not installed"
        return 1
    fi
    if ! holds_text "$SNMPD_CONF" "$agent_text"; then
        snmp_trial || return
    fi
    snmp_ports_are_free || return 1
    can_write "${SNMPD_CONF%/*}" || return 1
    changed=yes
    save_former "$SNMPD_CONF" "$SNMPTRAPD_CONF"
    if snmp_activate; then
        drop_former
        return 0
    fi
    snmp_restore
    return 1
}
