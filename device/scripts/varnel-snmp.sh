# SPDX-License-Identifier: MIT
# shellcheck shell=sh disable=SC2034
# What snmpctl.sh, snmpcfg.sh and snmptrap.sh share: the place where a new SNMP configuration is collected between
# "init" and "apply", and the reading of a security model with its names and pass phrases. Needs varnel-common.sh.
#
# The collected parts, in SNMP_STAGE (and, once applied, in SNMP_KEPT):
#   port        UDP port on which the panel's agent answers
#   controller  address of the controller whose agent is asked, or empty
#   agent       lines for snmpd.conf; @CONTROLLER@ stands for that address
#   sinks       lines for snmpd.conf: where the agent's own traps go
#   trapd       lines for snmptrapd.conf: which traps of the controller are taken
#   forwards    ADDRESS:PORT of each destination to which they are passed on

SNMP_STAGE=$STATE_DIR/snmp
SNMP_KEPT=$KEEP_DIR/snmp
SNMP_PARTS="port controller agent sinks trapd forwards"

# begin_step: a step of the transaction starts. It counts as failed until end_step, so that "apply" refuses whatever
# way the step ends before: bad arguments, no space left, killed.
begin_step() {
    [ -d "$SNMP_STAGE" ] || fail "nothing was begun; run snmpctl.sh init first"
    snmp_step=$(mktemp "$SNMP_STAGE/unfinished.XXXXXX")
}

end_step() {
    rm -f -- "$snmp_step"
}

# append_part NAME LINE: adds a line to a part.
append_part() {
    (umask 077 && printf '%s\n' "$2" >>"$SNMP_STAGE/$1")
}

# A numeric object identifier, each of its numbers within 32 bits; names would need MIB files that the panel does not
# have.
is_oid() {
    case $1 in
        '' | . | *[!0-9.]* | *. | *..*) return 1 ;;
    esac
    [ "${#1}" -le 128 ] || return 1
    numbers=${1#.}.
    while [ -n "$numbers" ]; do
        is_number "${numbers%%.*}" && [ "${numbers%%.*}" -le 4294967295 ] || return 1
        numbers=${numbers#*.}
    done
}

# "0x" and an even number of hexadecimal digits for 5 to 32 octets (RFC 3411, SnmpEngineID).
is_engine_id() {
    digits=${1#0x}
    case $digits in
        *[!0-9A-Fa-f]*) return 1 ;;
    esac
    [ $((${#digits} % 2)) -eq 0 ] && [ "${#digits}" -ge 10 ] && [ "${#digits}" -le 64 ]
}

# net-snmp refuses pass phrases of fewer than 8 characters (RFC 3414, 11.2). It reads "-m" and the like as options.
check_pass_phrase() {
    is_plain_text "$2" || fail "the $1 has a character that snmpd.conf cannot hold"
    case $2 in
        -*) fail "the $1 begins with '-', which snmpd.conf cannot hold" ;;
    esac
    [ "${#2}" -ge 8 ] || fail "the $1 is shorter than the 8 characters that net-snmp asks for"
}

check_name() {
    is_word "$2" || fail "the $1 is empty or has a character that snmpd.conf cannot hold"
}

# read_user MODEL USER [HASH PASS-PHRASE [CIPHER KEY]]: checks what a V3 model needs. Sets user, level as snmpd.conf and
# as the options of the net-snmp programs call it, create (words after the name in createUser) and options.
read_user() {
    model=$1
    shift
    case $model in
        V3NOAUTH) needed=1 level=noauth option_level=noAuthNoPriv ;;
        V3NOPRIV) needed=3 level=auth option_level=authNoPriv ;;
        V3PRIV) needed=5 level=priv option_level=authPriv ;;
    esac
    [ $# -eq "$needed" ] || bad_usage "$model takes $needed values, not $#"
    check_name "user name" "$1"
    user=$1
    create=
    options="-v 3 -u \"$1\" -l $option_level"
    if [ "$needed" -ge 3 ]; then
        case $2 in
            MD5 | SHA) ;;
            *) fail "'$2' is no authentication that snmpd knows (MD5, SHA)" ;;
        esac
        check_pass_phrase "authentication pass phrase" "$3"
        create="$2 \"$3\""
        options="$options -a $2 -A \"$3\""
    fi
    if [ "$needed" -eq 5 ]; then
        case $4 in
            DES | AES) ;;
            *) fail "'$4' is no encryption that snmpd knows (DES, AES)" ;;
        esac
        check_pass_phrase "encryption pass phrase" "$5"
        create="$create $4 \"$5\""
        options="$options -x $4 -X \"$5\""
    fi
}
