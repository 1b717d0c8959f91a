# tools/setup.sh - tool: what ./demo, ./check, ./package and the tools share. Sourced, not run.
# SPDX-License-Identifier: MIT
# shellcheck shell=sh disable=SC2034,SC2154 # what it gives to who sources it, and gets

run_packages="libgtk-3-0 libpcap0.8 librsvg2-common adwaita-icon-theme fonts-dejavu-core xvfb"
build_packages="g++ cmake ninja-build pkg-config libgtk-3-dev libpcap-dev libcli11-dev"
test_packages="libgtest-dev libgmock-dev libbenchmark-dev clang clang-tidy clang-format libclang-rt-14-dev"
package_packages="librsvg2-bin help2man dpkg-dev file"
usb_packages="qemu-system-x86 busybox-static cpio xz-utils can-utils tshark"

fail() {
    printf '%s: %s\n' "$(basename "$0")" "$1" >&2
    exit 1
}

# Names the places that are nearly full: what fails for want of room rarely says so.
nearly_full() {
    df -Pm . build "${TMPDIR:-/tmp}" /var/cache/apt/archives /usr 2>/dev/null |
        awk 'NR > 1 && $4 < 50 && !seen[$6]++ { printf " (only %d MB are free on %s)", $4, $6 }'
}

# Ends here unless the folder, made if missing, can be written to.
need_folder() {
    { mkdir -p "$1" && [ -w "$1" ]; } ||
        fail "cannot write to $1: free some room, or remove it if it is another user's$(nearly_full)"
}

# Runs a command as root: directly, or through sudo.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    else
        sudo "$@"
    fi
}

# The same, in this process's place.
exec_as_root() {
    [ "$(id -u)" -ne 0 ] || exec "$@"
    exec sudo "$@"
}

# Ends here when as_root would not work; $1 says what to do then.
need_root() {
    [ "$(id -u)" -eq 0 ] && return 0
    command -v sudo >/dev/null 2>&1 || fail "root rights are needed, and sudo is not here: $1"
    sudo true || fail "root rights are needed, and sudo refused: $1"
}

# Installs packages without questions and without removing any; none named completes what was left half installed.
apt_install() {
    as_root env DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 \
        apt-get install --no-install-recommends --no-remove --fix-broken "$@"
}

# Ends here when there is no room for packages: dpkg would leave them half installed, and apt-get does not look.
need_room() {
    needed_MB=$(apt_install --assume-no "$@" 2>/dev/null |
        awk '/^After this operation, .* will be used/ {
            gsub(",", "", $4); print int($4 * ($5 == "GB" ? 1000 : $5 == "MB")) }')
    free_MB=$(df -Pm /usr | awk 'NR > 1 { print $4 }')
    [ "$free_MB" -gt $((${needed_MB:-0} + 50)) ] ||
        fail "the packages need $needed_MB MB in /usr, $free_MB are free: free some"
}

# Installs those of the named Debian packages that are missing; says which before it does.
need_packages() {
    command -v apt-get >/dev/null 2>&1 || fail "this script installs Debian packages, and apt-get is not here; see README.md for what is needed"
    missing=""
    for package in "$@"; do
        if ! dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
            missing="$missing $package"
        fi
    done
    [ -z "$missing" ] && return 0
    printf 'Installing Debian packages:%s\n' "$missing"
    need_root "as root, 'apt-get install' these packages, then run this again"
    # Offline, the update only warns: what cannot be had shows in the installation.
    # shellcheck disable=SC2086 # a list of words
    { as_root apt-get update -qq && apt_install -qq && need_room $missing && apt_install -y $missing; } ||
        fail "apt-get could not install the packages: is the machine online, with the package sources of Debian 12?$(nearly_full)"
}

# Configures and builds a preset; arguments after the preset's name are targets.
build_preset() {
    preset=$1
    shift
    printf 'Building (%s)\n' "$preset"
    need_folder "build/$preset"
    log=$log_dir/configure-$preset.log
    # A configuration that failed remembers what it did not find for want of room, so the next one starts afresh.
    # Without room cmake may even call itself successful and write no plan.
    plan=build/$preset/build.ninja
    fresh=--fresh
    [ ! -e "$plan" ] || fresh=""
    # shellcheck disable=SC2086 # lists of words
    { cmake --preset "$preset" $fresh $configure_options >"$log" 2>&1 && [ -e "$plan" ]; } || {
        rm -f "$plan"
        awk 1 "$log" >&2 || true # cat would leave a log that was cut off without an end of line
        fail "configuring the $preset build failed$(nearly_full)"
    }
    if [ $# -gt 0 ]; then
        cmake --build --preset "$preset" --target "$@"
    else
        cmake --build --preset "$preset"
    fi || fail "the $preset build failed$(nearly_full)"
}
