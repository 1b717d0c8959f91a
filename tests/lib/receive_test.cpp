// tests/lib/receive_test.cpp - test: reports parsed into records, losses, batches, waits, filter.
// Uses the public calls; the bytes come from a simulated module.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <numeric>
#include <regex>
#include <thread>
#include <tuple>

namespace {

const std::string kFrame = "E1 8E 00 00 07 FF 11 22 33 44 55 66 77 88 00 0D 0A";
const std::string kEmptyBusError = "99 02 00 00 00 00 00 00 00 00 00 00 00 00 9B 0D 0A";
const std::string kProtocolStatus = "99 04 00 00 00 00 00 00 00 00 00 00 00 00 9D 0D 0A";
const std::string kBusStatus = "62 02 A1 A2 A3 A4 A5 A6 B1 B2 B3 B4 B5 B6 00 0D 0A";

// Header short, header unknown, body incomplete, passed over, discarded.
using Losses = std::array<std::uint64_t, 5>;

std::string counted(int count) {
    sim::Bytes bytes(static_cast<std::size_t>(count));
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{1});
    return text_of(bytes);
}

// The fields of a record that was filled with 5A beforehand; "-" for what is still so.
std::string fields_of(const CAN_FRAME_INFO& info) {
    std::ostringstream text;
    text << std::hex << info.CAN_port << ' ' << info.id_type << ' ' << info.rtr << ' ' << info.dlc
         << ' ' << info.msg_type << ' ' << info.brs << ' ' << info.esi << ' ' << info.fdf << ' '
         << info.id << ' ' << info.timestamp.second << ' ' << info.timestamp.micro_second << '|'
         << text_of(info.data) << '|' << text_of(info.data_err[0]) << ' '
         << text_of(info.data_err[1]);
    return std::regex_replace(text.str(), std::regex("5a5a5a5a|( ?5A){2,}"), "-");
}

std::string host_time() {
    std::timespec now{};
    std::timespec_get(&now, TIME_UTC);
    std::ostringstream text;
    text << std::put_time(std::localtime(&now.tv_sec), "%H:%M:%S:") << std::setfill('0')
         << std::setw(3) << now.tv_nsec / 1000000;
    return text.str();
}

struct Receive : testing::Test {
    Receive() { TAVUResetLoss(); }

    // One call on `bytes` that have arrived; only a report has the time of its arrival.
    CAN_FRAME_INFO receive(const std::string& bytes, int expected, bool is_classic = false) {
        CAN_FRAME_INFO info;
        std::memset(&info, 0x5A, sizeof info);
        module_.send_to_host(hex(bytes));
        sim::shim_fail({sim::Call::poll, EINTR, 2});
        EXPECT_EQ(TAVUWaitReceive(kPort, 5000), TAVU_SUCCESS);
        const std::string before = host_time();
        const auto call = is_classic ? TAVUReceive : TAVUReceive_CANFD;
        EXPECT_EQ(call(kPort, &info), expected) << bytes;
        if (expected == TAVU_REPORT) {
            EXPECT_LE(before, info.recv_time);
            EXPECT_LE(info.recv_time, host_time());
        }
        return info;
    }
    static Losses losses() {
        TAVU_LOSS_INFO info{};
        TAVUGetLoss(&info);
        return {info.header_short, info.header_unknown, info.body_incomplete, info.passed_over,
                info.discarded};
    }

    // Bytes that have been read and wait for the next call.
    [[nodiscard]] std::size_t at_hand() const {
        return module_.node->input.end - module_.node->input.begin;
    }

    OpenModule module_;
    std::array<CAN_FRAME_INFO, 2> records_{};
    NON_BLOCK_INFO batch_{.cnt = 2, .interval = 60000, .can_frame_info = records_.data()};
};

TEST_F(Receive, EachReportWritesExactlyItsFields) {
    const std::string stamp = " 01 02 03 04 05 06 07 08 ";
    // A report, whether TAVUReceive knows it too, and the fields that it writes.
    const std::tuple<std::string, bool, std::string> rows[] = {
        {kFrame, true, "1 2 1 8 0 - - - 7ff - -|11 22 33 44 55 66 77 88-|-"},
        {"E2 81" + stamp + "1A BC DE F0 " + counted(8) + " 00 0D 0A", false,
         "0 1 0 8 0 - - - 1abcdef0 4030201 8070605|" + counted(8) + "-|-"},
        {"F1 32 05" + stamp + "00 00 07 FF " + counted(8) + " 00 0D 0A", false,
         "1 1 0 3 0 1 0 1 7ff 4030201 8070605|" + counted(3) + "-|-"},
        {"F1 F1 06" + stamp + "00 00 07 FF " + counted(64) + " 00 0D 0A", false,
         "0 1 0 f 0 0 1 1 7ff 4030201 8070605|" + counted(64) + "|-"},
        {"99 02 00 00 00 12 34 56 01 02 03 04 05 06 00 0D 0A", true,
         "- - - - 2 - - - - - -|-|00 00 00 12 34 56 01 02 03 04 05 06"},
        {kProtocolStatus, false, "- - - - 4 - - - - - -|-|00 00 00 00 00 00 00 00 00 00 00 00"},
        {kBusStatus, true, "- - - - 3 - - - - - -|-|A1 A2 A3 A4 A5 A6 B1 B2 B3 B4 B5 B6"},
        {"99 01 00 00 00 00 00 00 00 00 00 00 00 00 9A 0D 0A", true, "- - - - 1 - - - - - -|-|-"},
        {"99 01 00 00 00 00 9A 0D 0A", false, "- - - - 1 - - - - - -|-|-"}};
    for (const auto& [report, is_classic, fields] : rows) {
        EXPECT_EQ(fields_of(receive(report, TAVU_REPORT)), fields);
        sim::shim_fail({sim::Call::read, 0, 9, 0, 1});
        EXPECT_EQ(fields_of(receive(report, TAVU_REPORT, is_classic)), fields) << "byte by byte";
        EXPECT_EQ(RS232_InputCount(module_.node->fd), 0) << report;
    }
}

TEST_F(Receive, DroppedBytesAreCountedAndLeaveTheRecordAlone) {
    // Bytes, whether TAVUReceive gets them, the losses it counts, bytes left for the next call.
    const std::tuple<std::string, bool, Losses, std::size_t> rows[] = {
        {"E1", false, {}, 1},
        {"55 00 00 01", false, {0, 1}, 1},
        {"99 03 00 01", false, {0, 1}, 1},
        {"62 01 00 01", false, {0, 1}, 1},
        {"F1 91 03 01", false, {0, 1}, 1},
        {"E1 81 00", false, {}, 3},
        {"E1 81 00 00 01 23 00", false, {}, 7},
        {"99 01 00 00 00 00 00 00 00 00", false, {}, 10},
        {kEmptyBusError, false, {}, 0},
        {kEmptyBusError, true, {}, 0},
        {kProtocolStatus, true, {0, 1}, 0},
        {"E1 81 00 00 01 23 00", true, {}, 7}};
    for (const auto& [bytes, is_classic, lost, left] : rows) {
        TAVUResetLoss();
        module_.node->input = {};
        EXPECT_EQ(fields_of(receive(bytes, TAVU_NO_REPORT, is_classic)),
                  "- - - - - - - - - - -|-|-")
            << bytes;
        EXPECT_EQ(losses(), lost) << bytes;
        EXPECT_EQ(at_hand(), left) << bytes;
    }
}

TEST_F(Receive, PartOfAReportIsCompletedOrGivenUpByWhatComesLater) {
    const std::string rest = " 00 00 07 FF 11 22 33 44 55 66 77 88 00";
    const std::string long_eeprom = "99 01 00 00 00 00 00 00 00";
    // A part, what comes later, the kind of report that gives, whether TAVUReceive gets it too.
    const std::tuple<std::string, std::string, int, Losses, bool> rows[] = {
        {"E1", "8E" + rest + " 0D 0A", TAVU_DATA_TYPE, {}, true},
        {"E1 8E", rest + " 0D 0A", TAVU_DATA_TYPE, {}, true},
        {"E1 8E" + rest + " 0D", "0A", TAVU_DATA_TYPE, {}, true},
        {long_eeprom, "00 00 00 00 00 00 0D 0A", TAVU_EEERR_TYPE, {}, true},
        {"E1", kBusStatus, TAVU_GETBUS_TYPE, {1}, true},
        {"E1 8E", kBusStatus, TAVU_GETBUS_TYPE, {1}, true},
        {"E1 8E 00", kBusStatus, TAVU_GETBUS_TYPE, {0, 0, 1}, true},
        {"E1 8E" + rest + " 0D", kBusStatus, TAVU_GETBUS_TYPE, {0, 0, 1}, true},
        {"F1 F5 05 00 00", kBusStatus, TAVU_GETBUS_TYPE, {0, 0, 1}, false}};
    for (const auto& [part, later, kind, lost, is_classic] : rows) {
        for (const bool by_classic : {false, is_classic}) {
            TAVUResetLoss();
            module_.node->input = {};
            receive(part, TAVU_NO_REPORT, by_classic);
            EXPECT_EQ(receive(later, TAVU_REPORT, by_classic).msg_type, kind) << part;
            EXPECT_EQ(losses(), lost) << part;
            EXPECT_EQ(at_hand(), 0U) << part;
        }
    }
}

TEST_F(Receive, ReportsAtHandNeedNoReadAndGoWithWhatAnExchangeDiscards) {
    CAN_FRAME_INFO info{};
    module_.send_to_host(hex(kFrame + " " + kFrame + " " + kFrame + " E1 81"));
    ASSERT_TRUE(module_.wait_drained(std::chrono::milliseconds(0)) ||
                RS232_WaitInput(module_.node->fd, kLimit));
    EXPECT_EQ(TAVUReceive_CANFD(kPort, &info), TAVU_REPORT);
    sim::shim_fail({sim::Call::read, EIO, 3});
    EXPECT_EQ(TAVUReceive_CANFD(kPort, &info), TAVU_REPORT);
    sim::shim_fail_none();
    EXPECT_EQ(TAVUWaitReceive(kPort, 0), TAVU_SUCCESS);
    TAVUCancelReceive(kPort);
    EXPECT_EQ(TAVUWaitReceive(kPort, 0), TAVU_FAILURE) << "a cancel comes before what is at hand";

    module_.send_to_host(hex(kFrame));
    ASSERT_TRUE(RS232_WaitInput(module_.node->fd, kLimit));
    module_.script_reply(0x62, {});
    EXPECT_EQ(TAVUGetBusError(kPort), TAVU_SUCCESS);
    EXPECT_EQ(TAVUReceive_CANFD(kPort, &info), TAVU_NO_REPORT);
    EXPECT_EQ(losses(), (Losses{0, 0, 0, 0, 19 + 17}));
    receive(kFrame, TAVU_REPORT);
}

TEST_F(Receive, StreamOutOfStepIsTakenUpAgainUnlessItsReportsCloseOtherwise) {
    const std::string otherwise = kFrame.substr(0, kFrame.size() - 5) + "01 02";
    // After two unknown headers: what comes, and what two calls make of it.
    const std::tuple<std::string, std::vector<int>> rows[] = {
        {"00 E1 81 " + kFrame, {1, 0}},
        {"00 00 00 00 " + kFrame + " " + kFrame, {1, 1}},
        {otherwise + " " + otherwise, {1, 1}},
        {"00 " + otherwise, {0, 0}}};
    for (const auto& [bytes, results] : rows) {
        module_.node->input = {};
        receive("55 00 00", TAVU_NO_REPORT);
        receive("55 00 00", TAVU_NO_REPORT);
        receive(bytes, results[0]);
        CAN_FRAME_INFO info{};
        EXPECT_EQ(TAVUReceive_CANFD(kPort, &info), results[1]) << bytes;
    }
}

TEST_F(Receive, PartAtHandNeitherKeepsABatchNorSpinsAWait) {
    receive("E1 81 00", TAVU_NO_REPORT);
    batch_.interval = 20;
    const auto start = Clock::now();
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch_), 0);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(2)) << "waited in each attempt";
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(TAVUWaitReceive(kPort, 1), TAVU_FAILURE);
        EXPECT_EQ(TAVUReceive_CANFD(kPort, records_.data()), TAVU_NO_REPORT);
    }
}

TEST_F(Receive, TrickleOutOfStepEndsACallAllTheSame) {
    receive(kFrame, TAVU_REPORT);
    receive("55 00 00", TAVU_NO_REPORT);
    receive("55 00 00", TAVU_NO_REPORT);
    const std::jthread trickle([&](const std::stop_token& stop) {
        for (int i = 0; i < 1000 && !stop.stop_requested(); ++i) {
            module_.send_to_host(hex("55"));
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });
    ASSERT_TRUE(RS232_WaitInput(module_.node->fd, kLimit));
    const auto start = Clock::now();
    EXPECT_EQ(TAVUReceive_CANFD(kPort, records_.data()), TAVU_NO_REPORT);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(2));
}

TEST_F(Receive, TimeTextFollowsTheSecond) {
    const std::string second = host_time().substr(0, 8);
    while (host_time().starts_with(second)) {
        receive(kFrame, TAVU_REPORT);
    }
    receive(kFrame, TAVU_REPORT);
}

TEST_F(Receive, RangeTablesLoadDisabledAndPassTheirRangesOnly) {
    std::array<RANGE_FILTER_INFO, 2> tables{};
    tables[0].enable = 1;
    tables[0].range[3] = {1, TAVU_SID, 0x100, 0x1FF};
    tables[0].range[4] = {0, TAVU_SID, 0x000, 0x7FF};
    tables[1].range[15] = {1, TAVU_EID, 0x300, 0x3FF};
    ASSERT_EQ(TAVUSetRangeFilter(kPort, &tables[0], &tables[1]), TAVU_SUCCESS);
    // The operations, then a frame and what becomes of it.
    const std::tuple<int, int, std::string, int> rows[] = {
        {0, 0, "81 00 00 02 00", 1}, {2, 0, "81 00 00 02 00", 0}, {0, 0, "81 00 00 00 FF", 0},
        {0, 0, "81 00 00 01 00", 1}, {0, 0, "81 00 00 01 FF", 1}, {0, 0, "85 00 00 01 50", 0},
        {0, 0, "82 00 00 02 00", 1}, {0, 2, "82 00 00 02 00", 0}, {0, 4, "86 00 00 03 FF", 1},
        {0, 0, "80 00 00 02 00", 1}, {0, 0, "83 00 00 02 00", 1}, {1, 0, "81 00 00 02 00", 1},
        {2, 3, "81 00 00 02 00", 0}, {0, 0, "82 00 00 02 00", 1}, {0, 2, "86 00 00 03 FF", 0}};
    for (const auto& [can1, can2, frame, expected] : rows) {
        ASSERT_EQ(TAVUInitRangeFilter(kPort, can1, can2), TAVU_SUCCESS);
        const CAN_FRAME_INFO info = receive("E1 " + frame + " " + counted(11), expected);
        EXPECT_EQ(fields_of(info) == fields_of({}), expected == TAVU_NO_REPORT) << frame;
    }
    receive(kBusStatus, TAVU_REPORT);
    EXPECT_EQ(losses(), Losses{}) << "what a table removes is not lost";
    ASSERT_EQ(TAVUSetRangeFilter(kPort, nullptr, &tables[1]), TAVU_SUCCESS);
    ASSERT_EQ(TAVUGetRangeFilter(kPort, &tables[0], &tables[1]), TAVU_SUCCESS);
    EXPECT_EQ(tables[0].enable + tables[0].range[3].id_end, 1 + 0x1FFU) << "left as it was";
    EXPECT_EQ(tables[1].enable + tables[1].range[15].id_end, 0 + 0x3FFU);
}

TEST_F(Receive, BatchEndsOnCountAndOnTime) {
    module_.send_to_host(hex(kEmptyBusError + " " + kBusStatus + " " + kFrame + " " + kFrame));
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch_), 2);
    EXPECT_EQ(records_[0].msg_type, TAVU_GETBUS_TYPE);
    EXPECT_EQ(records_[1].id, 0x7FFU);

    batch_.interval = 20;
    ASSERT_EQ(TAVUWaitReceive(kPort, 5000), TAVU_SUCCESS);
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch_), 1);
    const std::clock_t start = std::clock();
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch_), 0);
    EXPECT_GE(std::clock() - start, 20 * CLOCKS_PER_SEC / 1000);

    batch_.cnt = 0;
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch_), 0);
}

TEST_F(Receive, CancelEndsOneWaitOrOneBatch) {
    TAVUCancelReceive(kPort);
    TAVUCancelReceive(kPort);
    EXPECT_EQ(TAVUWaitReceive(kPort, 60000), TAVU_FAILURE);
    module_.send_to_host(hex(kEmptyBusError + " " + kFrame));
    EXPECT_EQ(TAVUWaitReceive(kPort, 60000), TAVU_SUCCESS);
    batch_.cnt = 1;
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch_), 1) << "the hint left behind ends no batch";
    TAVUCancelReceive(kPort);
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch_), 0) << "a cancel waits for the batch it ends";
    const auto start = Clock::now();
    const std::jthread batch_canceller(TAVUCancelReceive, kPort);
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch_), 0);
    const std::jthread wait_canceller(TAVUCancelReceive, kPort);
    EXPECT_EQ(TAVUWaitReceive(kPort, 60000), TAVU_FAILURE);
    EXPECT_LT(Clock::now() - start, kLimit);
}

TEST_F(Receive, HungUpPortIsWaitedForWithoutSpinning) {
    module_.unplug();
    const auto start = Clock::now();
    const std::clock_t used = std::clock();
    EXPECT_EQ(TAVUWaitReceive(kPort, 200), TAVU_FAILURE);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(200));
    TAVUCancelReceive(kPort);
    EXPECT_EQ(TAVUWaitReceive(kPort, 60000), TAVU_FAILURE);
    EXPECT_LT(Clock::now() - start, kLimit);
    EXPECT_LT(std::clock() - used, CLOCKS_PER_SEC / 10);
}

}  // namespace
