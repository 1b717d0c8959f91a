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

// A sender that stops for 2 ms inside a header or 20 ms inside a body ends that report: an attempt in which this
// machine held the sender up for nearly as long proves nothing about the receiver, and is repeated.
constexpr std::chrono::milliseconds kHeldUp{1};
constexpr int kAttempts = 40;

// A pty whose slave is an open port, without a module.
class Wire {
  public:
    Wire() {
        termios raw{};
        cfmakeraw(&raw);
        raw.c_cflag |= CREAD | CLOCAL;
        raw.c_cc[VMIN] = 0;
        EXPECT_EQ(openpty(&master_, &slave_, nullptr, &raw, nullptr), 0);
        tavu::create_com_list(true, {.is_legal = true,
                                     .com_port = kPort,
                                     .fd = slave_,
                                     .cancel_fd = eventfd(0, EFD_NONBLOCK)});
    }
    ~Wire() {
        tavu::delete_com_node(kPort);
        close(slave_);
        close(master_);
    }
    Wire(const Wire&) = delete;
    Wire& operator=(const Wire&) = delete;

    // Writes all in pieces of 1 to 150 bytes; the longest time from one piece to the next.
    Clock::duration write_in_pieces(const sim::Bytes& stream) {
        std::mt19937 random(1);
        Clock::duration longest{};
        auto before = Clock::now();
        for (std::size_t at = 0; at < stream.size();) {
            const std::size_t piece = std::min<std::size_t>(random() % 150 + 1, stream.size() - at);
            EXPECT_EQ(write(master_, stream.data() + at, piece), static_cast<ssize_t>(piece));
            at += piece;
            const auto now = Clock::now();
            longest = std::max(longest, now - before);
            before = now;
        }
        return longest;
    }

  private:
    int master_ = -1;
    int slave_ = -1;
};

// How many reports came in their place before the first that did not. The rest is discarded: the sender needs its
// reader to the end.
unsigned int receive_in_order() {
    CAN_FRAME_INFO info{};
    unsigned int number = 0;
    bool is_in_order = true;
    while (number < kReports && TAVUWaitReceive(kPort, 500) == TAVU_SUCCESS) {
        while (is_in_order && TAVUReceive_CANFD(kPort, &info) == TAVU_REPORT) {
            const bool is_status = info.msg_type == TAVU_BUSERR_PSR_TYPE;
            is_in_order = (is_status ? tavu::uchar_2_uint(info.data_err[0]) : info.id) == number;
            number += is_in_order ? 1 : 0;
        }
        TAVU_LOSS_INFO lost{};
        TAVUGetLoss(&lost);
        is_in_order =
            is_in_order && lost.header_short + lost.header_unknown + lost.body_incomplete == 0;
        if (!is_in_order) {
            RS232_flushRX(tavu::chk_is_legal_com(kPort)->fd);
        }
    }
    return number;
}

TEST(ReceiveStream, MixedReportsInRandomPiecesAllArriveInOrder) {
    sim::Bytes stream;
    for (unsigned int number = 0; number < kReports; ++number) {
        report_append(stream, number);
    }
    unsigned int in_order = 0;
    Clock::duration longest = kHeldUp;
    for (int attempt = 0; attempt < kAttempts && in_order < kReports && longest >= kHeldUp;
         ++attempt) {
        Wire wire;
        TAVUResetLoss();
        std::jthread writer([&] { longest = wire.write_in_pieces(stream); });
        in_order = receive_in_order();
    }
    EXPECT_EQ(in_order, kReports);
    TAVU_LOSS_INFO lost{};
    TAVUGetLoss(&lost);
    EXPECT_EQ(lost.header_short, 0U);
    EXPECT_EQ(lost.header_unknown, 0U);
    EXPECT_EQ(lost.body_incomplete, 0U);
}

}  // namespace
