// lib/channels.cpp - library: bit rates, modes, error reports, acceptance and range filters.
// Uses lib/link.h. Knows nothing of CAN FD.
// Thread: any, one exchange per port at a time; range-filter calls at any time.
// SPDX-License-Identifier: MIT
#include "lib/link.h"

#include <algorithm>

namespace tavu {

std::mutex range_filter_mutex;

namespace {

constexpr int kLastSlowCode = 3;  // bit-rate codes up to here need newer firmware
constexpr int kLastFirmwareWithoutSlow = 2;

// A mask that reaches an extended identifier's highest bit is sent with this as its first byte.
constexpr unsigned int kHighestIdBit = 0x10000000;
constexpr unsigned int kFirstMaskByte = 0xFF000000;
constexpr unsigned int kExtendedFirstByte = 0x3F000000;

enum RangeOperation { kDisable = 1, kEnable = 2, kClear = 3 };

// The caller holds range_filter_mutex.
void range_operate(RANGE_FILTER_INFO& table, int operation) {
    switch (operation) {
        case kEnable:
            range_enable_store(table, 1);
            break;
        case kDisable:
            range_enable_store(table, 0);
            break;
        case kClear:
            range_enable_store(table, 0);
            std::fill_n(table.range, TAVU_RANGE_CNT, RANGE_INFO{});
            break;
        default:
            break;
    }
}

void range_load(RANGE_FILTER_INFO& table, const RANGE_FILTER_INFO* source) {
    if (source == nullptr) {
        return;
    }
    const std::lock_guard lock(range_filter_mutex);
    range_operate(table, kClear);
    std::copy_n(source->range, TAVU_RANGE_CNT, table.range);
}

bool range_matches(const RANGE_INFO& range, const CAN_FRAME_INFO& frame) {
    return range.en != 0 && range.id_type == static_cast<unsigned int>(frame.id_type) &&
           range.id_start <= frame.id && frame.id <= range.id_end;
}

}  // namespace

// Relaxed: the byte only decides whether the lock is taken; the table itself is read under it.
unsigned char range_enable_load(RANGE_FILTER_INFO& table) {
    return std::atomic_ref(table.enable).load(std::memory_order_relaxed);
}

void range_enable_store(RANGE_FILTER_INFO& table, unsigned char enable) {
    std::atomic_ref(table.enable).store(enable, std::memory_order_relaxed);
}

int range_filter_process(COM_NODE* node, CAN_FRAME_INFO* frame) {
    const RANGE_FILTER_INFO& table = node->range_filter[frame->CAN_port == TAVU_CAN_1 ? 0 : 1];
    bool is_passed = false;
    {
        const std::lock_guard lock(range_filter_mutex);
        is_passed =
            std::any_of(table.range, table.range + TAVU_RANGE_CNT,
                        [&](const RANGE_INFO& range) { return range_matches(range, *frame); });
    }
    if (is_passed) {
        return TAVU_REPORT;
    }
    *frame = {};
    return TAVU_NO_REPORT;
}

}  // namespace tavu

using namespace tavu;

int TAVUSetBaudRate(int com_port, int can1, int can2) {
    const int digit = firmware_digit(com_port);
    if (digit <= kLastFirmwareWithoutSlow && (can1 <= kLastSlowCode || can2 <= kLastSlowCode)) {
        return TAVU_FAILURE;
    }
    return exchange(com_port, command_frame(kSetBaudRate, can1, can2));
}

int TAVUSetMode(int com_port, int can1, int can2) {
    return exchange(com_port, command_frame(kSetMode, can1, can2));
}

int TAVUSetErrorType(int com_port, int type) {
    return exchange(com_port, command_frame(kSetErrorType, type));
}

int TAVUSetFilter(int com_port, FILTER_INFO info) {
    if (info.CAN_port != TAVU_CAN_1 && info.CAN_port != TAVU_CAN_2) {
        return TAVU_FAILURE;
    }
    unsigned int mask = info.mask;
    if ((mask & kHighestIdBit) != 0) {
        mask = (mask & ~kFirstMaskByte) | kExtendedFirstByte;
    }
    const Command command = info.CAN_port == TAVU_CAN_1 ? kSetFilter1 : kSetFilter2;
    return exchange(com_port, filter_frame(command, info.flt_type, info.flt_id, mask));
}

int TAVUClearFilter(int com_port, int can_port) {
    switch (can_port) {
        case TAVU_CAN_1:
            return exchange(com_port, clr_filt_0_cmd);
        case TAVU_CAN_2:
            return exchange(com_port, clr_filt_1_cmd);
        default:
            return TAVU_FAILURE;
    }
}

int TAVUGetBusError(int com_port) {
    return cmd_process(com_port, static_cast<int>(get_bus_cmd.size()), 0, get_bus_cmd.data(),
                       nullptr);
}

int TAVUInitRangeFilter(int com_port, int can1, int can2) {
    COM_NODE* node = chk_is_legal_com(com_port);
    if (node == nullptr) {
        return TAVU_FAILURE;
    }
    const std::lock_guard lock(range_filter_mutex);
    range_operate(node->range_filter[0], can1);
    range_operate(node->range_filter[1], can2);
    return TAVU_SUCCESS;
}

int TAVUGetRangeFilter(int com_port, RANGE_FILTER_INFO* can1, RANGE_FILTER_INFO* can2) {
    const COM_NODE* node = chk_is_legal_com(com_port);
    if (node == nullptr || can1 == nullptr || can2 == nullptr) {
        return TAVU_FAILURE;
    }
    const std::lock_guard lock(range_filter_mutex);
    *can1 = node->range_filter[0];
    *can2 = node->range_filter[1];
    return TAVU_SUCCESS;
}

int TAVUSetRangeFilter(int com_port, const RANGE_FILTER_INFO* can1, const RANGE_FILTER_INFO* can2) {
    COM_NODE* node = chk_is_legal_com(com_port);
    if (node == nullptr) {
        return TAVU_FAILURE;
    }
    range_load(node->range_filter[0], can1);
    range_load(node->range_filter[1], can2);
    return TAVU_SUCCESS;
}
