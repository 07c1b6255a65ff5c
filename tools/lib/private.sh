# shellcheck shell=bash
# The private Debian root, for machines of another release: one for each list of packages. Runs as root. Needs common.sh
# and the toolbox's variables.
: "${project:?}" "${cache:?}" "${uid:?}" "${gid:?}"

suite=trixie
# Increase this when make_root changes what is in the root.
recipe=1
root=$cache/root-$({ echo "$suite $recipe" && packages; } | sha256sum | cut -c1-16)

# The mirror that the machine itself uses, in case it can reach no other. Empty if none looks like Debian's main archive;
# mmdebstrap then uses its default.
machine_mirror() {
    # shellcheck disable=SC2016 # the variable is apt's
    apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 2>/dev/null | grep -m1 -E '/debian/?$' || true
}

# Proxy, certificates, time-outs and passwords of the machine's apt, which also installs the root's packages.
apt_settings() {
    apt-config dump | grep '^Acquire::' | grep -v -i -E 'Proxy-Auto-Detect|IndexTargets' || true
    echo 'Dir::Etc::netrc "/etc/apt/auth.conf"; Dir::Etc::netrcparts "/etc/apt/auth.conf.d";'
}

provide_makers() {
    if command -v bwrap && command -v mmdebstrap; then return; fi >/dev/null
    command -v apt-get >/dev/null || die "The tools need Debian 12 or newer: this machine has no apt-get to make a private Debian root with."
    install_packages "bubblewrap and mmdebstrap" "$root.log" bubblewrap mmdebstrap gpg debian-archive-keyring
}

# The machine's own, and those that packages name.
architectures() {
    dpkg --print-architecture
    packages | sed -n 's/.*://p' | sort -u
}

make_root() {
    local part=$root.part settings=$root.part.apt file
    bwrap --dev-bind / / --tmpfs /mnt true ||
        die "This machine is older than Debian 13 and may not mount, which a private Debian 13 root needs. Run this where CAP_SYS_ADMIN is allowed, or on Debian 13."
    rm -rf --one-file-system "$part"
    apt_settings >"$settings"
    # In separate namespaces: when this shell dies, mounts and processes go with it.
    # shellcheck disable=SC2046 # no mirror is no argument
    step "Making a private Debian root (about two minutes)" "$root.log" \
        bwrap --die-with-parent --unshare-pid --dev-bind / / --proc /proc \
        mmdebstrap --verbose --variant=minbase --architectures="$(architectures | paste -sd,)" --aptopt="$settings" \
        --dpkgopt=force-unsafe-io --include="$(packages | paste -sd,)" "$suite" "$part" $(machine_mirror)
    # apt is also used inside, with the same certificates.
    sed -n 's/^Acquire::https::.* "\(\/.*\)";$/\1/p' "$settings" | while read -r file; do
        [ ! -f "$file" ] || install -D -m 644 "$file" "$part$file"
    done
    rm "$settings"
    mv "$part" "$root"
}

# Leaves a shared lock on descriptor 7, which protects the root from deletion.
provide_root() {
    exec 7>>"$root.lock"
    lock_or_wait 7 "the private root" -s
    while [ ! -d "$root" ] || ! command -v bwrap >/dev/null; do
        lock_or_wait 7 "the private root"
        provide_makers
        [ -d "$root" ] || make_root
        flock -s 7
    done
}

# Makes a file or folder of the machine visible at its own path, below folders that bwrap would otherwise make for root only.
# usage: show OPTION PATH
show() {
    binds+=(--perms 755 --dir "${2%/*}/" "$1" "$2" "$2")
}

# Runs a command in the root, with the machine's folders and settings, in a process namespace that ends with it.
run_in_root() {
    local rc=0 variable file child binds=(--bind "$root" / --dev-bind /dev /dev --proc /proc --ro-bind /sys /sys --bind /tmp /tmp)
    show --bind "$project"
    for file in /etc/resolv.conf /etc/hosts /etc/pip.conf /etc/ssl/certs/ca-certificates.crt; do
        show --ro-bind-try "$file"
    done
    for variable in PIP_CERT PIP_CLIENT_CERT PIP_CONFIG_FILE PIP_FIND_LINKS SSL_CERT_FILE REQUESTS_CA_BUNDLE CURL_CA_BUNDLE XAUTHORITY; do
        file=${!variable:-}
        [ "${file:0:1}" != / ] || show --ro-bind-try "$file"
    done
    # Wine names its user after the account, so the invoking one is known inside.
    if [ "$uid" -ne 0 ]; then
        exec 3< <(cat "$root/etc/passwd" && getent passwd "$uid") 4< <(cat "$root/etc/group" && getent group "$gid")
        binds+=(--perms 644 --ro-bind-data 3 /etc/passwd --perms 644 --ro-bind-data 4 /etc/group)
    fi
    # Everything inside dies with this shell. A change of user cancels that, so setpriv asks for it again. bwrap starts in HOME when
    # there is no current folder inside.
    # shellcheck disable=SC2154 # as_user is the toolbox's
    env --ignore-signal=TERM,HUP HOME="$project" bwrap --die-with-parent --unshare-pid --as-pid-1 "${binds[@]}" \
        env --default-signal=INT,QUIT,TERM,HUP "${as_user[@]}" setpriv --pdeathsig KILL "$@" <&0 &
    child=$!
    # The processes inside get an interrupt at the terminal directly, but bwrap would not pass SIGTERM on to them.
    trap '' INT
    trap 'kill -TERM $(cat "/proc/$child/task/$child/children") 2>/dev/null || true' TERM HUP
    while wait "$child" || rc=$?; kill -0 "$child" 2>/dev/null; do
        rc=0
    done
    exit "$rc"
}

# Lock files stay, because another start may be waiting for one. Roots in use by another checkout stay too.
remove_roots() {
    local lock
    for lock in "$cache"/root-*.lock; do
        [ -e "$lock" ] || continue
        exec 7>>"$lock"
        if flock -n -x 7; then
            rm -rf --one-file-system "${lock%.lock}" "${lock%.lock}".{part,part.apt,log}
        else
            say "${lock%.lock} is in use and stays"
        fi
    done
}
