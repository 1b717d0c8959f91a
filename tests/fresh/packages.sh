#!/bin/sh
# tests/fresh/packages.sh - test: the Debian packages, installed, used and purged on a system that has nothing else.
# usage: packages.sh FOLDER USER   (as root; FOLDER holds the packages, libtavu_ui_script.so and a copy of tests/fresh,
# tools and examples; USER is the one who uses the program)
# SPDX-License-Identifier: MIT
set -eu
folder=$1
user=$2
home=$(getent passwd "$user" | cut -d: -f6)
export DEBIAN_FRONTEND=noninteractive

fail() {
    printf 'packages: %s\n' "$1" >&2
    exit 1
}

as_user() {
    su - "$user" -c "$1"
}

# The menu entry's command, on a virtual display, played by the script.
use_program() {
    command=$(sed -n 's/^Exec=//p' /usr/share/applications/tavu-utility.desktop)
    as_user "UI_SCRIPT=$folder/fresh/session.txt UI_SCRIPT_OUT=$home GTK_MODULES=$folder/libtavu_ui_script.so \
        NO_AT_BRIDGE=1 GSETTINGS_BACKEND=memory $folder/tools/with_display tavu-sim --port ttyACM0 -- $command"
    documents=$(as_user 'xdg-user-dir DOCUMENTS')
    [ "$documents" != "$home" ] || fail "the user has no folder of documents"
    [ "$(stat -c '%U %s' "$documents/tavu.cfg")" = "$user 92" ] || fail "the export is not in $documents"
}

# The examples against the installed library, by pkg-config and by CMake, on the simulated module.
use_library() {
    as_user "set -e
        cc -std=c99 \$(pkg-config --cflags tavu_2) $folder/examples/list_modules.c \$(pkg-config --libs tavu_2) -o list
        tavu-sim --port ttyACM0 -- ./list
        cmake -G Ninja -S $folder/examples -B examples >/dev/null
        cmake --build examples >/dev/null
        tavu-sim --port ttyACM0 -- examples/send_receive 24
        rm -r list examples"
}

# The command on the simulated module, and what its package brings for the shell.
use_command() {
    as_user "tavu-sim --port ttyACM0 -- tavu list" | grep -q '^/dev/ttyACM0: port 24' || fail "tavu finds no module"
    bash -c '. /usr/share/bash-completion/completions/tavu
        COMP_WORDS=(tavu dump --st) COMP_CWORD=2
        _tavu
        [ "${COMPREPLY[*]}" = "--stamp --stats" ]' || fail "no completion of tavu"
    [ -f /usr/share/doc/tavu-cli/examples/tavu-bridge@.service ] || fail "no unit for the bridge"
}

apt-get update -qq
apt-get install -y -qq --no-install-recommends xvfb xauth gcc g++ cmake ninja-build pkg-config man-db >/dev/null
apt-get install -y -qq "$folder"/*.deb >/dev/null
dpkg -L tavu-utility tavu-cli libtavu-2-3 libtavu-2-dev | sort -u >/tmp/installed
as_user xdg-user-dirs-update
use_program
use_library
use_command
for page in tavu-utility tavu-sim tavu; do
    man "$page" | grep -q NAME || fail "no manual page of $page"
done
fc-list ':charset=274c' | grep -q . || fail "no font that has the cross"

apt-get purge -y -qq tavu-utility tavu-cli libtavu-2-3 libtavu-2-dev >/dev/null
left=$(while read -r path; do [ -d "$path" ] || [ ! -e "$path" ] || echo "$path"; done </tmp/installed)
[ -z "$left" ] || fail "left after the purge: $left"
left=$(find / -xdev \( -path /home -o -path /root -o -path /tmp -o -path /var/cache -o -path /proc -o -path "$folder" \) -prune -o -name '*tavu*' -print)
[ -z "$left" ] || fail "left after the purge: $left"
[ -f "$documents/tavu.cfg" ] || fail "the purge took the user's file"
echo "Packages installed, used and purged"
