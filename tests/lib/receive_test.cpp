// tests/lib/receive_test.cpp - test: reports parsed into records, a long stream, batches, waits,
// range filters. Uses the public calls; the bytes come from a simulated module.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <thread>

namespace {

using std::chrono::milliseconds;

const std::string kFrame = "E1 8E 00 00 07 FF 11 22 33 44 55 66 77 88 00 0D 0A";
const std::string kFrameFields =
    "CAN_port 1;id_type 2;rtr 1;dlc 8;msg_type 0;id 7ff;data 11 22 33 44 55 66 77 88;";
const std::string kEmptyBusError = "99 02 00 00 00 00 00 00 00 00 00 00 00 00 9B 0D 0A";
const std::string kBusStatus = "62 02 A1 A2 A3 A4 A5 A6 B1 B2 B3 B4 B5 B6 00 0D 0A";

// The fields of a record that was filled with 5A and have changed since.
std::string fields_of(const CAN_FRAME_INFO& info) {
    std::ostringstream text;
    text << std::hex << "CAN_port " << info.CAN_port << ";id_type " << info.id_type << ";rtr "
         << info.rtr << ";dlc " << info.dlc << ";msg_type " << info.msg_type << ";brs " << info.brs
         << ";esi " << info.esi << ";fdf " << info.fdf << ";id " << info.id << ";second "
         << info.timestamp.second << ";micro_second " << info.timestamp.micro_second << ";data "
         << text_of(info.data) << ";CAN_1 " << text_of(info.data_err[0]) << ";CAN_2 "
         << text_of(info.data_err[1]) << ";";
    const std::regex untouched("\\w+ 5a5a5a5a;|\\w{3,} 5A( 5A)+;|( 5A)+(?=;)");
    return std::regex_replace(text.str(), untouched, "");
}

struct Receive : testing::Test {
    Receive() { TAVUResetLoss(); }

    void send(const std::string& bytes) {
        module_.send_to_host(hex(bytes));
        ASSERT_EQ(TAVUWaitReceive(kPort, 5000), TAVU_SUCCESS) << bytes;
    }
    // What one call makes of that which has arrived: the fields that it sets, "" for no report.
    std::string received(decltype(TAVUReceive)* call = TAVUReceive_CANFD) {
        std::memset(&info_, 0x5A, sizeof info_);
        const int result = call(kPort, &info_);
        EXPECT_EQ(result == TAVU_NO_REPORT, fields_of(info_).empty());
        return fields_of(info_);
    }

    OpenModule module_;
    CAN_FRAME_INFO info_{};
    std::array<CAN_FRAME_INFO, 2> records_{};
    NON_BLOCK_INFO batch_{.cnt = 2, .interval = 60000, .can_frame_info = records_.data()};
};

TEST_F(Receive, EachReportWritesExactlyItsFields) {
    const std::string stamp = "01 02 03 04 05 06 07 08 ";
    const std::string stamped = "second 4030201;micro_second 8070605;";
    const std::string data = "data 11 22 33 44 55 66 77 88;";
    const std::string bytes_63 = text_of(sim::Bytes(63, 0xE1));
    const std::pair<std::string, std::string> rows[] = {
        {kFrame, kFrameFields},
        {"E1 31 00 00 07 FF 11 22 33 44 55 66 77 88 00 0D 0A",
         "CAN_port 0;id_type 1;rtr 0;dlc 3;msg_type 0;id 7ff;" + data},
        {"E2 81 " + stamp + "1A BC DE F0 11 22 33 44 55 66 77 88 00 0D 0A",
         "CAN_port 0;id_type 1;rtr 0;dlc 8;msg_type 0;id 1abcdef0;" + stamped + data},
        {"F1 32 05 " + stamp + "00 00 07 FF 11 22 33 44 55 66 77 88 00 0D 0A",
         "CAN_port 1;id_type 1;rtr 0;dlc 3;msg_type 0;brs 1;esi 0;fdf 1;id 7ff;" + stamped +
             "data 11 22 33;"},
        {"F1 F1 06 " + stamp + "00 00 07 FF " + bytes_63 + " 99 00 0D 0A",
         "CAN_port 0;id_type 1;rtr 0;dlc f;msg_type 0;brs 0;esi 1;fdf 1;id 7ff;" + stamped +
             "data " + bytes_63 + " 99;"},
        {"99 02 00 00 00 00 00 56 00 00 00 00 00 00 00 0D 0A",
         "msg_type 2;CAN_1 00 00 00 00 00 56;CAN_2 00 00 00 00 00 00;"},
        {"99 02 00 00 00 00 00 00 01 00 00 00 00 00 00 0D 0A",
         "msg_type 2;CAN_1 00 00 00 00 00 00;CAN_2 01 00 00 00 00 00;"},
        {kEmptyBusError, ""},
        {"99 04 00 00 00 00 00 00 00 00 00 00 00 00 9D 0D 0A",
         "msg_type 4;CAN_1 00 00 00 00 00 00;CAN_2 00 00 00 00 00 00;"},
        {kBusStatus, "msg_type 3;CAN_1 A1 A2 A3 A4 A5 A6;CAN_2 B1 B2 B3 B4 B5 B6;"},
        {"99 01 00 00 00 00 00 00 00 00 00 00 00 00 9A 0D 0A", "msg_type 1;"},
        {"99 01 00 00 00 00 9A 0D 0A", "msg_type 1;"}};
    for (const auto& [bytes, fields] : rows) {
        const bool is_classic = hex(bytes).size() == 17 && !bytes.starts_with("99 04");
        send(bytes);
        EXPECT_EQ(received(), fields);
        send(bytes);
        sim::shim_fail({.call = sim::Call::read, .times = 9, .limit = 1});  // byte by byte
        EXPECT_EQ(received(is_classic ? TAVUReceive : TAVUReceive_CANFD), fields);
        sim::shim_fail_none();
        EXPECT_EQ(RS232_InputCount(module_.node->fd), 0);
        EXPECT_EQ(losses(), "") << bytes;
    }
}

// Any half-copied table would remove the frame, as each of the two has it in one entry only.
TEST_F(Receive, FramesNeverMeetAHalfWrittenRangeTable) {
    std::array<RANGE_FILTER_INFO, 2> tables{};
    tables[0].range[0] =
        tables[1].range[15] = {.en = 1, .id_type = TAVU_EID, .id_start = 0x7FF, .id_end = 0x7FF};
    const std::jthread writer([&](const std::stop_token& stop) {
        for (std::size_t i = 0; !stop.stop_requested(); ++i) {
            TAVUSetRangeFilter(kPort, &tables[i % 2], &tables[i % 2]);
            TAVUInitRangeFilter(kPort, 2, 2);
        }
    });
    for (int i = 0; i < 2000; ++i) {
        send(kFrame);
        ASSERT_EQ(TAVUReceive_CANFD(kPort, &info_), TAVU_REPORT) << i;
    }
}

TEST_F(Receive, PartOfAReportIsWaitedForThenKeptAndNeitherKeepsABatchNorSpinsAWait) {
    send("E1 8E 00");
    const auto start = Clock::now();
    EXPECT_EQ(received(), "");
    EXPECT_GE(Clock::now() - start, milliseconds(20));
    batch_.interval = 20;
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch_), 0);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(2)) << "waited in each attempt";
    EXPECT_EQ(TAVUWaitReceive(kPort, -1), TAVU_FAILURE);
    EXPECT_EQ(TAVUWaitReceive(kPort, 1), TAVU_FAILURE);
    send("00 07 FF 11 22 33 44 55 66 77 88 00 0D 0A");
    EXPECT_EQ(received(), kFrameFields);
}

TEST_F(Receive, ReportsAtHandNeedNoReadAndGoWithWhatAnExchangeDiscards) {
    send(kFrame + " " + kFrame + " " + kFrame + " E1 81");
    EXPECT_EQ(received(), kFrameFields);
    EXPECT_EQ(received(), kFrameFields);
    EXPECT_EQ(TAVUWaitReceive(kPort, 0), TAVU_SUCCESS);
    TAVUCancelReceive(kPort);
    EXPECT_EQ(TAVUWaitReceive(kPort, 0), TAVU_FAILURE) << "a cancel comes before what is at hand";

    module_.send_to_host(hex(kFrame));
    ASSERT_TRUE(RS232_WaitInput(module_.node->fd, kLimit));
    module_.script_reply(0x62, {});
    EXPECT_EQ(TAVUGetBusError(kPort), TAVU_SUCCESS);
    EXPECT_EQ(received(), "");
    EXPECT_EQ(losses(), "discarded 36;") << "a frame and two bytes at hand, a frame on the port";
    send(kFrame);
    EXPECT_EQ(received(), kFrameFields);
}

TEST_F(Receive, TrickleOutOfStepEndsACallAllTheSame) {
    send(kFrame + " 55 00 00 55 00 00");
    EXPECT_EQ(received() + received() + received(), kFrameFields);
    const std::jthread trickle([&](const std::stop_token& stop) {
        for (int i = 0; i < 1000 && !stop.stop_requested(); ++i) {
            module_.send_to_host(hex("55"));
            std::this_thread::sleep_for(milliseconds(5));
        }
    });
    ASSERT_TRUE(RS232_WaitInput(module_.node->fd, kLimit));
    const auto start = Clock::now();
    EXPECT_EQ(received(), "");
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(2));
}

// The host of these tests is 5:30 hours east.
const int is_zone_set = setenv("TZ", "TST-5:30", 1);

long host_time_ms() {
    const auto now =
        std::chrono::system_clock::now().time_since_epoch() + std::chrono::minutes(330);
    return std::chrono::floor<milliseconds>(now).count();
}

TEST_F(Receive, TimeTextIsThatOfTheCallAndFollowsTheSecond) {
    constexpr long kDay_ms = 24 * 60 * 60 * 1000;
    const long start_ms = host_time_ms();
    for (long before_ms = start_ms; before_ms / 1000 < start_ms / 1000 + 2;) {
        send(kFrame);
        before_ms = host_time_ms();
        EXPECT_EQ(received(), kFrameFields);
        long hour = 0, minute = 0, second = 0, ms = 0;
        ASSERT_EQ(std::sscanf(info_.recv_time, "%2ld:%2ld:%2ld:%3ld", &hour, &minute, &second, &ms),
                  4);
        const long time_ms = ((hour * 60 + minute) * 60 + second) * 1000 + ms;
        EXPECT_LE((time_ms - before_ms % kDay_ms + kDay_ms) % kDay_ms, host_time_ms() - before_ms);
    }
}

TEST_F(Receive, EnabledRangeTablesPassFramesOfTheirRangesOnly) {
    std::array<RANGE_FILTER_INFO, 2> tables{};
    tables[0].enable = 1;
    tables[0].range[3] = {.en = 1, .id_type = TAVU_SID, .id_start = 0x100, .id_end = 0x1FF};
    tables[0].range[4] = {.en = 0, .id_type = TAVU_SID, .id_start = 0, .id_end = 0x7FF};
    tables[1].range[15] = {.en = 1, .id_type = TAVU_EID, .id_start = 0x300, .id_end = 0x3FF};
    ASSERT_EQ(TAVUSetRangeFilter(kPort, &tables[0], &tables[1]), TAVU_SUCCESS);
    const auto passes = [&](const std::string& head) {
        send("E1 " + head + " 11 22 33 44 55 66 77 88 00 0D 0A");
        const CAN_FRAME_INFO zeros{};
        info_.brs = 1;
        const bool is_passed = TAVUReceive_CANFD(kPort, &info_) == TAVU_REPORT;
        EXPECT_EQ(std::memcmp(&info_, &zeros, sizeof info_) == 0, !is_passed) << head;
        return is_passed;
    };
    EXPECT_TRUE(passes("81 00 00 02 00")) << "loaded tables are disabled";
    EXPECT_EQ(TAVUInitRangeFilter(kPort, 2, 0), TAVU_SUCCESS);
    EXPECT_TRUE(passes("82 00 00 02 00")) << "that of CAN 2 is left alone";
    EXPECT_EQ(TAVUInitRangeFilter(kPort, 0, 2), TAVU_SUCCESS);
    for (const char* head : {"81 00 00 01 00", "81 00 00 01 FF", "86 00 00 03 FF", "80 00 00 02 00",
                             "83 00 00 02 00"}) {
        EXPECT_TRUE(passes(head)) << head;
    }
    for (const char* head :
         {"81 00 00 00 FF", "81 00 00 02 00", "85 00 00 01 50", "82 00 00 01 50"}) {
        EXPECT_FALSE(passes(head)) << head;
    }
    send(kBusStatus);
    info_ = {};
    EXPECT_EQ(TAVUReceive_CANFD(kPort, &info_), TAVU_REPORT) << "not a frame";
    EXPECT_EQ(losses(), "") << "what a table removes is not lost";
    EXPECT_EQ(TAVUInitRangeFilter(kPort, 1, 3), TAVU_SUCCESS);
    EXPECT_TRUE(passes("81 00 00 02 00") && passes("82 00 00 02 00")) << "disabled and cleared";
    EXPECT_EQ(TAVUInitRangeFilter(kPort, 2, 2), TAVU_SUCCESS);
    EXPECT_FALSE(passes("86 00 00 03 FF")) << "cleared";

    ASSERT_EQ(TAVUSetRangeFilter(kPort, nullptr, &tables[1]), TAVU_SUCCESS);
    ASSERT_EQ(TAVUGetRangeFilter(kPort, &tables[0], &tables[1]), TAVU_SUCCESS);
    EXPECT_TRUE(tables[0].enable == 1 && tables[0].range[3].id_end == 0x1FF) << "left as it was";
    EXPECT_TRUE(tables[1].enable == 0 && tables[1].range[15].id_end == 0x3FF) << "loaded";
}

TEST_F(Receive, BatchEndsOnCountAndOnProcessorTime) {
    send(kEmptyBusError + " " + kBusStatus + " " + kFrame + " " + kFrame);
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch_), 2);
    EXPECT_EQ(records_[0].msg_type, TAVU_GETBUS_TYPE);
    EXPECT_EQ(records_[1].id, 0x7FFU);
    batch_.interval = 20;
    ASSERT_EQ(TAVUWaitReceive(kPort, 5000), TAVU_SUCCESS);
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch_), 1);
    const std::clock_t start = std::clock();
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch_), 0);
    EXPECT_GE(std::clock() - start, 20 * CLOCKS_PER_SEC / 1000);
    EXPECT_LT(std::clock() - start, 150 * CLOCKS_PER_SEC / 1000);
    batch_.cnt = 0;
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch_), 0);
}

TEST_F(Receive, CancelEndsOneWaitOrOneBatch) {
    TAVUCancelReceive(kPort);
    TAVUCancelReceive(kPort);
    EXPECT_EQ(TAVUWaitReceive(kPort, 60000), TAVU_FAILURE);
    send(kEmptyBusError + " " + kFrame);
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
    EXPECT_GE(Clock::now() - start, milliseconds(200));
    TAVUCancelReceive(kPort);
    EXPECT_EQ(TAVUWaitReceive(kPort, 60000), TAVU_FAILURE);
    EXPECT_LT(Clock::now() - start, kLimit);
    EXPECT_LT(std::clock() - used, CLOCKS_PER_SEC / 10);
}

}  // namespace
