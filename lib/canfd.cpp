// lib/canfd.cpp - library: CAN FD configuration and bit timing.
// Uses lib/link.h. Carries the timing parameters without interpreting them.
// Thread: any, one exchange per port at a time.
// SPDX-License-Identifier: MIT
#include "lib/link.h"

namespace {

constexpr unsigned char kLastTimingSet = 2;

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
    std::array<unsigned char, kConfigBytes + 9> reply{};
    if (exchange(com_port, getcfg_canfd_cmd, reply) != TAVU_SUCCESS) {
        return TAVU_FAILURE;
    }
    config_decode(std::span(reply).subspan<2, kConfigBytes>(), *info);
    info->fdf_en[0] = reply[25];
    info->datarate[0] = reply[26];
    info->fdf_en[1] = reply[27];
    info->datarate[1] = reply[28];
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
    std::array<unsigned char, 21> reply{};
    if (exchange(com_port, command_frame(kGetTiming, index), reply) != TAVU_SUCCESS ||
        reply[2] != index) {
        return TAVU_FAILURE;
    }
    *info = {.index = reply[2],
             .param1 = reply[3],
             .param2 = reply[4],
             .param3 = reply[5],
             .param4 = reply[6],
             .param5 = 0,
             .param6 = reply[7],
             .param7 = reply[8],
             .param8 = reply[9],
             .param9 = reply[10],
             .param10 = reply[11],
             .param11 = reply[12],
             .param12 = reply[13],
             .param13 = reply[14],
             .param14 = reply[15],
             .param15 = reply[16],
             .param16 = reply[17]};
    return TAVU_SUCCESS;
}
