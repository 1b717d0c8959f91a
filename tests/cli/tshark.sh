#!/bin/sh
# tests/cli/tshark.sh - test: tshark reads what tavu dump records.
# usage: tshark.sh BUILD_FOLDER     prints a line "ok ..." or "FAILED ..."; exit status 0 when all is well
# SPDX-License-Identifier: MIT
set -eu
build=$(cd "$1" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
trap 'exit 1' INT TERM HUP
cd "$scratch"

"$build/sim/tavu-sim" --control control -- \
    "$build/cli/tavu" dump ttyACM0 --fd 2 --errors --quiet -n 5 --time 10 --pcap capture 2>messages &
dump=$!
until grep -qs can2.running=1 report; do
    kill -0 "$dump" || { cat messages && exit 1; }
    [ ! -p control ] || echo "report report" >control
    sleep 0.1
done
# A bus error of CAN 1, then a frame of each kind.
cat >control <<END
send ttyACM0 99 02 00 00 00 01 80 0F 00 00 00 00 00 00 2B 0D 0A
frame ttyACM0 1 123 DE AD BE EF
frame ttyACM0 2 18FEF100 01 02 03 04 05 06 07 08 ext
frame ttyACM0 1 7FF rtr
frame ttyACM0 2 1 00 11 22 33 44 55 66 77 88 99 AA BB fd brs
frame ttyACM0 1 1ABCDEF0 5A fd ext
END
wait "$dump" || { cat messages && exit 1; }

# Identifier, data bytes, extended, remote, bit-rate switch, data, error, receiver error passive.
cat >expected <<END
|8|||||1|1
$((0x123))|4|0|0||deadbeef|0|
$((0x18FEF100))|8|1|0||0102030405060708|0|
$((0x7FF))|0|0|1|||0|
1|12|0||1|00112233445566778899aabb||
$((0x1ABCDEF0))|1|1||0|5a||
END
tshark -r capture -T fields -E separator='|' -e can.id -e can.len -e can.flags.xtd -e can.flags.rtr -e canfd.flags.brs \
    -e data -e can.flags.err -e can.err.ctrl.rx_passive >shown 2>messages || { cat messages && exit 1; }
if cmp -s expected shown; then
    echo "ok tshark shows the $(wc -l <shown) frames of tavu dump: classic, extended, remote, CAN FD, error"
else
    echo "FAILED tshark shows the frames of tavu dump otherwise:"
    diff expected shown
    exit 1
fi
