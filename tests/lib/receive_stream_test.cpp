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

// Report number `number`; the number is its identifier, or stands in its data. The EEPROM report's
// record has no data: it only has to come.
void report_append(sim::Bytes& stream, unsigned int number) {
    static const std::tuple<sim::Bytes, std::size_t, std::size_t> kinds[] = {
        {{0xE1, 0x85}, 0, 11},       {{0xE2, 0x86}, 8, 11},       {{0x99, 0x04}, 0, 11},
        {{0xF1, 0x95, 0x04}, 8, 15}, {{0xF1, 0xA5, 0x04}, 8, 19}, {{0xF1, 0xB5, 0x04}, 8, 23},
        {{0xF1, 0xC5, 0x04}, 8, 27}, {{0xF1, 0xD5, 0x04}, 8, 35}, {{0xF1, 0xE5, 0x04}, 8, 51},
        {{0xF1, 0xF5, 0x04}, 8, 67}, {{0x99, 0x01}, 0, 11}};
    const auto& [head, stamp, tail] = kinds[number % std::size(kinds)];
    stream.insert(stream.end(), head.begin(), head.end());
    stream.insert(stream.end(), stamp, 0);
    for (int shift = 24; shift >= 0; shift -= 8) {
        stream.push_back(static_cast<unsigned char>(number >> shift));
    }
    stream.insert(stream.end(), tail, 0xE1);  // looks like a header when parsing slips
}

// A sender that stops for 2 ms inside a header or 20 ms inside a body ends that report: an attempt
// in which this machine held the sender up for nearly as long proves nothing about the receiver,
// and is repeated.
constexpr std::chrono::milliseconds kHeldUp{1};
constexpr int kAttempts = 40;

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

// Writes all in pieces of 1 to 150 bytes; the longest time from one piece to the next.
Clock::duration write_in_pieces(int master, const sim::Bytes& stream) {
    std::mt19937 random(1);
    Clock::duration longest{};
    auto before = Clock::now();
    for (std::size_t at = 0; at < stream.size();) {
        const std::size_t piece = std::min<std::size_t>(random() % 150 + 1, stream.size() - at);
        EXPECT_EQ(write(master, stream.data() + at, piece), static_cast<ssize_t>(piece));
        at += piece;
        const auto now = Clock::now();
        longest = std::max(longest, now - before);
        before = now;
    }
    return longest;
}

// How many reports came in their place before the first that did not. The rest is discarded: the
// sender needs its reader to the end.
unsigned int receive_in_order() {
    CAN_FRAME_INFO info{};
    unsigned int number = 0;
    bool is_in_order = true;
    while (number < kReports && TAVUWaitReceive(kPort, 500) == TAVU_SUCCESS) {
        while (is_in_order && TAVUReceive_CANFD(kPort, &info) == TAVU_REPORT) {
            const bool is_status = info.msg_type == TAVU_BUSERR_PSR_TYPE;
            is_in_order = info.msg_type == TAVU_EEERR_TYPE ||
                          (is_status ? tavu::uchar_2_uint(info.data_err[0]) : info.id) == number;
            number += is_in_order ? 1 : 0;
        }
        if (!is_in_order) {
            RS232_flushRX(tavu::last->fd);
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
    for (int i = 0; i < kAttempts && in_order < kReports && longest >= kHeldUp; ++i) {
        const int master = wire_open();
        std::jthread writer([&] { longest = write_in_pieces(master, stream); });
        in_order = receive_in_order();
        writer.join();
        tavu::port_drop(tavu::last);
        close(master);
    }
    EXPECT_EQ(in_order, kReports);
}

}  // namespace
