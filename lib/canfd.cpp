// lib/canfd.cpp - library: CAN FD configuration and bit timing.
// Uses lib/link.h. Carries the timing parameters without interpreting them.
// Thread: any, one exchange per port at a time.
// SPDX-License-Identifier: MIT
#include "lib/link.h"

namespace {

constexpr unsigned char kLastTimingSet = 2;
constexpr std::size_t kTimingBytes = 16;  // the set's number and its parameters without param5

}  // namespace

using namespace tavu;

int TAVUSetCFG_CANFD(int com_port, CFG_CANFD info) {
    return exchange(com_port, command_frame(kSetCanFd, info.CAN1_DataRate, info.CAN2_DataRate,
                                            info.CAN1_FDF_EN, info.CAN2_FDF_EN));
}

int TAVUGetCFG_CANFD(int com_port, CANFD_CFG_INFO* info) {
    if (info == nullptr) {
        return TAVU_FAILURE;
    }
    *info = {};
    Reply<kConfigBytes + 2 * TAVU_CHANNEL_CNT> reply{};
    if (exchange(com_port, getcfg_canfd_cmd, reply) != TAVU_SUCCESS) {
        return TAVU_FAILURE;
    }
    const auto data = reply_data(reply);
    config_fill(*info, config_decode(data.first<kConfigBytes>()));
    const auto fd = data.subspan<kConfigBytes>();
    info->fdf_en[0] = fd[0];
    info->datarate[0] = fd[1];
    info->fdf_en[1] = fd[2];
    info->datarate[1] = fd[3];
    return TAVU_SUCCESS;
}

int TAVUSet_TimingCFG_CANFD(int com_port, TIMING_CFG_CANFD info) {
    return exchange(com_port,
                    command_frame(kSetTiming, info.index, info.param1, info.param2, info.param3,
                                  info.param4, info.param6, info.param7, info.param8, info.param9,
                                  info.param10, info.param11, info.param12, info.param13,
                                  info.param14, info.param15, info.param16));
}

int TAVUGet_TimingCFG_CANFD(int com_port, TIMING_CFG_CANFD* info, unsigned char index) {
    if (info == nullptr || index > kLastTimingSet) {
        return TAVU_FAILURE;
    }
    *info = {};
    Reply<kTimingBytes> reply{};
    const auto data = reply_data(reply);
    if (exchange(com_port, command_frame(kGetTiming, index), reply) != TAVU_SUCCESS ||
        data[0] != index) {
        return TAVU_FAILURE;
    }
    *info = {.index = data[0],
             .param1 = data[1],
             .param2 = data[2],
             .param3 = data[3],
             .param4 = data[4],
             .param5 = 0,
             .param6 = data[5],
             .param7 = data[6],
             .param8 = data[7],
             .param9 = data[8],
             .param10 = data[9],
             .param11 = data[10],
             .param12 = data[11],
             .param13 = data[12],
             .param14 = data[13],
             .param15 = data[14],
             .param16 = data[15]};
    return TAVU_SUCCESS;
}
