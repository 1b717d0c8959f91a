// service/procedures.cpp - service: fixed sequences of library calls behind the user's commands.
// Uses lib/lib_tavu_2.h and the message schedule. Knows nothing of frames, rings or widgets.
// Thread: main thread.
// SPDX-License-Identifier: MIT
#include "service/apipart.h"
#include "service/message_schedule.h"

#include <cstdio>

UPUI_INFO upui_info{};

namespace {

constexpr unsigned char kFdDevice = 1;

enum { CONNECT_DONE = 0, CONNECT_NO_PORT = 1, CONNECT_NO_VERSION = 2, CONNECT_CLOSED = 1 };

// Both wait for the worker; without one they do nothing.
void receive_worker_stop(int com_port) {
    CAN_RECV_INFO stop{};
    stop.is_cancel = true;
    procRecv(com_port, stop);
}

void transmit_worker_stop(int com_port) {
    CAN_SEND_INFO stop{};
    stop.is_cancel = true;
    procSend(com_port, stop);
}

// The library clears the record it cannot fill, so a copy is filled: the configuration last read
// outlives a read-back that fails.
void configuration_read_back(int com_port) {
    UPUI_INFO fresh{};
    if (upui_info.device_type == kFdDevice) {
        if (TAVUGetCFG_CANFD(com_port, &fresh.cfg_info_canfd) == TAVU_SUCCESS) {
            upui_info.cfg_info_canfd = fresh.cfg_info_canfd;
        }
    } else if (TAVUGetCfg(com_port, &fresh.cfg_info) == TAVU_SUCCESS) {
        upui_info.cfg_info = fresh.cfg_info;
    }
}

int disconnect(int com_port) {
    receive_worker_stop(com_port);
    transmit_worker_stop(com_port);
    messages_stop();
    TAVUInitCAN(com_port, TAVU_INACTIVE, TAVU_INACTIVE);
    TAVUCloseDevice(com_port);
    return CONNECT_CLOSED;
}

int connect(int com_port, CAN_CNNT_INFO* info) {
    if (TAVUOpenDevice(com_port) != TAVU_SUCCESS) {
        return CONNECT_NO_PORT;
    }
    TAVUInitCAN(com_port, TAVU_INACTIVE, TAVU_INACTIVE);

    VER_INFO version{};
    if (TAVUShowVer(com_port, &version) != TAVU_SUCCESS) {
        TAVUCloseDevice(com_port);
        return CONNECT_NO_VERSION;
    }
    snprintf(info->fw, sizeof info->fw, "FW: %s", version.fw);
    snprintf(info->api, sizeof info->api, "Lib: %s", version.api);
    snprintf(info->mdl, sizeof info->mdl, "Model: %s", version.model);

    configuration_read_back(com_port);
    guiStatusUpdate(upui_info);
    return CONNECT_DONE;
}

// See procCanSetFailed.
int failed_steps = 0;

int step_note(int step, int result) {
    failed_steps |= result == TAVU_SUCCESS ? 0 : step;
    return result;
}

int filter_apply(int com_port, int can_port, const CAN_SET_INFO& info) {
    return info.is_filt ? TAVUSetFilter(com_port, info.filt_info)
                        : TAVUClearFilter(com_port, can_port);
}

}  // namespace

int procConnect(int com_port, CAN_CNNT_INFO* info) {
    upui_info.device_type = kFdDevice;
    return info->is_discnnt ? disconnect(com_port) : connect(com_port, info);
}

int procInitial(int com_port, bool to_start) {
    if (to_start) {
        const int result = TAVUInitCAN(com_port, TAVU_ACTIVE, TAVU_ACTIVE);
        TAVUWaitReceive(com_port, 0);  // what was unread before the start is counted now, not later
        messages_start(com_port);      // as a burst may be sent after a start without confirmation
        return result;
    }
    messages_stop();
    receive_worker_stop(com_port);
    return TAVUInitCAN(com_port, TAVU_INACTIVE, TAVU_INACTIVE);
}

int procReset(int com_port) {
    const int result = TAVUResetCAN(com_port);
    if (result == TAVU_SUCCESS) {
        configuration_read_back(com_port);
        guiStatusUpdate(upui_info);
    }
    return result;
}

int procError(int com_port, int type) {
    return TAVUSetErrorType(com_port, type);
}

int procCanSet(int com_port, CAN_SET_INFO* info) {
    const CAN_SET_INFO& can1 = info[TAVU_CAN_1];
    const CAN_SET_INFO& can2 = info[TAVU_CAN_2];
    const bool is_fd = upui_info.device_type == kFdDevice;
    failed_steps = 0;
    if (is_fd) {
        step_note(
            CAN_SET_FD,
            TAVUSetCFG_CANFD(com_port, {.CAN1_DataRate = static_cast<unsigned char>(can1.Dbaud),
                                        .CAN1_FDF_EN = can1.fdf,
                                        .CAN2_DataRate = static_cast<unsigned char>(can2.Dbaud),
                                        .CAN2_FDF_EN = can2.fdf}));
    }
    int failures = step_note(CAN_SET_MODE, TAVUSetMode(com_port, can1.mode, can2.mode));
    failures += step_note(CAN_SET_BAUD, TAVUSetBaudRate(com_port, can1.baud, can2.baud));
    failures += step_note(CAN_SET_FILTER_1, filter_apply(com_port, TAVU_CAN_1, can1));
    failures += step_note(CAN_SET_FILTER_2, filter_apply(com_port, TAVU_CAN_2, can2));
    if (is_fd) {
        configuration_read_back(com_port);
    }
    return failures;
}

int procCanSetFailed() {
    return failed_steps;
}

int procCfg(int com_port, char* file_name, bool is_imp) {
    if (!is_imp) {
        return TAVUExpCfg(com_port, file_name);
    }
    const int result = TAVUImpCfg(com_port, file_name);
    if (result == TAVU_SUCCESS) {
        configuration_read_back(com_port);
        guiStatusUpdate(upui_info);
    }
    return result;
}
