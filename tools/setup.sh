# tools/setup.sh - tool: what ./demo and ./check share. Sourced, not run.
# SPDX-License-Identifier: MIT

run_packages="libgtk-3-0 librsvg2-common adwaita-icon-theme fonts-dejavu-core xvfb"
build_packages="g++ cmake ninja-build pkg-config libgtk-3-dev libpcap-dev"
test_packages="libgtest-dev libgmock-dev libbenchmark-dev clang clang-tidy clang-format libclang-rt-14-dev"
package_packages="librsvg2-bin help2man dpkg-dev file"
usb_packages="qemu-system-x86 busybox-static cpio xz-utils"

fail() {
    printf '%s: %s\n' "$(basename "$0")" "$1" >&2
    exit 1
}

# Runs a command as root: directly, or through sudo.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    else
        sudo "$@"
    fi
}

# Ends here when as_root would not work; $1 says what for.
need_root() {
    [ "$(id -u)" -eq 0 ] && return 0
    command -v sudo >/dev/null 2>&1 ||
        fail "root rights are needed to $1: run this once as root, or install sudo"
    sudo true || fail "sudo refused: run this once as root, or as a user who may $1"
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
    need_root "install packages"
    as_root apt-get update -qq || fail "the package lists could not be read: is the machine online?"
    # shellcheck disable=SC2086 # a list of words
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $missing ||
        fail "the packages above could not be installed"
}

# Configures and builds a preset; arguments after the preset's name are targets.
build_preset() {
    preset=$1
    shift
    printf 'Building (%s)\n' "$preset"
    cmake --preset "$preset" $configure_options >"$log_dir/configure-$preset.log" 2>&1 || {
        cat "$log_dir/configure-$preset.log" >&2
        fail "configuring the $preset build failed"
    }
    if [ $# -gt 0 ]; then
        cmake --build --preset "$preset" --target "$@"
    else
        cmake --build --preset "$preset"
    fi || fail "the $preset build failed"
}
