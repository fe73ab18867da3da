# SPDX-License-Identifier: MIT
# shellcheck shell=sh disable=SC2034,SC2154
# The part of varnel-config that is about the Modbus TCP port. The Modbus server listens on the port of the panel's
# settings all the time; a table of our own in nftables redirects the requested port to it and rejects all other
# clients. Rules of other tables are neither read nor changed. Needs varnel-apply.sh.
. "$SCRIPT_DIR/varnel-modbusport.sh"

TABLE=varnel_modbus

# modbus_read FILE: sets modbus_port, or leaves it empty for a closed one.
modbus_read() {
    modbus_port=
    read -r verb modbus_port <"$1" || :
}

modbus_summary() {
    modbus_read "$1"
    if [ -n "$modbus_port" ]; then
        echo "open on TCP port $modbus_port"
    else
        echo "closed"
    fi
}

# modbus_rules: "add" before "delete" lets one transaction replace a table that may not exist yet. The rules check every
# packet, not only the first of a connection, so closing also ends open connections; the panel's own connections over the
# loopback interface stay.
modbus_rules() {
    cat <<END
add table ip $TABLE
delete table ip $TABLE
add table ip $TABLE
add chain ip $TABLE prerouting { type nat hook prerouting priority dstnat; }
add chain ip $TABLE input { type filter hook input priority filter; }
add rule ip $TABLE input iif lo accept
END
    if [ -n "$modbus_port" ]; then
        if [ "$modbus_port" -ne "$port" ]; then
            echo "add rule ip $TABLE prerouting fib daddr type local tcp dport $modbus_port redirect to :$port"
        fi
        echo "add rule ip $TABLE input tcp dport $port ct original proto-dst $modbus_port accept"
    fi
    echo "add rule ip $TABLE input tcp dport $port reject with tcp reset"
}

# modbus_holds FILE: the table of this description is there.
modbus_holds() {
    modbus_read "$1"
    server_port || return 1
    table=$(nft --numeric list table ip "$TABLE" 2>/dev/null) || table=
    if [ -n "$modbus_port" ]; then
        pattern="*dport $port ct original proto-dst $modbus_port accept*"
    else
        pattern="*dport $port reject with tcp reset*"
    fi
    # shellcheck disable=SC2254
    case $table in
        *proto-dst*) [ -n "$modbus_port" ] || table= ;;
    esac
    # shellcheck disable=SC2254
    case $table in
        $pattern) ;;
        *)
            why="the nftables table $TABLE does not have it"
            return 1
            ;;
    esac
}

# modbus_apply FILE
modbus_apply() {
    if ! have nft; then
        why="nftables is not installed"
        return 1
    fi
    if modbus_holds "$1"; then
        return 0
    fi
    why=
    server_port || return 1
    [ -z "$modbus_port" ] || may_open "$modbus_port" || return 1
    changed=yes
    if ! modbus_rules | nft -f -; then
        why="nftables refused the rules"
        return 1
    fi
}
