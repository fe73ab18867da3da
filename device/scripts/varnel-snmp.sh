# SPDX-License-Identifier: MIT
# shellcheck shell=sh disable=SC2034
# snmpctl.sh, snmpcfg.sh and snmptrap.sh share this: the description of an SNMP configuration, which they collect
# between "init" and "apply", and the reading of a security model with its names and pass phrases. Needs
# varnel-common.sh.
#
# The description has a line "KEY VALUE" for each of these; varnel-applysnmp.sh reads it:
#   controller  address of the controller whose agent is asked, or empty; begins the agent's part
#   port        UDP port on which the panel's agent answers
#   model       the agent's security model, "none" if it answers nobody
#   agent       a line for snmpd.conf
#   proxy       words of snmpd.conf's "proxy" line ahead of the controller's address
#   target      what follows that address: port and object identifier
#   traps       security model of the traps; begins the traps' part
#   trapport    UDP port on which the panel takes the controller's traps
#   listen      a line for snmptrapd.conf
#   sink        words of snmpd.conf's "trapsess" line ahead of the destination
#   forward     ADDRESS:PORT of that destination

SNMP_STAGE=$STATE_DIR/snmp
# The panel takes seven: the agent, the traps, five destinations.
SNMP_STEPS=20

# A step of the transaction marks its begin and its end with one letter each in these two files: if a step ends
# early (bad arguments, no space left, killed), "apply" notices it. begin_step LETTER
begin_step() {
    [ -e "$SNMP_STAGE/lines" ] || fail "nothing was begun; run snmpctl.sh init first"
    umask 077
    snmp_step=$1
    description=
    begun=
    read -r begun <"$SNMP_STAGE/begun" || :
    [ "${#begun}" -le "$SNMP_STEPS" ] || fail "more than $SNMP_STEPS steps, snmpctl.sh init begins again"
    printf '%s' "$1" >>"$SNMP_STAGE/begun"
    [ "${#begun}" -lt "$SNMP_STEPS" ] || fail "more than $SNMP_STEPS steps, snmpctl.sh init begins again"
}

# describe KEY VALUE
describe() {
    description=$description$1\ $2$NEWLINE
}

end_step() {
    printf '%s' "$description" >>"$SNMP_STAGE/lines"
    printf '%s' "$snmp_step" >>"$SNMP_STAGE/ended"
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
    [ "${#2}" -le 64 ] || fail "the $1 is longer than 64 characters"
}

check_name() {
    is_word "$2" || fail "the $1 is empty, too long or has a character that snmpd.conf cannot hold"
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
            *) fail "the hash is none that snmpd knows (MD5, SHA)" ;;
        esac
        check_pass_phrase "authentication pass phrase" "$3"
        create="$2 \"$3\""
        options="$options -a $2 -A \"$3\""
    fi
    if [ "$needed" -eq 5 ]; then
        case $4 in
            DES | AES) ;;
            *) fail "the cipher is none that snmpd knows (DES, AES)" ;;
        esac
        check_pass_phrase "encryption pass phrase" "$5"
        create="$create $4 \"$5\""
        options="$options -x $4 -X \"$5\""
    fi
}
