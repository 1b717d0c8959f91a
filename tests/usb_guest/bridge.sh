#!/bin/sh
# tests/usb_guest/bridge.sh - test: the command tavu between a module and other people's programs, in the guest.
# can-utils on the kernel's CAN interfaces, the module on the kernel's USB serial driver. Everything is compared as text
# that candump wrote. Exit status 0 when all is well.
# SPDX-License-Identifier: MIT
set -u
cd /tmp || exit 1
failures=0
limit_ms=10000 # nothing came for so long: the rest is lost
setup="-b 1000 -f 8"

# Prints one line; $1 is 0 when all is well.
verdict() {
    [ "$1" -eq 0 ] && echo "ok $2" && return
    echo "FAILED $2"
    failures=$((failures + 1))
}

# Waits until the command succeeds, 10 s at most.
wait_for() {
    for _ in $(seq 100); do
        "$@" >/dev/null 2>&1 && return
        sleep 0.1
    done
    "$@"
}

# shellcheck disable=SC2317 # wait_for calls it
has_times() { # FILE COUNT TEXT
    [ "$(grep -c "$3" "$1")" -ge "$2" ]
}

module_begin() { # OPTION...
    tavu-sim --device /dev/ttyGS0 "$@" >/dev/null &
    module=$!
    wait_for [ -e /dev/ttyACM0 ]
}

module_end() {
    kill "$module" && wait "$module"
}

bridge_begin() { # COMMAND...
    # shellcheck disable=SC2086 # a list of words
    "$@" tavu bridge ttyACM0 vcan0 vcan1 $setup 2>bridge.log &
    bridge=$!
    wait_for has_times bridge.log 1 connected
}

bridge_end() { # TEXT
    kill "$bridge" && wait "$bridge"
    status=$?
    summary=$(tail -n 1 bridge.log)
    verdict "$status" "$1, its end ($status): ${summary#tavu: }"
}

# From now on, what both interfaces carry is listed in vcan0.log and vcan1.log, until it is so many frames. The other
# reader of an interface is the bridge.
record() { # COUNT
    rm -f vcan?.log
    recorders=""
    for interface in vcan0 vcan1; do
        candump -L -r 16000000 -n "$1" -T "$limit_ms" "$interface" >"$interface.log" &
        recorders="$recorders $!"
        wait_for has_times /proc/net/can/rcvlist_all 2 " $interface "
    done
}

# Whether so many frames, those with the text, came on both sides: the same ones in the same order.
verdict_carried() { # WHAT COUNT [TEXT]
    # shellcheck disable=SC2086 # a list of words
    wait $recorders
    for interface in vcan0 vcan1; do
        grep "${3:-#}" "$interface.log" | cut -d ' ' -f 3 >"$interface.frames"
    done
    rows="different rows"
    cmp -s vcan0.frames vcan1.frames && rows="identical rows"
    [ "$rows" = "identical rows" ] && [ "$(wc -l <vcan0.frames)" -eq "$2" ]
    verdict $? "$1: $(wc -l <vcan0.frames) frames on CAN 1, $(wc -l <vcan1.frames) on CAN 2, $rows"
}

interfaces_make() {
    for interface in vcan0 vcan1; do
        { ip link add dev "$interface" type vcan && ip link set "$interface" mtu 72 && ip link set "$interface" up; } ||
            verdict 1 "$interface cannot be made"
    done
}

# One frame of each kind, in the form in which candump shows it.
kinds="123#DEADBEEF 000# 1ABCDEF0#0102030405060708 7FF#R 00000123#R5 123##4 1FFFFFFF##5AA 7FF##6$(printf '%0128d' 7)"

single_frames() { # WHEN
    record 8
    for kind in $kinds; do
        cansend vcan0 "$kind"
    done
    verdict_carried "cansend $1, each kind of frame" 8
    # shellcheck disable=SC2086 # a list of words
    [ "$(cat vcan1.frames)" = "$(printf '%s\n' $kinds)" ]
    verdict $? "they are what was sent"
}

# cangen on both sides at once: every kind of frame, random lengths and data.
generated_frames() { # WHERE COUNT GAP_MS
    record $((2 * $2))
    cangen vcan0 -m -I 2A5 -g "$3" -n "$2" &
    other=$!
    cangen vcan1 -m -I 55A -g "$3" -n "$2"
    wait "$other"
    verdict_carried "cangen on CAN 1 $1" "$2" 2A5#
    verdict_carried "cangen on CAN 2 meanwhile" "$2" 55A#
}

# The line is cut first; the gadget goes when nobody uses it.
unplugged() {
    echo disconnect >/sys/class/udc/dummy_udc.0/soft_connect
    wait_for has_times bridge.log 1 waiting
    module_end
    rmmod g_serial
    insmod /modules/g_serial.ko use_acm=1
    module_begin
    wait_for has_times bridge.log 2 connected
    verdict $? "the bridge connected again by itself"
}

# A log of ours is played by canplayer, what candump writes of that by us: the module gets the same commands.
logs() {
    module_begin --traffic 400
    tavu dump ttyACM0 --fd 2 -q -n 1000 --log dump.log 2>summary
    verdict $? "tavu dump: $(cut -d ' ' -f 2- summary)"
    module_end
    module_begin --record bridged
    bridge_begin
    count=$(grep -c can0 dump.log)
    record "$count"
    canplayer -I dump.log vcan0=can0
    verdict_carried "canplayer with a log of tavu dump" "$count"
    # The kernel sets a flag of its own, 4, in each CAN FD frame.
    grep can0 dump.log | cut -d ' ' -f 3 | sed 's/##0/##4/;s/##1/##5/' | cmp -s vcan1.frames -
    verdict $? "they are what was dumped"
    bridge_end "bridge"
    module_end
    module_begin --record played
    # shellcheck disable=SC2086 # a list of words
    tavu play ttyACM0 vcan0.log $setup --map vcan0:1 2>summary
    verdict $? "tavu play with a log of candump: $(tail -n 1 summary | sed 's/.*tavu: //')"
    module_end
    grep '^[EF]0 ' bridged >bridged.frames
    grep '^[EF]0 ' played | cmp - bridged.frames
    verdict $? "the module got $(wc -l <bridged.frames) commands, those that the bridge sent"
}

# A module that takes no more than its line holds: it is told once a second at most, and each frame is accounted for,
# also those that still wait in the interface at the end.
deaf_module() {
    bridge_begin tavu-sim --control control --
    echo "fault ttyACM0 deaf" >control
    cangen vcan0 -I 123 -L 8 -g 0 -n 3000
    wait_for has_times bridge.log 2 "more frames: the module takes no frames"
    kill "$bridge" && wait "$bridge"
    status=$?
    summary=$(tail -n 1 bridge.log)
    numbers=$(echo "$summary" | sed 's/.*interfaces, \([0-9]*\) to the module.* --fd, \([0-9]*\) that.*/\1 + \2/')
    [ "$status" -eq 1 ] && [ $((numbers)) -eq 3000 ]
    verdict $? "3000 frames to a module that is deaf, its end ($status): ${summary#tavu: }"
}

interfaces_make
# The emulated cable takes one command in 4 ms.
module_begin
bridge_begin
single_frames "before"
generated_frames "in a burst over USB" 500 0
unplugged
single_frames "after"
bridge_end "bridge over USB"
module_end
logs
bridge_begin tavu-sim --
generated_frames "over a pty" "${frames:-10000}" 1
bridge_end "bridge over a pty"
deaf_module
exit "$failures"
