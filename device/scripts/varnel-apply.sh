# SPDX-License-Identifier: MIT
# shellcheck shell=sh disable=SC2034,SC2154
# The part of varnel-config that is the same for every kind of configuration: the place of a description, its state,
# how often the system is changed, previous files, daemons. "kind" is set. Needs varnel-common.sh.
#
# A description's way:
#   $STATE_DIR/wanted/KIND    the wish, as a device script has written it down
#   $STATE_DIR/taken/KIND     taken out of there, so that the next wish can follow
#   $KEEP_DIR/wanted/KIND     on the disk, not in effect yet
#   $KEEP_DIR/effective/KIND  in effect

# On a read-only root a wish lasts until the next start.
choose_keep_dir() {
    if ! (umask 077 && mkdir -p -- "$KEEP_DIR") 2>/dev/null || [ ! -w "$KEEP_DIR" ]; then
        KEEP_DIR=$STATE_DIR/keep
    fi
}

prepare_state() {
    choose_keep_dir
    for dir in "$STATE_DIR/wanted" "$STATE_DIR/taken" "$STATE_DIR/state" "$KEEP_DIR" "$KEEP_DIR/wanted" \
        "$KEEP_DIR/effective" "$KEEP_DIR/former"; do
        private_dir "$dir"
    done
    read_state
}

# --- descriptions ---

# copy_durably FROM TO: a reader sees the former file or the new one, also after a power cut.
copy_durably() {
    (umask 077 && cp -- "$1" "$2.new") && sync -- "$2.new" && mv -f -- "$2.new" "$2"
}

# take_wish: writes the last wish, if there is one, to the disk, unless it is there already.
take_wish() {
    taken=$STATE_DIR/taken/$kind
    if [ -e "$STATE_DIR/wanted/$kind" ]; then
        mv -f -- "$STATE_DIR/wanted/$kind" "$taken"
    fi
    [ -e "$taken" ] || return 0
    if cmp -s -- "$taken" "$KEEP_DIR/effective/$kind"; then
        rm -f -- "$KEEP_DIR/wanted/$kind"
    elif ! cmp -s -- "$taken" "$KEEP_DIR/wanted/$kind"; then
        copy_durably "$taken" "$KEEP_DIR/wanted/$kind"
        say "$kind wanted: $("${kind}_summary" "$taken")"
        state=
    fi
    rm -f -- "$taken"
}

first_existing() {
    for file in "$@"; do
        if [ -e "$file" ]; then
            printf '%s\n' "$file"
            return
        fi
    done
    return 1
}

# described: prints the file that describes what should be in effect; fails if nothing was ever wanted.
described() {
    first_existing "$KEEP_DIR/wanted/$kind" "$KEEP_DIR/effective/$kind"
}

# newest_description: the same, wishes not taken yet included.
newest_description() {
    first_existing "$STATE_DIR/wanted/$kind" "$STATE_DIR/taken/$kind" || described
}

confirm_wish() {
    if [ -e "$KEEP_DIR/wanted/$kind" ]; then
        mv -f -- "$KEEP_DIR/wanted/$kind" "$KEEP_DIR/effective/$kind"
    fi
}

# --- state ---

# The state is one line: effect, refused or failed, since when, and why.
read_state() {
    state=
    since=
    reason=
    if [ -r "$STATE_DIR/state/$kind" ]; then
        read -r state since reason <"$STATE_DIR/state/$kind" || :
    fi
}

# enter_state STATE REASON: reports a new state in the journal, but not another failure of the same kind.
enter_state() {
    if [ "$changed" = yes ] || [ "$state $reason" != "$1 $2" ]; then
        since=$(date +%s)
        case $1 in
            effect) say "$kind in effect: $("${kind}_summary" "$(described)")${2:+; $2}" ;;
            refused) say "$kind refused: $2; the former configuration stays" ;;
            failed) say "$kind not in effect: $2; the former configuration stays until the next try" ;;
        esac
    fi
    state=$1
    reason=$2
    printf '%s %s %s\n' "$state" "$since" "$reason" >"$STATE_DIR/state/$kind.new"
    mv -f -- "$STATE_DIR/state/$kind.new" "$STATE_DIR/state/$kind"
}

# --- pace ---

# A controller whose configuration changes all the time must not wear out the flash or keep the daemons from working:
# the pause after a change is APPLY_PAUSE_SECONDS, and doubles, up to five minutes, while changes follow each other.
read_pace() {
    last=0
    pause=0
    if [ -r "$STATE_DIR/state/$kind.pace" ]; then
        read -r last pause <"$STATE_DIR/state/$kind.pace" || :
    fi
    now=$(date +%s)
    # A clock that was set back.
    [ "$now" -ge "$last" ] || last=$now
}

await_pace() {
    read_pace
    if [ $((last + pause)) -gt "$now" ]; then
        sleep $((last + pause - now))
    fi
}

keep_pace() {
    read_pace
    [ $((now - last)) -le $((2 * pause)) ] || pause=0
    pause=$((pause * 2))
    [ "$pause" -ge "$APPLY_PAUSE_SECONDS" ] || pause=$APPLY_PAUSE_SECONDS
    [ "$pause" -le 300 ] || pause=300
    printf '%s %s\n' "$now" "$pause" >"$STATE_DIR/state/$kind.pace"
}

# --- former files ---

# keep_original PATH: puts the distribution's own file aside once, before the first of ours takes its place.
keep_original() {
    if [ -f "$1" ] && [ ! -e "$1.before-varnel" ] && ! grep -q "$MADE_BY_MARK" "$1"; then
        cp -p -- "$1" "$1.before-varnel"
    fi
}

# can_write DIRECTORY: nothing is stopped for a configuration that cannot be written.
can_write() {
    if ! mkdir -p -- "$1" 2>/dev/null || [ ! -w "$1" ]; then
        why="$1 cannot be written"
        return 1
    fi
}

# save_former FILE...: keeps the files of the configuration that is in effect. After a power cut in the middle of a
# change the saved ones are older than those in place, and stay.
save_former() {
    former=$KEEP_DIR/former/$kind
    [ ! -d "$former" ] || return 0
    rm -rf -- "$former.new"
    private_dir "$former.new"
    for file in "$@"; do
        keep_original "$file"
        if [ -f "$file" ]; then
            cp -p -- "$file" "$former.new/"
        fi
    done
    sync -- "$former.new"/* 2>/dev/null || :
    mv -- "$former.new" "$former"
}

# restore_former FILE...
restore_former() {
    for file in "$@"; do
        saved=$KEEP_DIR/former/$kind/${file##*/}
        if [ -f "$saved" ]; then
            cp -p -- "$saved" "$file.new" && sync -- "$file.new" && mv -f -- "$file.new" "$file"
        else
            rm -f -- "$file"
        fi
    done
    drop_former
}

drop_former() {
    rm -rf -- "${KEEP_DIR:?}/former/$kind"
}

# holds_text FILE TEXT: true if the file exists and has this content.
holds_text() {
    [ -f "$1" ] && printf '%s\n' "$2" | cmp -s -- - "$1"
}

# --- daemons ---

# control_service VERB NAME: start, stop or restart, with the panel's init system.
control_service() {
    if [ -d /run/systemd/system ]; then
        # Several configurations in a row are not a crash loop: reset systemd's own count.
        systemctl reset-failed "$2.service" 2>/dev/null || :
        systemctl --no-ask-password "$1" "$2.service" >&2
    elif [ -x "/etc/init.d/$2" ]; then
        timeout 120 "/etc/init.d/$2" "$1" >/dev/null 8>&- 9>&-
    else
        say "no service $2 on this panel"
        return 1
    fi
}

# daemon_runs NAME
daemon_runs() {
    if [ -d /run/systemd/system ]; then
        case $(systemctl show --property=ActiveState --value "$1.service") in
            inactive | failed) return 1 ;;
        esac
    else
        pidof "$1" >/dev/null
    fi
}

# await TENTHS COMMAND...: runs the command again and again until it succeeds; fails when the time is over.
await() {
    await_left=$1
    shift
    until "$@"; do
        await_left=$((await_left - 1))
        [ "$await_left" -gt 0 ] || return 1
        sleep 0.1
    done
}
