// tests/fuzz/receive_fuzz.cpp - test: any bytes in any pieces through the reception calls.
// Every record handed out must hold fields within their ranges, and every call must end.
// SPDX-License-Identifier: MIT
#include "lib/lib_tavu_2.h"

#include "tests/fuzz/wire.h"

#include <array>
#include <string.h>

namespace {

bool within(int value, int low, int high) {
    return low <= value && value <= high;
}

void check(const CAN_FRAME_INFO& frame) {
    const bool is_fields_ok = within(frame.msg_type, TAVU_DATA_TYPE, TAVU_BUSERR_PSR_TYPE) &&
                              within(frame.CAN_port, -1, 2) && within(frame.id_type, 0, TAVU_EID) &&
                              within(frame.rtr, 0, 1) && within(frame.dlc, 0, 15) &&
                              within(frame.brs, 0, 1) && within(frame.esi, 0, 1) &&
                              within(frame.fdf, 0, 1);
    if (!is_fields_ok) {
        fuzz::finding("a field is outside its range");
    }
    if (strnlen(frame.recv_time, sizeof frame.recv_time) != sizeof frame.recv_time - 1) {
        fuzz::finding("the time text is not whole");
    }
    const int payload = frame.fdf != 0 ? DecodeDLC_CANFD(frame.dlc) : 8;
    for (std::size_t i = static_cast<std::size_t>(payload); i < sizeof frame.data; ++i) {
        if (frame.data[i] != 0) {
            fuzz::finding("bytes behind the payload were written");
        }
    }
}

using Receive = int (*)(int, CAN_FRAME_INFO*);

void receive_all(int port, Receive receive) {
    while (fuzz::bytes_left() > 0) {
        CAN_FRAME_INFO frame{};
        if (receive(port, &frame) == TAVU_REPORT) {
            check(frame);
        }
    }
}

void receive_batch(int port) {
    std::array<CAN_FRAME_INFO, 8> frames{};
    NON_BLOCK_INFO batch{.cnt = frames.size(), .interval = 0, .can_frame_info = frames.data()};
    const int count = TAVUReceiveNonblock(port, &batch);
    if (!within(count, 0, static_cast<int>(frames.size()))) {
        fuzz::finding("the batch counts more records than it has room for");
    }
    for (int i = 0; i < count; ++i) {
        check(frames[static_cast<std::size_t>(i)]);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const int port = fuzz::open_port();
    const std::span<const std::uint8_t> input(data, size);
    fuzz::feed(input);
    receive_all(port, TAVUReceive_CANFD);
    fuzz::feed(input);
    receive_all(port, TAVUReceive);
    fuzz::feed(input);
    receive_batch(port);
    return 0;
}
