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

// A writer that has to wait for a processor looks like a module that stopped inside a report, so the
// reader stays this far behind; it is a small part of what the pty takes.
constexpr std::size_t kLead_bytes = 1024;

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

    // Writes all in pieces of 1 to 150 bytes.
    void write_in_pieces(const sim::Bytes& stream) {
        std::mt19937 random(1);
        for (std::size_t at = 0; at < stream.size(); written_ = at) {
            const std::size_t piece = std::min<std::size_t>(random() % 150 + 1, stream.size() - at);
            EXPECT_EQ(write(master_, stream.data() + at, piece), static_cast<ssize_t>(piece));
            at += piece;
        }
    }
    void wait_written(std::size_t bytes) const {
        while (written_ < bytes) {
            std::this_thread::yield();
        }
    }

  private:
    int master_ = -1;
    int slave_ = -1;
    std::atomic<std::size_t> written_ = 0;
};

TEST(ReceiveStream, MixedReportsInRandomPiecesAllArriveInOrder) {
    sim::Bytes stream;
    std::vector<std::size_t> starts;
    for (unsigned int number = 0; number < kReports; ++number) {
        starts.push_back(stream.size());
        report_append(stream, number);
    }
    Wire wire;
    TAVUResetLoss();
    std::jthread writer([&] { wire.write_in_pieces(stream); });
    CAN_FRAME_INFO info{};
    unsigned int number = 0;
    unsigned int misplaced = 0;  // counted, not asserted: the writer needs its reader to the end
    while (number < kReports && TAVUWaitReceive(kPort, 5000) == TAVU_SUCCESS) {
        wire.wait_written(std::min(starts[number] + kLead_bytes, stream.size()));
        if (TAVUReceive_CANFD(kPort, &info) == TAVU_REPORT) {
            const bool is_status = info.msg_type == TAVU_BUSERR_PSR_TYPE;
            misplaced += (is_status ? tavu::uchar_2_uint(info.data_err[0]) : info.id) != number;
            ++number;
        }
    }
    writer.join();
    EXPECT_EQ(number, kReports);
    EXPECT_EQ(misplaced, 0U);
    TAVU_LOSS_INFO lost{};
    TAVUGetLoss(&lost);
    EXPECT_EQ(lost.header_short, 0U);
    EXPECT_EQ(lost.header_unknown, 0U);
    EXPECT_EQ(lost.body_incomplete, 0U);
}

}  // namespace
