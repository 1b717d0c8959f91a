// tests/fuzz/receive_fuzz.cpp - test: any bytes in any pieces through the reception calls.
// Every record handed out must hold fields within their ranges, and every call must end.
// SPDX-License-Identifier: MIT
#include "lib/lib_tavu_2.h"

#include "tests/fuzz/wire.h"

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
    const int payload = frame.fdf != 0 ? DecodeDLC_CANFD(frame.dlc) : 8;
    fuzz::demand(std::count(frame.data + payload, std::end(frame.data), 0) == 64 - payload,
                 "nothing is written behind the payload");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const int port = fuzz::open_port();
    const unsigned choice = size > 1 ? data[1] : 0U;  // bit 0: range filter, bit 1: batch has time
    RANGE_FILTER_INFO table{};
    table.range[0] = {.en = 1, .id_type = TAVU_SID, .id_start = 0x100, .id_end = 0x1FF};
    TAVUSetRangeFilter(port, &table, nullptr);
    TAVUInitRangeFilter(port, (choice & 1) != 0 ? 2 : 1, 1);
    for (auto* const receive : {TAVUReceive_CANFD, TAVUReceive}) {
        fuzz::feed({data, size});
        for (std::size_t call = 0; call < size; ++call) {  // each takes a byte or there is none
            CAN_FRAME_INFO frame{};
            if (receive(port, &frame) == TAVU_REPORT) {
                check(frame);
            }
        }
    }
    fuzz::feed({data, size});
    std::array<CAN_FRAME_INFO, 2> frames{};
    NON_BLOCK_INFO batch{
        .cnt = frames.size(), .interval = choice & 2, .can_frame_info = frames.data()};
    const int count = TAVUReceiveNonblock(port, &batch);
    fuzz::demand(within(count, 0, frames.size()), "a batch has room for its records");
    std::for_each_n(frames.begin(), count, check);
    return 0;
}
