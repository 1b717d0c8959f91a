// tests/fuzz/receive_fuzz.cpp - test: any bytes in any pieces through the reception calls.
// Every record handed out must hold fields within their ranges, and every call must end.
// SPDX-License-Identifier: MIT
#include "lib/lib_tavu_2.h"

#include "tests/fuzz/wire.h"

#include <algorithm>
#include <array>
#include <functional>
#include <iterator>
#include <string.h>

namespace {

bool within(int value, int low, int high) {
    return low <= value && value <= high;
}

void check(const CAN_FRAME_INFO& frame) {
    fuzz::demand(within(frame.msg_type, TAVU_DATA_TYPE, TAVU_BUSERR_PSR_TYPE) &&
                     within(frame.CAN_port, -1, 2) && within(frame.id_type, 0, TAVU_EID) &&
                     within(frame.rtr, 0, 1) && within(frame.dlc, 0, 15) &&
                     within(frame.brs, 0, 1) && within(frame.esi, 0, 1) && within(frame.fdf, 0, 1),
                 "every field is within its range");
    fuzz::demand(strnlen(frame.recv_time, sizeof frame.recv_time) == sizeof frame.recv_time - 1,
                 "the time text is whole");
    const int payload = frame.fdf != 0 ? DecodeDLC_CANFD(frame.dlc) : 8;
    fuzz::demand(std::all_of(frame.data + payload, std::end(frame.data), std::logical_not()),
                 "nothing is written behind the payload");
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
    fuzz::demand(within(count, 0, static_cast<int>(frames.size())),
                 "a batch has room for its records");
    std::for_each_n(frames.begin(), count, check);
}

void receive_wrongly(int port) {
    constexpr int kClosedPort = 0;
    CAN_FRAME_INFO frame{};
    NON_BLOCK_INFO no_room{.cnt = 1, .interval = 0, .can_frame_info = nullptr};
    NON_BLOCK_INFO closed{.cnt = 1, .interval = 0, .can_frame_info = &frame};
    TAVUCancelReceive(kClosedPort);
    TAVUGetLoss(nullptr);
    const int reports = TAVUReceive_CANFD(kClosedPort, &frame) + TAVUReceive(port, nullptr) +
                        TAVUReceiveNonblock(port, &no_room) +
                        TAVUReceiveNonblock(kClosedPort, &closed);
    fuzz::demand(reports == 0 && TAVUWaitReceive(kClosedPort, 0) == TAVU_FAILURE,
                 "wrong arguments give no record, whatever waits to be read");
}

// What the second byte asks for: range filter of CAN 1 on, a cancelled batch, a cancelled wait.
void set_up(int port, unsigned choice) {
    TAVUInitRangeFilter(port, (choice & 1) != 0 ? 2 : 1, 1);
    if ((choice & 2) != 0) {
        TAVUCancelReceive(port);
    }
    if ((choice & 4) != 0) {
        TAVUWaitReceive(port, 0);
    }
}

int open_port() {
    const int port = fuzz::open_port();
    RANGE_FILTER_INFO table{};
    table.range[0] = {.en = 1, .id_type = TAVU_SID, .id_start = 0x100, .id_end = 0x1FF};
    TAVUSetRangeFilter(port, &table, nullptr);
    receive_wrongly(port);
    TAVUResetLoss();
    return port;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const int port = open_port();
    const std::span<const std::uint8_t> input(data, size);
    set_up(port, size > 1 ? data[1] : 0U);
    for (const Receive receive : {TAVUReceive_CANFD, TAVUReceive}) {
        fuzz::feed(input);
        receive_all(port, receive);
    }
    fuzz::feed(input);
    receive_batch(port);
    TAVUWaitReceive(port, 0);
    TAVU_LOSS_INFO lost{};
    TAVUGetLoss(&lost);
    return 0;
}
