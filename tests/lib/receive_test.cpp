// tests/lib/receive_test.cpp - test: reports parsed into records, losses, batches, waits, filter.
// Uses the public calls; the bytes come from a simulated module or from its pty.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <functional>
#include <regex>
#include <thread>

namespace {

using namespace std::chrono_literals;

constexpr const char* kFrame = "E1 8E 00 00 07 FF 11 22 33 44 55 66 77 88 00 0D 0A";
constexpr const char* kBusError = "99 02 00 00 00 12 34 56 01 02 03 04 05 06 00 0D 0A";
constexpr const char* kEmptyBusError = "99 02 00 00 00 00 00 00 00 00 00 00 00 00 9B 0D 0A";
constexpr const char* kProtocolStatus = "99 04 00 00 00 00 00 00 00 00 00 00 00 00 9D 0D 0A";
constexpr const char* kBusStatus = "62 02 A1 A2 A3 A4 A5 A6 B1 B2 B3 B4 B5 B6 00 0D 0A";
constexpr const char* kLongEeprom = "99 01 00 00 00 00 00 00 00 00 00 00 00 00 9A 0D 0A";

using ReceiveCall = int (*)(int, CAN_FRAME_INFO*);

CAN_FRAME_INFO marked_record() {
    CAN_FRAME_INFO info;
    std::memset(&info, 0x5A, sizeof info);
    return info;
}

class Receive : public testing::Test {
  protected:
    Receive() { TAVUResetLoss(); }

    // One call on `bytes` that have arrived; the record keeps marks where nothing was written.
    CAN_FRAME_INFO receive(const std::string& bytes, int expected,
                           ReceiveCall call = TAVUReceive_CANFD) {
        CAN_FRAME_INFO info = marked_record();
        module_.station.send_to_host(hex(bytes));
        EXPECT_EQ(TAVUWaitReceive(kPort, 5000), TAVU_SUCCESS);
        EXPECT_EQ(call(kPort, &info), expected) << bytes;
        return info;
    }
    static TAVU_LOSS_INFO losses() {
        TAVU_LOSS_INFO info{};
        TAVUGetLoss(&info);
        return info;
    }

    OpenModule module_;
};

void classic_expected(CAN_FRAME_INFO& info) {
    info.CAN_port = 1;
    info.id_type = TAVU_EID;
    info.rtr = 1;
    info.dlc = 8;
    info.msg_type = TAVU_DATA_TYPE;
    info.id = 0x7FF;
    std::copy_n(hex("11 22 33 44 55 66 77 88").begin(), 8, info.data);
}

void fd_expected(CAN_FRAME_INFO& info, int dlc, int count) {
    classic_expected(info);
    info.CAN_port = 0;
    info.id_type = TAVU_SID;
    info.rtr = 0;
    info.dlc = dlc;
    info.brs = info.fdf = 1;
    info.esi = 0;
    info.timestamp = {.second = 0x04030201, .micro_second = 0x08070605};
    std::fill_n(info.data, 8, 0x5A);
    for (int i = 0; i < count; ++i) {
        info.data[i] = static_cast<unsigned char>(i + 1);
    }
}

auto errors(int type, const char* data) {
    return [=](CAN_FRAME_INFO& info) {
        info.msg_type = type;
        std::ranges::copy(hex(data), info.data_err[0]);
    };
}

auto fd_data(int dlc, int count) {
    return [=](CAN_FRAME_INFO& info) { fd_expected(info, dlc, count); };
}

void eeprom_expected(CAN_FRAME_INFO& info) {
    info.msg_type = TAVU_EEERR_TYPE;
}

std::string fd_report(int dlc, int field) {
    sim::Bytes report = hex("F1 01 05 01 02 03 04 05 06 07 08 00 00 07 FF");
    report[1] = static_cast<unsigned char>(dlc * 16 + 1);
    for (int i = 1; i <= field; ++i) {
        report.push_back(static_cast<unsigned char>(i));
    }
    return text_of(report) + " 00 0D 0A";
}

TEST_F(Receive, EachReportWritesExactlyItsFields) {
    const struct {
        std::string report;
        bool is_classic;  // TAVUReceive knows it too
        std::function<void(CAN_FRAME_INFO&)> expect;
    } rows[] = {
        {kFrame, true, classic_expected},
        {"E2 8E 01 02 03 04 05 06 07 08 00 00 07 FF 11 22 33 44 55 66 77 88 00 0D 0A", false,
         [](CAN_FRAME_INFO& info) {
             classic_expected(info);
             info.timestamp = {.second = 0x04030201, .micro_second = 0x08070605};
         }},
        {fd_report(3, 8), false, fd_data(3, 3)},
        {fd_report(9, 12), false, fd_data(9, 12)},
        {fd_report(13, 32), false, fd_data(13, 32)},
        {fd_report(15, 64), false, fd_data(15, 64)},
        {kBusError, true, errors(TAVU_BUSERR_TYPE, "00 00 00 12 34 56 01 02 03 04 05 06")},
        {kProtocolStatus, false,
         errors(TAVU_BUSERR_PSR_TYPE, "00 00 00 00 00 00 00 00 00 00 00 00")},
        {kBusStatus, true, errors(TAVU_GETBUS_TYPE, "A1 A2 A3 A4 A5 A6 B1 B2 B3 B4 B5 B6")},
        {kLongEeprom, true, eeprom_expected},
        {"99 01 00 00 00 00 9A 0D 0A", false, eeprom_expected}};
    const std::regex time_text("([01]\\d|2[0-3]):[0-5]\\d:[0-5]\\d:\\d{3}");
    for (const auto& row : rows) {
        for (const ReceiveCall call : {TAVUReceive_CANFD, TAVUReceive}) {
            if (call == TAVUReceive && !row.is_classic) {
                continue;
            }
            const CAN_FRAME_INFO info = receive(row.report, TAVU_REPORT, call);
            EXPECT_TRUE(std::regex_match(info.recv_time, time_text)) << info.recv_time;
            CAN_FRAME_INFO expected = marked_record();
            row.expect(expected);
            std::copy_n(info.recv_time, sizeof info.recv_time, expected.recv_time);
            EXPECT_EQ(std::memcmp(&info, &expected, sizeof info), 0) << row.report;
            EXPECT_EQ(RS232_InputCount(tavu::chk_is_legal_com(kPort)->fd), 0) << row.report;
        }
    }
}

TEST_F(Receive, DroppedBytesAreCountedAndLeaveTheRecordAlone) {
    const struct {
        const char* bytes;
        ReceiveCall call;
        std::array<std::uint64_t, 3> lost;  // header short, header unknown, body incomplete
        int left;                           // bytes for the next call
    } rows[] = {{"E1", TAVUReceive_CANFD, {1, 0, 0}, 0},
                {"E1 81", TAVUReceive_CANFD, {1, 0, 0}, 0},
                {"55 00 00 01", TAVUReceive_CANFD, {0, 1, 0}, 1},
                {"99 03 00 01", TAVUReceive_CANFD, {0, 1, 0}, 1},
                {"62 01 00 01", TAVUReceive_CANFD, {0, 1, 0}, 1},
                {"F1 91 03 01", TAVUReceive_CANFD, {0, 1, 0}, 1},
                {"E1 81 00", TAVUReceive_CANFD, {0, 0, 1}, 0},
                {"E1 81 00 00 01 23 00", TAVUReceive_CANFD, {0, 0, 1}, 0},
                {"99 01 00 00 00 00 00 00 00 00", TAVUReceive_CANFD, {0, 0, 1}, 0},
                {kEmptyBusError, TAVUReceive_CANFD, {0, 0, 0}, 0},
                {kEmptyBusError, TAVUReceive, {0, 0, 0}, 0},
                {kProtocolStatus, TAVUReceive, {0, 1, 0}, 0},
                {"E1 81 00 00 01 23 00", TAVUReceive, {0, 0, 1}, 0}};
    for (const auto& row : rows) {
        TAVUResetLoss();
        const CAN_FRAME_INFO info = receive(row.bytes, TAVU_NO_REPORT, row.call);
        const CAN_FRAME_INFO untouched = marked_record();
        EXPECT_EQ(std::memcmp(&info, &untouched, sizeof info), 0) << row.bytes;
        const TAVU_LOSS_INFO lost = losses();
        EXPECT_EQ((std::array{lost.header_short, lost.header_unknown, lost.body_incomplete}),
                  row.lost)
            << row.bytes;
        const int fd = tavu::chk_is_legal_com(kPort)->fd;
        EXPECT_EQ(RS232_InputCount(fd), row.left) << row.bytes;
        RS232_flushRX(fd);
    }
}

// The rest comes as soon as the first piece was taken. A sender that has to wait for a processor may
// come too late, so a cut is tried again.
TEST_F(Receive, ReportInTwoPiecesIsCompletedAtEveryCut) {
    const auto is_completed = [](sim::ByteView report, std::size_t cut) {
        constexpr int kOwnPort = kPort + 1;
        OpenModule module(kOwnPort);
        module.station.send_to_host(report.first(cut));
        EXPECT_EQ(TAVUWaitReceive(kOwnPort, 5000), TAVU_SUCCESS);
        const std::jthread sender([&] {
            while (RS232_InputCount(tavu::chk_is_legal_com(kOwnPort)->fd) > 0) {
            }
            module.station.send_to_host(report.subspan(cut));
        });
        CAN_FRAME_INFO info{};
        return TAVUReceive_CANFD(kOwnPort, &info) == TAVU_REPORT;
    };
    for (const std::string& text :
         {std::string(kFrame), std::string(kLongEeprom), fd_report(9, 12)}) {
        const sim::Bytes report = hex(text);
        for (std::size_t cut = 1; cut < report.size(); ++cut) {
            const auto end = Clock::now() + kLimit;
            bool is_done = is_completed(report, cut);
            while (!is_done && Clock::now() < end) {
                is_done = is_completed(report, cut);
            }
            EXPECT_TRUE(is_done) << text << " cut at " << cut;
        }
    }
}

// Every further system call on the port would fail here.
TEST_F(Receive, ReportTakesTwoReadsAndNoOtherCall) {
    module_.station.send_to_host(hex(std::string(kFrame) + " " + kFrame));
    ASSERT_TRUE(module_.station.commands().empty());
    const int fd = tavu::chk_is_legal_com(kPort)->fd;
    while (RS232_InputCount(fd) < 34) {
        ASSERT_EQ(TAVUWaitReceive(kPort, 5000), TAVU_SUCCESS);
    }
    for (const sim::Call call : {sim::Call::poll, sim::Call::ioctl, sim::Call::tcgetattr}) {
        sim::shim_fail({call, EIO});
    }
    sim::shim_fail({sim::Call::read, EIO, 1, 2});
    CAN_FRAME_INFO info{};
    EXPECT_EQ(TAVUReceive_CANFD(kPort, &info), TAVU_REPORT);
    EXPECT_EQ(TAVUReceive_CANFD(kPort, &info), TAVU_NO_REPORT) << "the third read fails";
    EXPECT_EQ(TAVUReceive_CANFD(kPort, &info), TAVU_REPORT);
    sim::shim_fail_none();
    EXPECT_EQ(losses().header_short, 0U);
}

time_t second_now() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
}

TEST_F(Receive, TimeTextFollowsTheSecond) {
    const time_t start = second_now();
    for (time_t before = start; before < start + 2; before = second_now()) {
        const CAN_FRAME_INFO info = receive(kFrame, TAVU_REPORT);
        std::array<char, 10> text{};
        tm local{};
        localtime_r(&before, &local);
        std::strftime(text.data(), text.size(), "%H:%M:%S:", &local);
        if (second_now() == before) {
            ASSERT_EQ(std::string(info.recv_time, 9), text.data());
        }
    }
}

TEST_F(Receive, RangeFilterPassesItsRangesOnly) {
    const auto frame = [](const char* flags, const char* id) {
        return std::string("E1 ") + flags + " 00 00 " + id + " 01 02 03 04 05 06 07 08 00 0D 0A";
    };
    RANGE_FILTER_INFO table{};
    table.range[3] = {1, TAVU_SID, 0x100, 0x1FF};
    table.range[4] = {0, TAVU_SID, 0x000, 0x7FF};
    ASSERT_EQ(TAVUSetRangeFilter(kPort, &table, nullptr), TAVU_SUCCESS);
    receive(frame("81", "02 00"), TAVU_REPORT);
    ASSERT_EQ(TAVUInitRangeFilter(kPort, 2, 0), TAVU_SUCCESS);
    for (const std::string& passed :
         {frame("81", "01 00"), frame("81", "01 FF"), frame("82", "02 00"), frame("80", "02 00"),
          frame("83", "02 00")}) {
        receive(passed, TAVU_REPORT);
    }
    const CAN_FRAME_INFO zero{};
    for (const std::string& removed :
         {frame("81", "00 FF"), frame("81", "02 00"), frame("85", "01 50")}) {
        const CAN_FRAME_INFO info = receive(removed, TAVU_NO_REPORT);
        EXPECT_EQ(std::memcmp(&info, &zero, sizeof info), 0) << removed;
    }
    receive(kBusError, TAVU_REPORT);
    EXPECT_EQ(losses().header_unknown, 0U);
}

TEST_F(Receive, BatchEndsOnCountOnTimeAndOnCancel) {
    std::array<CAN_FRAME_INFO, 5> records{};
    NON_BLOCK_INFO batch{.cnt = 5, .interval = 60000, .can_frame_info = records.data()};
    module_.station.send_to_host(hex(std::string(kEmptyBusError) + " " + kBusStatus));
    for (int i = 0; i < 5; ++i) {
        module_.station.send_to_host(hex(kFrame));
    }
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch), 5);
    EXPECT_EQ(records[0].msg_type, TAVU_GETBUS_TYPE);
    EXPECT_EQ(records[4].id, 0x7FFU);

    batch.interval = 20;
    ASSERT_EQ(TAVUWaitReceive(kPort, 5000), TAVU_SUCCESS);
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch), 1);
    const std::clock_t start = std::clock();
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch), 0);
    EXPECT_GE(std::clock() - start, 20 * CLOCKS_PER_SEC / 1000);

    batch.interval = 60000;
    TAVUCancelReceive(kPort);
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch), 0) << "a cancel waits for the batch it ends";
    EXPECT_EQ(TAVUWaitReceive(kPort, 0), TAVU_FAILURE);
    std::jthread canceller([] { TAVUCancelReceive(kPort); });
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch), 0);
    batch.cnt = 0;
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch), 0);
}

TEST_F(Receive, CancelIsConsumedByTheFirstWaitOnly) {
    TAVUCancelReceive(kPort);
    TAVUCancelReceive(kPort);
    EXPECT_EQ(TAVUWaitReceive(kPort, 0), TAVU_FAILURE);
    module_.station.send_to_host(hex(kFrame));
    EXPECT_EQ(TAVUWaitReceive(kPort, 60000), TAVU_SUCCESS);
    std::array<CAN_FRAME_INFO, 1> records{};
    NON_BLOCK_INFO batch{.cnt = 1, .interval = 60000, .can_frame_info = records.data()};
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch), 1) << "the hint left behind ends no batch";
    std::jthread canceller([] { TAVUCancelReceive(kPort); });
    const auto start = Clock::now();
    EXPECT_EQ(TAVUWaitReceive(kPort, 60000), TAVU_FAILURE);
    EXPECT_LT(Clock::now() - start, kLimit);
}

TEST_F(Receive, HungUpPortIsWaitedForWithoutSpinning) {
    module_.station.unplug();
    for (const bool is_cancelled : {false, true}) {
        const auto start = Clock::now();
        const std::clock_t used = std::clock();
        if (is_cancelled) {
            TAVUCancelReceive(kPort);
        }
        EXPECT_EQ(TAVUWaitReceive(kPort, is_cancelled ? 60000 : 200), TAVU_FAILURE);
        EXPECT_EQ(Clock::now() - start >= 200ms, !is_cancelled);
        EXPECT_LT(std::clock() - used, CLOCKS_PER_SEC / 10);
    }
    CAN_FRAME_INFO info{};
    EXPECT_EQ(TAVUReceive_CANFD(kPort, &info), TAVU_NO_REPORT);
}

TEST(DecodeDlc, CodesBeyondTheTableGiveItsEnds) {
    EXPECT_EQ(DecodeDLC_CANFD(-1), 0);
    EXPECT_EQ(DecodeDLC_CANFD(7), 7);
    EXPECT_EQ(DecodeDLC_CANFD(20), 64);
}

}  // namespace
