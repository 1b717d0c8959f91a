// tests/lib/receive_test.cpp - test: reports parsed into records, a long stream, batches, waits,
// range filters. Uses the public calls; the bytes come from a simulated module.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <thread>

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

const std::string kFrame = "E1 3E 00 00 07 FF 11 22 33 44 55 66 77 88 00 0D 0A";
const std::string kFrameFields =
    "CAN_port 1;id_type 2;rtr 1;dlc 3;msg_type 0;id 7ff;data 11 22 33 44 55 66 77 88;";
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
    const std::string bytes_63 = text_of(sim::Bytes(63, 0xE1));
    const std::pair<std::string, std::string> rows[] = {
        {kFrame, kFrameFields},
        {"E2 81 " + stamp + "1A BC DE F0 11 22 33 44 55 66 77 88 00 0D 0A",
         "CAN_port 0;id_type 1;rtr 0;dlc 8;msg_type 0;id 1abcdef0;" + stamped +
             "data 11 22 33 44 55 66 77 88;"},
        {"F1 F1 06 " + stamp + "00 00 07 FF " + bytes_63 + " 99 00 0D 0A",
         "CAN_port 0;id_type 1;rtr 0;dlc f;msg_type 0;brs 0;esi 1;fdf 1;id 7ff;" + stamped +
             "data " + bytes_63 + " 99;"},
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

TEST_F(Receive, PartOfAReportIsWaitedForThenKeptAndSpinsNoWait) {
    send("E1 3E 00");
    const auto start = Clock::now();
    EXPECT_EQ(received(), "");
    EXPECT_GE(Clock::now() - start, milliseconds(20));
    EXPECT_EQ(TAVUWaitReceive(kPort, 1), TAVU_FAILURE);
    send("00 07 FF 11 22 33 44 55 66 77 88 00 0D 0A");
    EXPECT_EQ(received(), kFrameFields);
}

TEST_F(Receive, ReportsAtHandNeedNoReadAndGoWithWhatAnExchangeDiscards) {
    send(kFrame + " " + kFrame + " E1 81");
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
}

// The host of these tests is 5:30 hours east.
const int is_zone_set = setenv("TZ", "TST-5:30", 1);

milliseconds host_time() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::floor<milliseconds>(now) + std::chrono::minutes(330);
}

TEST_F(Receive, TimeTextIsThatOfTheCallAndFollowsTheSecond) {
    for (const auto end = host_time() + 1200ms; host_time() < end;) {
        send(kFrame);
        const milliseconds before = host_time();
        EXPECT_EQ(received(), kFrameFields);
        long hour = 0, minute = 0, second = 0, ms = 0;
        std::sscanf(info_.recv_time, "%2ld:%2ld:%2ld:%3ld", &hour, &minute, &second, &ms);
        const milliseconds time(((hour * 60 + minute) * 60 + second) * 1000 + ms);
        EXPECT_LE((time - before + 24h * 40'000) % 24h, host_time() - before);
    }
}

TEST_F(Receive, EnabledRangeTablesPassFramesOfTheirRangesOnly) {
    std::array<RANGE_FILTER_INFO, 2> tables{};
    tables[0].enable = 1;
    tables[0].range[3] = {.en = 1, .id_type = TAVU_SID, .id_start = 0x100, .id_end = 0x1FF};
    tables[0].range[4] = {.en = 0, .id_type = TAVU_SID, .id_start = 0, .id_end = 0x7FF};
    tables[1].range[15] = {.en = 1, .id_type = TAVU_EID, .id_start = 0x300, .id_end = 0x3FF};
    ASSERT_EQ(TAVUSetRangeFilter(kPort, &tables[0], &tables[1]), TAVU_SUCCESS);
    // Flags and identifiers of frames; no table is for the channels 0 and 3.
    const Texts in_range = {"80 00 00 02 00", "81 00 00 01 00", "81 00 00 01 FF", "83 00 00 02 00",
                            "86 00 00 03 FF"};
    const Texts outside = {"81 00 00 00 FF", "81 00 00 02 00", "82 00 00 01 50", "85 00 00 01 50"};
    const auto passing = [&](const Texts& heads) {
        Texts passing;
        std::ranges::copy_if(heads, std::back_inserter(passing), [&](const std::string& head) {
            send("E1 " + head + " 11 22 33 44 55 66 77 88 00 0D 0A");
            return TAVUReceive_CANFD(kPort, &info_) == TAVU_REPORT;
        });
        return passing;
    };
    EXPECT_EQ(passing(outside), outside) << "loaded tables are disabled";
    EXPECT_EQ(TAVUInitRangeFilter(kPort, 2, 0), TAVU_SUCCESS);
    EXPECT_EQ(TAVUInitRangeFilter(kPort, 0, 2), TAVU_SUCCESS) << "leaves that of CAN 1 enabled";
    EXPECT_EQ(passing(in_range), in_range);
    EXPECT_EQ(passing(outside), Texts{});
    EXPECT_EQ(info_.id, 0U) << "a removed frame leaves an empty record";
    EXPECT_EQ(TAVUInitRangeFilter(kPort, 1, 3), TAVU_SUCCESS);
    EXPECT_EQ(passing(outside), outside) << "disabled, and cleared";
    ASSERT_EQ(TAVUSetRangeFilter(kPort, nullptr, nullptr), TAVU_SUCCESS);
    ASSERT_EQ(TAVUGetRangeFilter(kPort, &tables[0], &tables[1]), TAVU_SUCCESS);
    EXPECT_EQ(tables[0].range[3].id_end, 0x1FFU) << "left as it was";
    EXPECT_EQ(tables[1].range[15].id_end, 0U) << "cleared";
}

TEST_F(Receive, BatchEndsOnCountAndOnProcessorTime) {
    send(kEmptyBusError + " " + kBusStatus + " " + kFrame + " " + kFrame);
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch_), 2);
    EXPECT_EQ(records_[0].msg_type, TAVU_GETBUS_TYPE);
    EXPECT_EQ(records_[1].id, 0x7FFU);
    batch_.interval = 20;
    const std::clock_t start = std::clock();
    ASSERT_EQ(TAVUWaitReceive(kPort, 5000), TAVU_SUCCESS);
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch_), 1);
    EXPECT_GE(std::clock() - start, 20 * CLOCKS_PER_SEC / 1000);
    EXPECT_LT(std::clock() - start, 150 * CLOCKS_PER_SEC / 1000);
}

TEST_F(Receive, CancelEndsOneWaitOrOneBatch) {
    TAVUCancelReceive(kPort);
    EXPECT_EQ(TAVUWaitReceive(kPort, 60000), TAVU_FAILURE);
    send(kEmptyBusError + " " + kFrame);
    batch_.cnt = 1;
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch_), 1) << "the hint left behind ends no batch";
    TAVUCancelReceive(kPort);
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch_), 0) << "a cancel waits for the batch it ends";
    const std::jthread canceller(TAVUCancelReceive, kPort);
    EXPECT_EQ(TAVUWaitReceive(kPort, 600'000), TAVU_FAILURE);  // the test's limit is shorter
}

TEST_F(Receive, HungUpPortIsWaitedForWithoutSpinning) {
    module_.unplug();
    const auto start = Clock::now();
    EXPECT_EQ(TAVUWaitReceive(kPort, 200), TAVU_HUNG_UP);
    EXPECT_GE(Clock::now() - start, milliseconds(200));
    TAVUCancelReceive(kPort);
    EXPECT_EQ(TAVUWaitReceive(kPort, 600'000), TAVU_FAILURE);
}

}  // namespace
