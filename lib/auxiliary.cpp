// lib/auxiliary.cpp - library: further ways to open, the port scan, raw exchange, read mode.
// Uses lib/link.h, lib/rs232.h.
// Thread: any, one exchange per port at a time; open and scan alone in the process.
// SPDX-License-Identifier: MIT
#include "lib/link.h"
#include "lib/rs232.h"

#include <algorithm>
#include <string_view>

namespace {

// A scan writes to whatever opens, so it keeps off the ports below: their devices may well be other
// equipment (serial adapters, the console of a board). A module there is opened by its number.
constexpr int kFirstScannedPort = 23;

constexpr std::string_view kDeviceFolder = "/dev/";

}  // namespace

using namespace tavu;

const char* TAVUVersion(void) {
    return TAVU_LIB_VERSION;
}

const char* TAVUPortName(int com_port) {
    const auto port = static_cast<std::size_t>(com_port);
    return port < comports.size() ? comports[port] : nullptr;
}

int TAVUPortNumber(const char* name) {
    if (name == nullptr) {
        return -1;
    }
    const std::string_view wanted(name);
    const auto* const found = std::ranges::find_if(comports, [wanted](std::string_view path) {
        return path == wanted || path.substr(kDeviceFolder.size()) == wanted;
    });
    return found == comports.end() ? -1 : static_cast<int>(found - comports.begin());
}

int TAVUOpenDeviceSCT(int com_port) {
    return TAVUOpenDevice(com_port);
}

int TAVUOpenSocketCAN(int com_port, int* fd) {
    const COM_NODE* node = port_open(com_port);
    if (node == nullptr) {
        return TAVU_FAILURE;
    }
    port_settle(com_port);
    if (fd != nullptr) {
        *fd = node->fd;
    }
    return TAVU_SUCCESS;
}

SEARCH_COM_INFO TAVU_search_com(void) {
    SEARCH_COM_INFO found{};
    for (int com_port = kFirstScannedPort; com_port < TAVU_PORT_CNT; ++com_port) {
        if (TAVUOpenDevice(com_port) == TAVU_SUCCESS) {
            TAVUCloseDevice(com_port);
            found.com_port[found.cnt++] = com_port;
        }
    }
    return found;
}

int TAVUTesting(int com_port, TEST_INFO* info) {
    constexpr int kLongest = sizeof info->send_buf;
    if (info == nullptr || info->send_len < 0 || info->send_len > kLongest || info->recv_len < 0 ||
        info->recv_len > kLongest) {
        return TAVU_FAILURE;
    }
    return cmd_process(com_port, info->send_len, info->recv_len, info->send_buf, info->recv_buf);
}

int TAVUSetRecvBlock(int com_port, bool block) {
    const COM_NODE* node = chk_is_legal_com(com_port);
    if (node == nullptr) {
        return TAVU_READ_MODE_FAILURE;
    }
    return RS232_SetRecvBlock(node->fd, block ? 1 : 0);
}

int TAVUGetBLDID(int com_port, unsigned char bldid[2]) {
    Reply<2> reply{};
    if (bldid == nullptr || exchange(com_port, bldid_cmd, reply) != TAVU_SUCCESS) {
        return TAVU_FAILURE;
    }
    std::ranges::copy(reply_data(reply), bldid);
    return TAVU_SUCCESS;
}
