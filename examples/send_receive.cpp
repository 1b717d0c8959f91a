// examples/send_receive.cpp - example: sends ten CAN FD frames on CAN 1, prints what CAN 2 receives.
// SPDX-License-Identifier: MIT
#include <cstdio>
#include <cstdlib>
#include <lib_tavu_2.h>

namespace {

constexpr int kFrames = 10;
constexpr int kSilence_ms = 500;

// Both channels at 500 kbit/s with 2 Mbit/s in the data phase, no filter.
bool set_up(int port) {
    constexpr int k500_kbps = 7;
    constexpr CFG_CANFD fd{.CAN1_DataRate = 2,
                           .CAN1_FDF_EN = TAVU_FDF_ON,
                           .CAN2_DataRate = 2,
                           .CAN2_FDF_EN = TAVU_FDF_ON};
    return TAVUSetCFG_CANFD(port, fd) == TAVU_SUCCESS &&
           TAVUSetMode(port, TAVU_NORMAL, TAVU_NORMAL) == TAVU_SUCCESS &&
           TAVUSetBaudRate(port, k500_kbps, k500_kbps) == TAVU_SUCCESS &&
           TAVUClearFilter(port, TAVU_CAN_1) == TAVU_SUCCESS &&
           TAVUClearFilter(port, TAVU_CAN_2) == TAVU_SUCCESS &&
           TAVUInitCAN(port, TAVU_ACTIVE, TAVU_ACTIVE) == TAVU_SUCCESS;
}

bool send(int port) {
    CAN_FRAME_INFO frame{};
    frame.CAN_port = TAVU_CAN_1;
    frame.id_type = TAVU_SID;
    frame.fdf = TAVU_FDF_ON;
    frame.brs = TAVU_BRS_ON;
    frame.dlc = 9;  // 12 bytes
    for (int i = 0; i < kFrames; ++i) {
        frame.id = 0x100U + static_cast<unsigned>(i);
        frame.data[0] = static_cast<unsigned char>(i);
        if (TAVUSend_CANFD(port, frame) != TAVU_SUCCESS) {
            return false;
        }
    }
    return true;
}

// Prints frames until the line has been silent for a while; returns how many came.
int receive(int port) {
    int received = 0;
    while (received < kFrames && TAVUWaitReceive(port, kSilence_ms) == TAVU_SUCCESS) {
        CAN_FRAME_INFO frame{};  // a report sets the fields of its kind only
        if (TAVUReceive_CANFD(port, &frame) == TAVU_REPORT && frame.msg_type == TAVU_DATA_TYPE) {
            std::printf("%s CAN %d id %03X, %d bytes, first %02X\n", frame.recv_time,
                        frame.CAN_port + 1, frame.id, DecodeDLC_CANFD(frame.dlc), frame.data[0]);
            ++received;
        }
    }
    return received;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s PORT   (a port number that list_modules prints)\n",
                     argv[0]);
        return EXIT_FAILURE;
    }
    const int port = std::atoi(argv[1]);
    if (TAVUOpenDevice(port) != TAVU_SUCCESS) {
        std::fprintf(stderr, "no module answers on port %d\n", port);
        return EXIT_FAILURE;
    }
    const bool sent = set_up(port) && send(port);
    const int received = sent ? receive(port) : 0;
    TAVUCloseDevice(port);
    std::printf("%d of %d frames received\n", received, kFrames);
    return received == kFrames ? EXIT_SUCCESS : EXIT_FAILURE;
}
