# shellcheck shell=bash
# Messages, locks and progress of long steps, for the commands at the top and the scripts of the tool environment.

say() {
    printf 'toolbox: %s\n' "$*" >&2
}

die() {
    say "$*"
    exit 1
}

# Runs a long step with its output in a log. The user sees the elapsed time and the log's last line, updated in place on a
# terminal, every ten seconds otherwise. If the step fails, the end of its log is shown.
# usage: step TITLE LOG COMMAND...
step() {
    local title=$1 log=$2 begin=$SECONDS shown=$SECONDS pid rc=0 last
    shift 2
    say "$title ..."
    "$@" >"$log" 2>&1 </dev/null &
    pid=$!
    while kill -0 "$pid" 2>/dev/null; do
        sleep 0.2
        last=$(tail -n 1 "$log" | tr -cd '[:print:]' | cut -c1-100)
        if [ -t 2 ]; then
            printf '\r\033[K  %3d s  %s' $((SECONDS - begin)) "$last" >&2
        elif [ $((SECONDS - shown)) -ge 10 ]; then
            shown=$SECONDS
            printf '  %3d s  %s\n' $((SECONDS - begin)) "$last" >&2
        fi
    done
    wait "$pid" || rc=$?
    [ ! -t 2 ] || printf '\r\033[K' >&2
    if [ "$rc" -ne 0 ]; then
        tail -n 20 "$log" >&2
        say "$title failed (exit code $rc). The whole log: $log"
        return "$rc"
    fi
    say "$title: $((SECONDS - begin)) s"
}

# Locks an open file descriptor, with a message if it has to wait. Exclusive, or shared with -s.
# usage: lock_or_wait DESCRIPTOR WHAT [-s]
lock_or_wait() {
    flock -n "${3:--x}" "$1" && return
    say "another start is using $2, waiting for it ..."
    flock "${3:--x}" "$1"
}

# The lines of a list without comments.
entries() {
    grep -v -E '^(#|$)' "$1"
}
