// tests/lib/receive_stream_test.cpp - test: a long mixed stream in random pieces, nothing lost.
// Uses the public calls on a raw pty, without a simulated module.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <pty.h>
#include <sys/eventfd.h>
#include <termios.h>
#include <unistd.h>

#include <random>
#include <thread>

namespace {

constexpr unsigned int kReports = 200000;

// Report number `number`; the number is its identifier, or stands in its data.
void report_append(sim::Bytes& stream, unsigned int number) {
    const std::array id = {
        static_cast<unsigned char>(number >> 24), static_cast<unsigned char>(number >> 16),
        static_cast<unsigned char>(number >> 8), static_cast<unsigned char>(number)};
    const auto append = [&](const sim::Bytes& head, std::size_t tail) {
        stream.insert(stream.end(), head.begin(), head.end());
        stream.insert(stream.end(), id.begin(), id.end());
        stream.insert(stream.end(), tail, 0xE1);  // looks like a header when parsing slips
    };
    const std::array<std::size_t, 7> fields = {12, 16, 20, 24, 32, 48, 64};
    switch (number % 10) {
        case 0:
            return append(hex("E1 85"), 11);
        case 1:
            return append(hex("E2 86 00 00 00 00 00 00 00 00"), 11);
        case 2:
            return append(hex("99 04"), 11);
        default: {
            sim::Bytes head = hex("F1 05 04 00 00 00 00 00 00 00 00");
            head[1] = static_cast<unsigned char>(0x95 + 0x10 * (number % 10 - 3));
            return append(head, fields[number % 10 - 3] + 3);
        }
    }
}

void write_in_pieces(int fd, const sim::Bytes& stream) {
    std::mt19937 random(1);
    for (std::size_t at = 0; at < stream.size();) {
        const std::size_t piece = std::min<std::size_t>(random() % 150 + 1, stream.size() - at);
        const ssize_t written = write(fd, stream.data() + at, piece);
        ASSERT_GT(written, 0);
        at += static_cast<std::size_t>(written);
    }
}

TEST(ReceiveStream, MixedReportsInRandomPiecesAllArriveInOrder) {
    int master = -1;
    int slave = -1;
    termios raw{};
    cfmakeraw(&raw);
    raw.c_cflag |= CREAD | CLOCAL;
    raw.c_cc[VMIN] = 0;
    ASSERT_EQ(openpty(&master, &slave, nullptr, &raw, nullptr), 0);
    tavu::create_com_list(
        true,
        {.is_legal = true, .com_port = kPort, .fd = slave, .cancel_fd = eventfd(0, EFD_NONBLOCK)});
    sim::Bytes stream;
    for (unsigned int number = 0; number < kReports; ++number) {
        report_append(stream, number);
    }
    TAVUResetLoss();
    unsigned int number = 0;
    {
        std::jthread writer([&] { write_in_pieces(master, stream); });
        CAN_FRAME_INFO info{};
        while (number < kReports && TAVUWaitReceive(kPort, 5000) == TAVU_SUCCESS) {
            while (TAVUReceive_CANFD(kPort, &info) == TAVU_REPORT) {
                const bool is_status = info.msg_type == TAVU_BUSERR_PSR_TYPE;
                ASSERT_EQ(is_status ? tavu::uchar_2_uint(info.data_err[0]) : info.id, number);
                ++number;
            }
        }
    }
    EXPECT_EQ(number, kReports);
    TAVU_LOSS_INFO lost{};
    TAVUGetLoss(&lost);
    EXPECT_EQ(lost.header_short + lost.header_unknown + lost.body_incomplete, 0U);
    tavu::delete_com_node(kPort);
    close(slave);
    close(master);
}

}  // namespace
