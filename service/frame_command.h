// service/frame_command.h - service: what is sent of a frame, and the call that sends it.
// Only service/; used by the transmit worker and the message schedule.
// Thread: any.
// SPDX-License-Identifier: MIT
#ifndef SERVICE_FRAME_COMMAND_H
#define SERVICE_FRAME_COMMAND_H

#include "lib/lib_tavu_2.h"

#include <algorithm>

// The identifier, cut to 11 or 29 bits.
inline unsigned int identifier_to_send(const CAN_FRAME_INFO& request) {
    return request.id & (request.id_type == TAVU_SID ? TAVU_SID_MAX : TAVU_EID_MAX);
}

// Only the fields that a frame command carries; ESI and the report kind stay 0.
inline CAN_FRAME_INFO frame_to_send(const CAN_FRAME_INFO& request) {
    CAN_FRAME_INFO frame{};
    frame.CAN_port = request.CAN_port;
    frame.id_type = request.id_type;
    frame.rtr = request.rtr;
    frame.dlc = request.dlc;
    frame.id = request.id;
    frame.fdf = request.fdf;
    frame.brs = request.brs;
    std::ranges::copy(request.data, frame.data);
    return frame;
}

// Waits the channel's pacing delay and writes the command. TAVU_SUCCESS, or TAVU_FAILURE as in
// TAVUSend.
inline int frame_command_send(int com_port, const CAN_FRAME_INFO& frame) {
    return frame.fdf != TAVU_FDF_OFF ? TAVUSend_CANFD(com_port, frame) : TAVUSend(com_port, frame);
}

#endif
