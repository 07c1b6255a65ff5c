# shellcheck shell=bash
# Makes the private Debian root, once for each content of packages.txt: complete or not there at all.
# Runs as root. Needs common.sh, and the variables project and cache.
: "${project:?}" "${cache:?}"

suite=trixie
# Counted up when this file puts something else into the root.
recipe=1

root_hash() {
    { echo "$suite $recipe" && packages; } | sha256sum | cut -c1-16
}

# The mirror the machine itself uses, so that a machine behind a mirror of its own works. Empty if it has none that looks like
# Debian's main archive; debootstrap then takes its default.
machine_mirror() {
    # shellcheck disable=SC2016 # the variable is apt's
    apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 2>/dev/null | grep -m1 -E '/debian/?$' || true
}

# Proxy, certificates and time-outs of the machine's apt, and its passwords for the time of the installation.
copy_apt_settings() {
    local root=$1 file
    apt-config dump | grep '^Acquire::' | grep -v -i 'Proxy-Auto-Detect' >"$root/etc/apt/apt.conf.d/99machine" || true
    apt-config dump | sed -n 's/^Acquire::https::.* "\(\/.*\)";$/\1/p' | while read -r file; do
        [ ! -f "$file" ] || install -D -m 644 "$file" "$root$file"
    done
    if [ -f /etc/ssl/certs/ca-certificates.crt ]; then
        install -D -m 644 /etc/ssl/certs/ca-certificates.crt "$root/etc/ssl/certs/ca-certificates.crt"
    fi
    for file in /etc/apt/auth.conf /etc/apt/auth.conf.d/*; do
        [ ! -f "$file" ] || install -D -m 600 "$file" "$root$file"
    done
}

install_packages() {
    local root=$1
    mount -t proc proc "$root/proc"
    mount --rbind /dev "$root/dev"
    copy_apt_settings "$root"
    install -m 644 "$(readlink -f /etc/resolv.conf)" "$root/etc/resolv.conf"
    # Keeps package scripts from starting services.
    printf '#!/bin/sh\nexit 101\n' >"$root/usr/sbin/policy-rc.d"
    chmod 755 "$root/usr/sbin/policy-rc.d"
    export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8
    chroot "$root" apt-get update
    # shellcheck disable=SC2046 # one word a package
    chroot "$root" apt-get install -y --no-install-recommends $(packages)
    chroot "$root" apt-get clean
    rm -rf "$root/etc/apt/auth.conf" "$root"/etc/apt/auth.conf.d/*
}

# Turns the calling subshell into a command in namespaces of its own: when the build ends or its shell dies, the mounts are gone
# and the processes dead.
in_namespace() {
    # shellcheck disable=SC2016 # the inner shell expands them
    exec env --default-signal=INT,QUIT setpriv --pdeathsig KILL unshare --mount --pid --fork --kill-child=KILL bash -euo pipefail -c '
        project=$1 cache=$2; shift 2
        . "$project/tools/lib/common.sh"
        . "$project/tools/lib/root.sh"
        mount --make-rprivate /
        "$@"' bash "$project" "$cache" "$@"
}

build_root() {
    local root=$1 part=$1.part log=$1.log mirror
    rm -rf --one-file-system "$part"
    mkdir -p "$part"
    : >"$log"
    if ! command -v debootstrap >/dev/null; then
        step "Installing debootstrap on this machine" "$log" \
            sh -c 'apt-get update && DEBIAN_FRONTEND=noninteractive apt-get install -y debootstrap debian-archive-keyring'
    fi
    mirror=$(machine_mirror)
    # shellcheck disable=SC2086 # no mirror is no argument
    step "Making a private Debian root (1 of 2, about half a minute)" "$log" \
        in_namespace debootstrap --variant=minbase $suite "$part" $mirror
    step "Installing its packages (2 of 2, about a minute)" "$log" in_namespace install_packages "$part"
    mv "$part" "$root"
}
