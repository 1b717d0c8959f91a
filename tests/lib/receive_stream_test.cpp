// tests/lib/receive_stream_test.cpp - test: a long mixed stream in random pieces, nothing lost.
// Uses the public calls on a raw pty, without a simulated module.
// SPDX-License-Identifier: MIT
#include "sim/wire.h"

#include "tests/lib/support.h"

#include <pty.h>
#include <sys/eventfd.h>
#include <termios.h>
#include <unistd.h>

#include <random>
#include <thread>

namespace {

constexpr unsigned int kReports = 200000;

// Report number `number`; the number is its identifier, or stands in its data. The EEPROM report's
// record has no data: it only has to come.
void report_append(sim::Bytes& stream, unsigned int number) {
    static const std::tuple<sim::Bytes, std::size_t, std::size_t> kinds[] = {
        {{0xE1, 0x85}, 0, 8},        {{0xE2, 0x86}, 8, 8},        {{0x99, 0x04}, 0, 8},
        {{0xF1, 0x95, 0x04}, 8, 12}, {{0xF1, 0xA5, 0x04}, 8, 16}, {{0xF1, 0xB5, 0x04}, 8, 20},
        {{0xF1, 0xC5, 0x04}, 8, 24}, {{0xF1, 0xD5, 0x04}, 8, 32}, {{0xF1, 0xE5, 0x04}, 8, 48},
        {{0xF1, 0xF5, 0x04}, 8, 64}, {{0x99, 0x01}, 0, 8}};
    const auto& [head, stamp, data] = kinds[number % std::size(kinds)];
    sim::Bytes report = head;
    report.insert(report.end(), stamp, 0);
    for (int shift = 24; shift >= 0; shift -= 8) {
        report.push_back(static_cast<unsigned char>(number >> shift));
    }
    report.insert(report.end(), data, 0xE1);  // looks like a header when parsing slips
    sim::seal(report);
    stream.insert(stream.end(), report.begin(), report.end());
}

// Opens kPort on a pty without a module. Result: the pty's other end.
int wire_open() {
    termios raw{};
    cfmakeraw(&raw);
    raw.c_cflag |= CREAD | CLOCAL;
    raw.c_cc[VMIN] = 0;
    int master = -1;
    int slave = -1;
    EXPECT_EQ(openpty(&master, &slave, nullptr, &raw, nullptr), 0);
    tavu::create_com_list(true, {true, kPort, slave, eventfd(0, EFD_NONBLOCK)});
    return master;
}

void write_in_pieces(int master, const sim::Bytes& stream) {
    std::mt19937 random(1);
    for (std::size_t at = 0; at < stream.size();) {
        const std::size_t piece = std::min<std::size_t>(random() % 150 + 1, stream.size() - at);
        EXPECT_EQ(write(master, stream.data() + at, piece), static_cast<ssize_t>(piece));
        at += piece;
    }
}

// How many reports came in their place before the first that did not. The sender needs its reader
// to the end, however long it is held up.
unsigned int receive_in_order() {
    CAN_FRAME_INFO info{};
    unsigned int number = 0;
    unsigned int in_order = 0;
    while (number < kReports) {
        if (TAVUReceive_CANFD(kPort, &info) != TAVU_REPORT) {
            if (TAVUWaitReceive(kPort, 10000) != TAVU_SUCCESS) {
                break;
            }
            continue;
        }
        const bool is_status = info.msg_type == TAVU_BUSERR_PSR_TYPE;
        const bool is_in_place =
            info.msg_type == TAVU_EEERR_TYPE ||
            (is_status ? tavu::uchar_2_uint(info.data_err[0]) : info.id) == number;
        in_order += in_order == number && is_in_place ? 1 : 0;
        ++number;
    }
    return in_order;
}

TEST(ReceiveStream, MixedReportsInRandomPiecesAllArriveInOrder) {
    sim::Bytes stream;
    for (unsigned int number = 0; number < kReports; ++number) {
        report_append(stream, number);
    }
    const int master = wire_open();
    std::jthread writer(write_in_pieces, master, stream);
    EXPECT_EQ(receive_in_order(), kReports);
    tavu::port_drop(tavu::last);  // so that a writer who is not read to the end ends too
    writer.join();
    close(master);
}

}  // namespace
