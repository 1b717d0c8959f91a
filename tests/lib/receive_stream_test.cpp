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

// Bytes that have been written; the reader stays behind, so that a writer that has to wait for a
// processor does not look like a module that stopped in the middle of a report.
std::atomic<std::size_t> written_bytes = 0;
constexpr std::size_t kAhead = 8192;  // twice what the terminal holds for its reader

using Clock = std::chrono::steady_clock;

// A pause of the sender inside a report ends that report after 20 ms, so a sender that the machine held up proves
// nothing about its receiver.
constexpr std::chrono::milliseconds kStall{15};
constexpr int kAttempts = 5;

// A pty whose slave is an open port, without a module.
class Wire {
  public:
    Wire() {
        termios raw{};
        cfmakeraw(&raw);
        raw.c_cflag |= CREAD | CLOCAL;
        raw.c_cc[VMIN] = 0;
        EXPECT_EQ(openpty(&master_, &slave_, nullptr, &raw, nullptr), 0);
        tavu::create_com_list(
            true,
            {.is_legal = true, .com_port = kPort, .fd = slave_, .cancel_fd = eventfd(0, EFD_NONBLOCK)});
    }
    ~Wire() {
        tavu::delete_com_node(kPort);
        close(slave_);
        close(master_);
    }
    Wire(const Wire&) = delete;
    Wire& operator=(const Wire&) = delete;

    // Writes all in pieces of 1 to 150 bytes; the longest time that one took, or -1 when a write failed.
    [[nodiscard]] Clock::duration write_in_pieces(const sim::Bytes& stream) const {
        std::mt19937 random(1);
        Clock::duration longest{};
        Clock::time_point before = Clock::now();
        for (std::size_t at = 0; at < stream.size();) {
            const std::size_t piece = std::min<std::size_t>(random() % 150 + 1, stream.size() - at);
            const ssize_t written = write(master_, stream.data() + at, piece);
            if (written <= 0) {
                return Clock::duration{-1};
            }
            at += static_cast<std::size_t>(written);
            longest = std::max(longest, Clock::now() - before);
            before = Clock::now();
        }
        return longest;
    }

  private:
    int master_ = -1;
    int slave_ = -1;
};

struct Tally {
    unsigned int reports = 0;
    unsigned int misplaced = 0;
};

// Receives until nothing comes any more; takes a stream that slipped to its end too, as the writer waits for its reader.
Tally receive_all() {
    constexpr int kSilence_ms = 2000;
    Tally tally;
    CAN_FRAME_INFO info{};
    while (tally.reports < kReports && TAVUWaitReceive(kPort, kSilence_ms) == TAVU_SUCCESS) {
        if (tally.misplaced > 0) {
            RS232_flushRX(tavu::chk_is_legal_com(kPort)->fd);
            continue;
        }
        while (TAVUReceive_CANFD(kPort, &info) == TAVU_REPORT) {
            const bool is_status = info.msg_type == TAVU_BUSERR_PSR_TYPE;
            const unsigned int number = is_status ? tavu::uchar_2_uint(info.data_err[0]) : info.id;
            tally.misplaced += number != tally.reports ? 1 : 0;
            ++tally.reports;
        }
    }
    return tally;
}

TEST(ReceiveStream, MixedReportsInRandomPiecesAllArriveInOrder) {
    sim::Bytes stream;
    for (unsigned int number = 0; number < kReports; ++number) {
        report_append(stream, number);
    }
    Tally tally;
    Clock::duration longest = kStall;
    for (int attempt = 0; attempt < kAttempts && longest >= kStall; ++attempt) {
        const Wire wire;
        TAVUResetLoss();
        std::jthread writer([&] { longest = wire.write_in_pieces(stream); });
        tally = receive_all();
        writer.join();
        if (tally.reports == kReports && tally.misplaced == 0) {
            break;
        }
    }
    EXPECT_EQ(tally.reports, kReports);
    EXPECT_EQ(tally.misplaced, 0U);
    TAVU_LOSS_INFO lost{};
    TAVUGetLoss(&lost);
    EXPECT_EQ(lost.header_short, 0U);
    EXPECT_EQ(lost.header_unknown, 0U);
    EXPECT_EQ(lost.body_incomplete, 0U);
}

}  // namespace
