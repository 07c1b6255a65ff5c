# shellcheck shell=bash
# A slot is a Wine prefix with its own display and wineserver, so that programs in different slots do not see each other's
# registry, windows or COM servers. It is a hard-linked copy of the base prefix (Wine replaces the registry files, which are real
# copies, by renaming).
#
# A slot belongs to one session at a time: its Xvfb inherits the slot's lock, and ends last.
# Within a session a slot has a key: "own", "pool-1", ... are fresh copies in any free folder auto-1, auto-2, ...;
# "named-NAME" is the folder NAME, which keeps its content between sessions. The session's folder has a file KEY.open with
# "display, Xvfb's process, folder" for each, and KEY.warm once Wine's services run.
# Needs common.sh and the variable project.
: "${project:?}"

tools=$project/.tools
# What every slot is a copy of. Another environment has other programs in it, and named slots of its own.
base=$tools/prefix${KESTA_WITH:+-$KESTA_WITH}

# Debian's wineserver keeps its socket in a folder of /tmp whose name is in the prefix.
forget_server() {
    local name
    [ -f "$1/wineserver" ] || return 0
    name=$(cat "$1/wineserver")
    case $name in
        *[!A-Za-z0-9-]* | '') ;;
        wine-*) rm -rf "/tmp/$name" || true ;;
    esac
    rm -f "$1/wineserver"
}

copy_prefix() {
    forget_server "$1"
    rm -rf "$1" "$1.part"
    (
        # Not while the base is replaced.
        flock -s 9
        cp -al "$base" "$1.part"
        rm "$1.part"/*.reg
        cp "$base"/*.reg "$1.part"
    ) 9>>"$tools/lock"
    mv "$1.part" "$1"
}

# Sets slot to the folder of a key, locked on descriptor 6.
lock_slot() {
    local number=0
    case $1 in
        named-*)
            slot=$tools/slots/${1#named-}${KESTA_WITH:+-$KESTA_WITH}
            exec 6>>"$slot.lock"
            lock_or_wait 6 "the slot ${1#named-}"
            cmp -s "$slot/stamp" "$base/stamp" || copy_prefix "$slot"
            ;;
        *)
            while number=$((number + 1)); do
                slot=$tools/slots/auto-$number
                exec 6>>"$slot.lock"
                ! flock -n -x 6 || break
            done
            # A slot that no program has used is still fresh.
            if [ -e "$slot/wineserver" ] || ! cmp -s "$slot/stamp" "$base/stamp"; then
                copy_prefix "$slot"
            fi
            ;;
    esac
}

# usage: open_slot KEY
open_slot() {
    local slot display
    [ ! -s "$KESTA_SESSION/$1.open" ] || return 0
    lock_slot "$1"
    # In its own session, so that an interrupt at the terminal does not reach it.
    : >"$KESTA_SESSION/$1.display"
    setsid Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp 3>"$KESTA_SESSION/$1.display" >/dev/null 2>&1 </dev/null 8>&- 5>&- &
    until read -r display <"$KESTA_SESSION/$1.display"; do
        kill -0 $! 2>/dev/null || die "Xvfb does not start."
        sleep 0.01
    done
    echo ":$display $! $slot" >"$KESTA_SESSION/$1.open"
    exec 6>&-
}

# Sets the environment to an open slot.
# usage: use_slot KEY
use_slot() {
    local display
    read -r display _ WINEPREFIX <"$KESTA_SESSION/$1.open"
    export WINEPREFIX DISPLAY=$display
}

# Starts Wine's services and the desktop (explorer.exe), which start.exe keeps in use, and waits until the desktop is there.
# Otherwise the first program with a window would start one, which keeps that program's output open until a second after the last
# use of the desktop: CTest would take a test that has long ended for a running one, up to its time limit if other tests follow
# closely.
warm_slot() {
    local tries=1200
    [ ! -e "$KESTA_SESSION/$1.warm" ] || return 0
    wine cmd /c exit >/dev/null 2>&1 </dev/null 5>&- 8>&-
    setsid "$project/tools/lib/bin/wine" start.exe /wait explorer.exe /desktop >/dev/null 2>&1 </dev/null 5>&- 8>&- &
    until [[ $(xwininfo -root -children) == *'"explorer.exe"'* ]]; do
        tries=$((tries - 1))
        [ "$tries" -gt 0 ] || die "Wine's desktop does not start."
        sleep 0.05
    done
    : >"$KESTA_SESSION/$1.warm"
}

# Ends the Windows programs of a slot, and then its Xvfb. The file "wineserver" is there if one was started.
close_slot() {
    local process
    read -r _ process WINEPREFIX <"$KESTA_SESSION/$1.open"
    if [ -e "$WINEPREFIX/wineserver" ]; then
        WINEPREFIX=$WINEPREFIX wineserver -k 2>/dev/null || true
        forget_server "$WINEPREFIX"
        case $1 in
            named-*) ;;
            *) rm -f "$WINEPREFIX/stamp" ;;
        esac
    fi
    kill "$process" 2>/dev/null || true
    rm -f "$KESTA_SESSION/$1".{open,warm}
}

end_slots() {
    local file
    for file in "$KESTA_SESSION"/*.open; do
        [ ! -s "$file" ] || close_slot "$(basename "$file" .open)"
    done
}
