#!/bin/sh
# tests/usb_guest/run.sh - test: boots the guest, in which our programs meet the kernel's real USB serial driver.
# usage: run.sh BUILD_FOLDER [--busy]     --busy: two endless loops on the host take its processors meanwhile
# Exit status 0 when the guest's verdict is. Kernel and modules are unpacked below build/usb-guest, never installed.
# SPDX-License-Identifier: MIT
set -eu
source=$(cd "$(dirname "$0")" && pwd)
build=$(cd "$1" && pwd)
load=${2:-}
cache=$(cd "$source/../.." && pwd)/build/usb-guest
limit_s=240  # a good run takes half of it
frames=10000 # each way through the bridge; the kernel hands it on
[ "$load" != --busy ] || frames=2000

# In the order of loading. The last one is the gadget that the tests plug in by loading it.
order="usb-common usbcore udc-core configfs libcomposite u_serial usb_f_acm dummy_hcd cdc-acm can can-raw can-dev vcan"
plugged="g_serial"

say() {
    printf 'usb guest: %s\n' "$1" >&2
}

# The package that really holds the kernel, as the one that always names the newest depends on it.
download_kernel() {
    package=$(apt-cache depends linux-image-amd64 | sed -n 's/^ *Depends: \(linux-image-[0-9].*\)/\1/p' | head -n 1)
    [ -n "$package" ] && say "downloading $package" && apt-get download -qq -o APT::Sandbox::User=root "$package"
}

unpack_kernel() {
    rm -rf "$cache/unpacked" "$cache/kernel"
    mkdir -p "$cache/unpacked" "$cache/kernel"
    (
        cd "$cache/unpacked"
        download_kernel || { say "no kernel package: 'apt-get update' may help" && exit 1; }
        dpkg-deb -x ./linux-image-*.deb .
        cp boot/vmlinuz-* "$cache/kernel/vmlinuz"
        for module in $order $plugged; do
            file=$(find . -name "$module.ko*")
            cp "$file" "$cache/kernel/" || { say "the kernel has no module $module" && exit 1; }
        done
        find "$cache/kernel" -name '*.xz' -exec unxz {} +
        echo "$order" >"$cache/kernel/order" # last: it says that all is there
    )
    rm -rf "$cache/unpacked"
}

applets="sh mount mkdir insmod rmmod ip cat cmp cut dmesg grep rm sed seq sleep tail wc poweroff"

# Copies a program and the libraries that it is linked with.
install_program() {
    cp "$1" "$root/bin/"
    ldd "$1" | grep -o '/[^ ]*' | while read -r library; do
        mkdir -p "$root$(dirname "$library")"
        cp -L "$library" "$root$library"
    done
}

make_initramfs() {
    root=$scratch/root
    mkdir -p "$root/bin" "$root/modules" "$root/dev" "$root/proc" "$root/sys"
    cp /bin/busybox "$root/bin/"
    for applet in $applets; do
        ln -s busybox "$root/bin/$applet"
    done
    cp "$cache/kernel"/*.ko "$cache/kernel/order" "$root/modules/"
    for program in "$build/tests/usb_guest/usb_guest_test" "$build/cli/tavu" "$build/sim/tavu-sim" \
        "$build/sim/tavu_sim_shim.so" candump cansend cangen canplayer; do
        install_program "$(command -v "$program")"
    done
    cp "$source/bridge.sh" "$root/bin/"
    cp "$source/init" "$root/init"
    chmod +x "$root/init"
    (cd "$root" && find . | cpio -o -H newc --quiet) | gzip -1 >"$scratch/initramfs"
}

# One processor: the host stops them one at a time, and while the one that moves the driver's input on is stopped, the
# other overruns the kernel's 64 KiB of it. Such a loss says nothing about us, as no program could prevent it.
boot() {
    timeout -k 5 "$limit_s" qemu-system-x86_64 -nodefaults -no-reboot -display none -pidfile "$scratch/pid" \
        -accel tcg -smp 1 -m 512 -kernel "$cache/kernel/vmlinuz" -initrd "$scratch/initramfs" \
        -append "console=ttyS0 quiet loglevel=2 panic=-1 frames=$frames" -serial stdio </dev/null 2>&1 |
        tr -d '\r' | tee "$log" | grep -a --line-buffered -E '^(ok|FAILED|verdict) ' || true
}

clean_up() {
    for process in $loops $(cat "$scratch/pid" 2>/dev/null); do
        kill "$process" 2>/dev/null || true
    done
    rm -rf "$scratch"
}

scratch=$(mktemp -d)
loops=""
trap clean_up EXIT
trap 'exit 1' INT TERM HUP
mkdir -p "$cache"
log=$cache/console${load}.log
[ "$(cat "$cache/kernel/order" 2>/dev/null)" = "$order" ] || unpack_kernel
make_initramfs
if [ "$load" = --busy ]; then
    for _ in 1 2; do
        (while kill -0 $$; do :; done) 2>/dev/null & # never outlives this script
        loops="$loops $!"
    done
fi
boot &
wait $!
if ! grep -aq '^verdict 0 ' "$log"; then
    say "failed; what else $log says at its end:"
    grep -avE '^(ok|FAILED) ' "$log" | tail -n 25 >&2
    exit 1
fi
