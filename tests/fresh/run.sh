#!/bin/sh
# tests/fresh/run.sh - test: the README's commands, ./demo and ./check in a minimal Debian root.
# usage: run.sh SOURCE_FOLDER LOG_FOLDER   (as root)
#
# What a developer's machine has installed over the years hides what the scripts forget to install. Here there is
# nothing but a minimal system, git, and sudo for the plain user. Runs twice: as root, and as a plain user with sudo.
# All runs in namespaces of its own: its processes and mounts are gone with them, however it ends.
# SPDX-License-Identifier: MIT
set -eu
source=$1
log_folder=$2
suite=bookworm
root_MB=4000
. "$source/tools/setup.sh"

fail() {
    trap - EXIT
    printf 'fresh machine: %s\n' "$1" >&2
    exit 1
}

# What a killed process was just about to write may outlive the first try.
clean_up() {
    [ -z "$inside" ] || { kill -KILL "$inside"; wait "$inside" || true; } 2>/dev/null
    for _ in 1 2 3 4 5; do
        ! rm -rf --one-file-system "$FRESH_SCRATCH" 2>/dev/null || break
        sleep 1
    done
}

if [ -z "${FRESH_SCRATCH:-}" ]; then
    [ "$(id -u)" -eq 0 ] || fail "root rights are needed to make a root"
    namespaces="--mount --pid --fork --kill-child --mount-proc --propagation private"
    # shellcheck disable=SC2086 # a list of words
    unshare $namespaces true || fail "nothing can be mounted here: run this outside the container"
    free_MB=$(df -Pm "${TMPDIR:-/tmp}" | awk 'NR > 1 { print $4 }')
    [ "${free_MB:-0}" -ge "$root_MB" ] ||
        fail "$root_MB MB are needed in ${TMPDIR:-/tmp}: free some, or set TMPDIR to a folder that has them"
    FRESH_SCRATCH=$(mktemp -d "${TMPDIR:-/tmp}/tavu-fresh.XXXXXX")
    export FRESH_SCRATCH
    inside=""
    trap clean_up EXIT
    trap 'echo "fresh machine: stopped by a signal" >&2; exit 143' INT TERM HUP
    # shellcheck disable=SC2086
    unshare $namespaces sh "$0" "$@" &
    inside=$!
    status=0
    wait "$inside" || status=$?
    inside=""
    exit "$status"
fi
scratch=$FRESH_SCRATCH
trap 'fail "ended early; the reason is above$(nearly_full)"' EXIT

unmount_all() {
    awk -v scratch="$scratch/" 'index($2, scratch) == 1 { print $2 }' /proc/mounts | sort -r |
        while read -r place; do umount --lazy "$place" || true; done
}

# A minimal root with the machine's own package sources, apt settings and name service.
make_base() {
    sources=""
    for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list /etc/apt/sources.list.d/*.sources; do
        [ ! -s "$file" ] || sources="$sources $file"
    done
    options=""
    for file in /etc/apt/apt.conf /etc/apt/apt.conf.d/*; do
        [ ! -s "$file" ] || options="$options --aptopt=$file"
    done
    # shellcheck disable=SC2086 # lists of words
    TMPDIR=$scratch mmdebstrap --variant=minbase --include=git,sudo,ca-certificates $options \
        "$suite" "$base" $sources >"$log_folder/fresh-base.log" 2>&1 ||
        { tail -n 20 "$log_folder/fresh-base.log" >&2; fail "no minimal root could be made: is the machine online?$(nearly_full)"; }
    cp -L /etc/resolv.conf "$base/etc/resolv.conf"
    echo "127.0.0.1 localhost $(uname -n)" >"$base/etc/hosts"
    mv "$scratch/project.bundle" "$base/srv/"
}

# A copy of the base with proc, dev and pts, and a user who may use sudo.
make_root() {
    cp -a "$base" "$root" 2>"$log_folder/fresh-copy.log" || fail "the minimal root could not be copied$(nearly_full)"
    mount -t proc proc "$root/proc"
    mount -t tmpfs dev "$root/dev"
    for node in null zero full random urandom tty; do
        touch "$root/dev/$node"
        mount --bind "/dev/$node" "$root/dev/$node"
    done
    mkdir "$root/dev/pts" "$root/dev/shm"
    mount -t devpts devpts "$root/dev/pts" -o newinstance,ptmxmode=0666,mode=0620,gid=5
    mount -t tmpfs shm "$root/dev/shm"
    ln -s pts/ptmx "$root/dev/ptmx"
    ln -s /proc/self/fd "$root/dev/fd"
    chroot "$root" useradd --create-home --shell /bin/sh engineer
    echo 'APT::Get::Assume-Yes "true";' >"$root/etc/apt/apt.conf.d/90-answered"  # a user who says yes
    echo 'engineer ALL=(ALL) NOPASSWD: ALL' >"$root/etc/sudoers.d/engineer"
}

drop_root() {
    unmount_all
    rm -rf --one-file-system "$root"
}

# in_root USER COMMAND...: runs in the root as that user, in a clone of the project of its own.
in_root() {
    user=$1
    shift
    home=$(chroot "$root" getent passwd "$user" | cut -d: -f6)
    chroot --userspec="$user:$user" --groups="$user" "$root" \
        env -i HOME="$home" USER="$user" LOGNAME="$user" TERM=dumb LANG=C.UTF-8 \
        PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
        sh -c 'cd && [ -d project ] || git clone -q -c advice.detachedHead=false /srv/project.bundle project && cd project && exec "$@"' sh "$@"
}

# step NAME USER COMMAND...: in_root, with a log and the time it took.
step() {
    name=$1
    shift
    log=$log_folder/fresh-$name.log
    began=$(date +%s)
    if in_root "$@" >"$log" 2>&1 </dev/null; then
        printf '  %-28s %4s s\n' "$name" $(($(date +%s) - began))
    else
        tail -n 40 "$log" >&2
        fail "$name failed; all it printed: $log"
    fi
}

# The packages, judged by the distribution's own checkers, and what their test needs, kept for another root.
build_packages() {
    step package engineer ./package
    step lint engineer sh tests/fresh/lint.sh
    project=$root/home/engineer/project
    mkdir "$scratch/packages"
    cp -r "$project"/build/package/packages/*.deb "$project"/build/package/tools/libtavu_ui_script.so \
        "$project"/tests/fresh "$project"/tools "$project"/examples "$scratch/packages"
}

base=$scratch/base
root=$scratch/root
began=$(date +%s)
git -C "$source" -c safe.directory="$source" bundle create -q "$scratch/project.bundle" HEAD ||
    fail "the project cannot be copied: git must be here, and $source a clone with a commit"
make_base
printf '  %-28s %4s s\n' "minimal root" $(($(date +%s) - began))
for user in root engineer; do
    make_root
    # What all but the suite finds depends on no user, and it takes more than half of the time.
    parts=""
    [ "$user" = root ] || parts=--tests
    step "demo-$user" "$user" ./demo
    # shellcheck disable=SC2086 # none or one word
    step "check-$user" "$user" ./check $parts
    step "readme-$user" "$user" sh tests/fresh/readme.sh README.md
    [ "$user" = root ] || build_packages
    drop_root
done
make_root
cp -r "$scratch/packages" "$root/srv/packages"
step packages root sh /srv/packages/fresh/packages.sh /srv/packages engineer
trap - EXIT
echo "All checks passed"
