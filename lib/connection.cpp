// lib/connection.cpp - library: open, close, pairing, versions, status, start and stop, pacing.
// Uses lib/link.h, lib/rs232.h. Knows nothing of frame traffic.
// Thread: any, one exchange per port at a time; open and close alone in the process.
// SPDX-License-Identifier: MIT
#include "lib/link.h"
#include "lib/rs232.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace tavu {

bool g_FlexibleVCOM_flag = false;
std::array<std::atomic<std::int32_t>, TAVU_CHANNEL_CNT> send_delay = {100, 100};

namespace {

constexpr int kBaudRate_bps = 9600;
constexpr const char* kMode = "8N1";
constexpr int kPairingFirmware = 5;  // firmware digit of modules with virtual ports to pair

// About 105 bit times at each bit-rate code, nearly a frame with eight data bytes; custom rates are
// taken for 100 kbit/s.
constexpr std::array<std::int32_t, 13> kPacing_us = {21000, 10500, 5250, 2100, 1050, 850, 400,
                                                     200,   150,   100,  250,  1050, 1050};

// Marks a pairing run; ends with the scope.
class PairingRun {
  public:
    PairingRun() : outer_(g_FlexibleVCOM_flag) { g_FlexibleVCOM_flag = true; }
    ~PairingRun() { g_FlexibleVCOM_flag = outer_; }
    PairingRun(const PairingRun&) = delete;
    PairingRun& operator=(const PairingRun&) = delete;

  private:
    bool outer_;
};

bool is_crossed(const VCOM_INFO& own, const VCOM_INFO& other) {
    const auto own_order = static_cast<int>(own.order);
    const auto other_order = static_cast<int>(other.order);
    return (own.com_port > other.com_port && own_order < other_order) ||
           (own.com_port < other.com_port && own_order > other_order);
}

void partner_assign(const VCOM_INFO& own, const VCOM_INFO& other) {
    if (is_crossed(own, other) && own.assign <= 1) {
        TAVUSetVCOMConfig(other.com_port, own.assign == 0 ? 1 : 0);
    }
}

// Opens candidate `com_port`, treats it if it is the partner of `own`, and closes it again.
bool partner_handle(const VCOM_INFO& own, int com_port) {
    if (TAVUOpenDevice(com_port) != TAVU_SUCCESS) {
        return false;
    }
    VCOM_INFO other{};
    const bool is_partner = TAVUGetVCOMConfig(com_port, &other) == TAVU_SUCCESS &&
                            other.skip == 0 && std::memcmp(own.uid, other.uid, sizeof own.uid) == 0;
    if (is_partner) {
        partner_assign(own, other);
    }
    TAVUCloseDevice(com_port);
    return is_partner;
}

// A status that cannot be read counts as running: one stop too many does no harm.
bool is_running(int com_port) {
    int can1 = TAVU_ACTIVE;
    int can2 = TAVU_ACTIVE;
    TAVUGetCANStatus(com_port, &can1, &can2);
    return can1 != TAVU_INACTIVE || can2 != TAVU_INACTIVE;
}

}  // namespace

COM_NODE* port_open(int com_port) {
    if (com_port < 0 || com_port >= TAVU_PORT_CNT) {
        return nullptr;
    }
    const int fd =
        RS232_OpenComport(comports[static_cast<std::size_t>(com_port)], kBaudRate_bps, kMode);
    if (fd <= 0) {
        // Standard input was closed; 0 is no usable result here and must not stay locked.
        if (fd == 0) {
            RS232_CloseComport(fd);
        }
        return nullptr;
    }
    const int cancel_fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (cancel_fd < 0) {
        RS232_CloseComport(fd);
        return nullptr;
    }
    create_com_list(first == nullptr,
                    {.is_legal = true, .com_port = com_port, .fd = fd, .cancel_fd = cancel_fd});
    return last;
}

void port_settle(int com_port) {
    TAVUInitCAN(com_port, TAVU_INACTIVE, TAVU_INACTIVE);
    if (firmware_digit(com_port) == kPairingFirmware && !g_FlexibleVCOM_flag) {
        TAVUFlexibleVCOM(com_port);
    }
}

void port_drop(COM_NODE* node) {
    RS232_CloseComport(node->fd);
    delete_com_node(node->com_port);
}

int firmware_digit(int com_port) {
    VER_INFO version{};
    TAVUShowVer(com_port, &version);
    unsigned int digit = 0;
    std::sscanf(version.fw, "%*1x%1x", &digit);
    return static_cast<int>(digit);
}

void fine_tune_send_delay(int com_port) {
    CFG_INFO config{};
    if (TAVUGetCfg(com_port, &config) != TAVU_SUCCESS) {
        return;
    }
    for (std::size_t can = 0; can < send_delay.size(); ++can) {
        if (config.baud[can] < kPacing_us.size()) {
            send_delay[can].store(kPacing_us[config.baud[can]], std::memory_order_relaxed);
        }
    }
}

}  // namespace tavu

using namespace tavu;

int TAVUOpenDevice(int com_port) {
    COM_NODE* node = port_open(com_port);
    if (node == nullptr) {
        return TAVU_FAILURE;
    }
    RS232_flushRX(node->fd);
    // The first answer of a module that was just plugged in may be lost, so the second decides.
    int can1 = 0;
    int can2 = 0;
    TAVUGetCANStatus(com_port, &can1, &can2);
    if (TAVUGetCANStatus(com_port, &can1, &can2) != TAVU_SUCCESS) {
        port_drop(node);
        return TAVU_FAILURE;
    }
    port_settle(com_port);
    return TAVU_SUCCESS;
}

int TAVUCloseDevice(int com_port) {
    COM_NODE* node = chk_is_legal_com(com_port);
    if (node == nullptr) {
        return TAVU_FAILURE;
    }
    TAVUInitCAN(com_port, TAVU_INACTIVE, TAVU_INACTIVE);
    port_drop(node);
    return TAVU_SUCCESS;
}

int TAVUShowVer(int com_port, VER_INFO* info) {
    if (info == nullptr) {
        return TAVU_FAILURE;
    }
    Reply<2> firmware{};
    const int firmware_result = exchange(com_port, show_ver_cmd, firmware);
    std::array<unsigned char, 2> model{};
    const int model_result = TAVUGetBLDID(com_port, model.data());
    std::snprintf(info->api, sizeof info->api, TAVU_LIB_VERSION);
    if (firmware_result != TAVU_SUCCESS || model_result != TAVU_SUCCESS) {
        return TAVU_FAILURE;
    }
    const auto version = reply_data(firmware);
    std::snprintf(info->fw, sizeof info->fw, "%02X.%02X", version[0], version[1]);
    std::snprintf(info->model, sizeof info->model, "%02X%02X", model[0], model[1]);
    return TAVU_SUCCESS;
}

int TAVUGetCANStatus(int com_port, int* can1, int* can2) {
    Reply<2> reply{};
    if (can1 == nullptr || can2 == nullptr ||
        exchange(com_port, get_sts_cmd, reply) != TAVU_SUCCESS) {
        return TAVU_FAILURE;
    }
    const auto states = reply_data(reply);
    *can1 = states[0];
    *can2 = states[1];
    return TAVU_SUCCESS;
}

int TAVUInitCAN(int com_port, int can1, int can2) {
    if (can1 == TAVU_ACTIVE || can2 == TAVU_ACTIVE) {
        if (is_running(com_port)) {
            TAVUInitCANReal(com_port, TAVU_INACTIVE, TAVU_INACTIVE);
        }
        fine_tune_send_delay(com_port);
    }
    return TAVUInitCANReal(com_port, can1, can2);
}

int TAVUInitCANReal(int com_port, int can1, int can2) {
    return exchange(com_port, command_frame(kSetRunState, can1, can2));
}

int TAVUResetCAN(int com_port) {
    return exchange(com_port, reset_cmd);
}

int TAVUGetCfg(int com_port, CFG_INFO* info) {
    if (info == nullptr) {
        return TAVU_FAILURE;
    }
    *info = {};
    Reply<kConfigBytes> reply{};
    if (exchange(com_port, getcfg_cmd, reply) != TAVU_SUCCESS) {
        return TAVU_FAILURE;
    }
    config_fill(*info, config_decode(reply_data(reply)));
    return TAVU_SUCCESS;
}

int TAVUGetVCOMConfig(int com_port, VCOM_INFO* info) {
    constexpr std::size_t kValues = 3;
    Reply<kValues + sizeof info->uid> reply{};
    if (info == nullptr || exchange(com_port, get_vcom_cmd, reply) != TAVU_SUCCESS) {
        return TAVU_FAILURE;
    }
    const auto data = reply_data(reply);
    info->skip = data[0];
    info->assign = data[1];
    info->order = data[2];
    info->com_port = com_port;
    std::ranges::copy(data.subspan<kValues>(), info->uid);
    return TAVU_SUCCESS;
}

int TAVUSetVCOMConfig(int com_port, int value) {
    return exchange(com_port, command_frame(kSetVcom, value));
}

int TAVUFlexibleVCOM(int com_port) {
    const PairingRun run;
    VCOM_INFO own{};
    if (TAVUGetVCOMConfig(com_port, &own) != TAVU_SUCCESS) {
        return TAVU_FAILURE;
    }
    if (own.skip != 0) {
        return TAVU_SUCCESS;
    }
    // All ports, as the partner may have a device of any kind.
    for (int candidate = 0; candidate < TAVU_PORT_CNT; ++candidate) {
        if (candidate != com_port && partner_handle(own, candidate)) {
            return TAVU_SUCCESS;
        }
    }
    return TAVU_FAILURE;
}
