// tests/lib/failures_test.cpp - test: every public call against bad ports, answers and systems.
// Uses the public calls; failures come from simulated modules and the serial shim.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <cerrno>
#include <functional>
#include <memory>
#include <thread>
#include <type_traits>

namespace {

using Call = std::function<int(int com_port)>;

struct PublicCall {
    const char* name;
    Call call;
    const char* command = "";  // its last one, if that is answered
    int failure = TAVU_FAILURE;
};

// `call` with a zero record of its own and the further arguments.
template <typename Record, typename... Further>
Call filling(int (*call)(int, Record*, Further...), std::type_identity_t<Further>... further) {
    return [=](int port) { return call(port, std::make_unique<Record>().get(), further...); };
}

template <typename... Values>
Call with(int (*call)(int, Values...), std::type_identity_t<Values>... values) {
    return [=](int port) { return call(port, values...); };
}

int both_states(int port) {
    int states[2] = {};
    return TAVUGetCANStatus(port, &states[0], &states[1]);
}

int both_tables(int port) {
    RANGE_FILTER_INFO tables[2] = {};
    return TAVUGetRangeFilter(port, &tables[0], &tables[1]);
}

int build_identifier(int port) {
    unsigned char bldid[2] = {};
    return TAVUGetBLDID(port, bldid);
}

int batch_of_one(int port) {
    CAN_FRAME_INFO record{};
    NON_BLOCK_INFO batch{.cnt = 1, .interval = 1, .can_frame_info = &record};
    return TAVUReceiveNonblock(port, &batch);
}

const FILTER_INFO kExtended = {0, TAVU_EID, 0x123, 0x1FFFFFFF};
const FILTER_INFO kStandard = {1, TAVU_SID, 0x123, 0x7FF};

const std::vector<PublicCall> exchanges = {
    {"ShowVer", filling(TAVUShowVer), "36 36 0D 0A"},
    {"GetCANStatus", both_states, "60 60 0D 0A"},
    {"InitCAN", with(TAVUInitCAN, 0, 0), "61 00 00 61 0D 0A"},
    {"InitCANReal", with(TAVUInitCANReal, 1, 0), "61 01 00 62 0D 0A"},
    {"ResetCAN", TAVUResetCAN, "34 34 0D 0A"},
    {"GetCfg", filling(TAVUGetCfg), "37 37 0D 0A"},
    {"GetVCOMConfig", filling(TAVUGetVCOMConfig), "4D 4D 0D 0A"},
    {"SetVCOMConfig", with(TAVUSetVCOMConfig, 0x101), "4E 01 4F 0D 0A"},
    {"SetBaudRate", with(TAVUSetBaudRate, 7, 9), "30 07 09 40 0D 0A"},
    {"SetMode", with(TAVUSetMode, 0, 1), "33 00 01 34 0D 0A"},
    {"SetErrorType", with(TAVUSetErrorType, TAVU_EN_ALL), "38 FF 37 0D 0A"},
    {"SetFilter1", with(TAVUSetFilter, kExtended), "31 02 00 00 01 23 3F FF FF FF 93 0D 0A"},
    {"SetFilter2", with(TAVUSetFilter, kStandard), "32 01 00 00 01 23 00 00 07 FF 5D 0D 0A"},
    {"ClearFilter1", with(TAVUClearFilter, 0), "31 00 00 00 00 00 00 00 00 00 31 0D 0A"},
    {"ClearFilter2", with(TAVUClearFilter, 1), "32 00 00 00 00 00 00 00 00 00 32 0D 0A"},
    {"ExpCfg", with(TAVUExpCfg, "/dev/null"), "37 37 0D 0A"},
    {"SetCFG_CANFD", with(TAVUSetCFG_CANFD, {5, 1, 2, 0}), "4A 05 02 01 00 52 0D 0A"},
    {"GetCFG_CANFD", filling(TAVUGetCFG_CANFD), "47 47 0D 0A"},
    {"Set_Timing",
     with(TAVUSet_TimingCFG_CANFD,
          {1, 11, 12, 13, 14, 15, 16, 0x123, 18, 19, 20, 21, 22, 23, 24, 25, 26}),
     "4B 01 0B 0C 0D 0E 10 23 12 13 14 15 16 17 18 19 1A 77 0D 0A"},
    {"Get_Timing", filling(TAVUGet_TimingCFG_CANFD, 0), "4C 00 4C 0D 0A"},
    {"GetBLDID", build_identifier, "36 36 0D 0A"}};

// Write without waiting for an answer.
const std::vector<PublicCall> writes = {{"GetBusError", TAVUGetBusError},
                                        {"Testing", filling(TAVUTesting)},
                                        {"Send", with(TAVUSend, {})},
                                        {"Send_CANFD", with(TAVUSend_CANFD, {})}};

const std::vector<PublicCall> other_calls = {
    {"OpenDevice", TAVUOpenDevice},
    {"OpenDeviceSCT", TAVUOpenDeviceSCT},
    {"OpenSocketCAN", with(TAVUOpenSocketCAN, nullptr)},
    {"CloseDevice", TAVUCloseDevice},
    {"FlexibleVCOM", TAVUFlexibleVCOM},
    {"InitRangeFilter", with(TAVUInitRangeFilter, 2, 2)},
    {"GetRangeFilter", both_tables},
    {"SetRangeFilter", with(TAVUSetRangeFilter, nullptr, nullptr)},
    {"ImpCfg", with(TAVUImpCfg, "/dev/zero")},
    {"WaitReceive", with(TAVUWaitReceive, 60000)},
    {"SetRecvBlock", with(TAVUSetRecvBlock, true), "", -1},
    {"Receive", filling(TAVUReceive), "", 0},
    {"Receive_CANFD", filling(TAVUReceive_CANFD), "", 0},
    {"ReceiveNonblock", batch_of_one, "", 0}};

TEST(Failures, PortsOutOfRangeAndClosedOnesAreRefusedAtOnce) {
    sim::Station station;  // on kPort, which stays closed
    const auto start = Clock::now();
    for (const auto* calls : {&exchanges, &writes, &other_calls}) {
        for (const PublicCall& call : *calls) {
            for (const int port : {-1, 68, 1 << 30, kPort + 1}) {
                EXPECT_EQ(call.call(port), call.failure) << call.name << " " << port;
            }
        }
    }
    TAVUCancelReceive(-1);
    EXPECT_LT(Clock::now() - start, kLimit);
    EXPECT_TRUE(station.commands().empty());
    EXPECT_EQ(sim::shim_open_descriptors(), 0);
}

TEST(Failures, NullPointersAreRefusedBeforeAnythingIsSent) {
    OpenModule module;
    int state = 0;
    RANGE_FILTER_INFO table{};
    NON_BLOCK_INFO batch{.cnt = 1, .interval = 60000, .can_frame_info = nullptr};
    EXPECT_EQ(TAVUGetCANStatus(kPort, nullptr, &state), TAVU_FAILURE);
    EXPECT_EQ(TAVUGetCANStatus(kPort, &state, nullptr), TAVU_FAILURE);
    EXPECT_EQ(TAVUGetRangeFilter(kPort, nullptr, &table), TAVU_FAILURE);
    EXPECT_EQ(TAVUGetRangeFilter(kPort, &table, nullptr), TAVU_FAILURE);
    for (const int result :
         {TAVUShowVer(kPort, nullptr), TAVUGetCfg(kPort, nullptr),
          TAVUGetVCOMConfig(kPort, nullptr), TAVUExpCfg(kPort, nullptr), TAVUImpCfg(kPort, nullptr),
          TAVUGetCFG_CANFD(kPort, nullptr), TAVUGet_TimingCFG_CANFD(kPort, nullptr, 0),
          TAVUTesting(kPort, nullptr), TAVUGetBLDID(kPort, nullptr)}) {
        EXPECT_EQ(result, TAVU_FAILURE);
    }
    EXPECT_EQ(TAVUReceive(kPort, nullptr) + TAVUReceive_CANFD(kPort, nullptr), 0);
    EXPECT_EQ(TAVUReceiveNonblock(kPort, nullptr) + TAVUReceiveNonblock(kPort, &batch), 0);
    TAVUGetLoss(nullptr);
    EXPECT_TRUE(module.sent().empty());
}

// What the module answers instead, and what every call makes of it. One module for each, all at
// work at once: ports do not affect each other.
TEST(Failures, BadAnswersFailEveryExchangeButNotTheNextOne) {
    const struct {
        std::string behind;  // the command byte
        std::size_t length;  // of the answer, filled with zeros or cut
        int expected;
    } rows[] = {{"", 0, TAVU_FAILURE},
                {" 01 00 0D 0A", 5, TAVU_FAILURE},
                {" 00 00 0D 0A", 5, TAVU_FAILURE},  // of another command
                {"", 1, TAVU_SUCCESS},
                {"", 200, TAVU_SUCCESS}};
    constexpr std::size_t kOtherCommand = 2;
    std::vector<std::unique_ptr<OpenModule>> modules;
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        modules.push_back(std::make_unique<OpenModule>(kPort + static_cast<int>(i)));
    }
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        threads.emplace_back([&, i] {
            const int port = kPort + static_cast<int>(i);
            for (const PublicCall& call : exchanges) {
                const sim::Bytes command = hex(call.command);
                sim::Bytes answer = hex((i == kOtherCommand ? "7F" : std::string(call.command, 2)) +
                                        rows[i].behind);
                answer.resize(rows[i].length);
                modules[i]->station.script_reply(command[0], answer);
                EXPECT_EQ(call.call(port), rows[i].expected) << call.name << " row " << i;
                EXPECT_EQ(modules[i]->sent().back(), call.command) << call.name;
            }
            EXPECT_EQ(TAVUResetCAN(port), TAVU_SUCCESS);
        });
    }
}

// The system's failures on an open port, each met by every exchange and every write.
struct SystemFault {
    const char* name;
    std::vector<sim::CallFault> faults;
    int exchange_result;
    int write_result;
    bool is_unplugged = false;
};

class System : public testing::TestWithParam<SystemFault> {
  protected:
    static void meet(const std::vector<PublicCall>& calls, int expected) {
        for (const PublicCall& call : calls) {
            for (const sim::CallFault& fault : GetParam().faults) {
                sim::shim_fail(fault);
            }
            EXPECT_EQ(call.call(kPort), expected) << call.name;
            sim::shim_fail_none();
        }
    }
};

TEST_P(System, FaultGivesTheRightResultAndKeepsThePort) {
    {
        OpenModule module;
        if (GetParam().is_unplugged) {
            module.station.unplug();
        }
        meet(exchanges, GetParam().exchange_result);
        meet(writes, GetParam().write_result);
        EXPECT_EQ(sim::shim_open_descriptors(), 1);
    }
    EXPECT_EQ(sim::shim_open_descriptors(), 0);
    EXPECT_EQ(tavu::first, nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Failures, System,
    testing::Values(
        SystemFault{"Signals",
                    {{sim::Call::read, EINTR, 3},
                     {sim::Call::write, EINTR, 3},
                     {sim::Call::poll, EINTR, 3}},
                    TAVU_SUCCESS,
                    TAVU_SUCCESS},
        SystemFault{"WriteFails", {{sim::Call::write, EIO, 3}}, TAVU_FAILURE, TAVU_FAILURE},
        SystemFault{"ReadFails", {{sim::Call::read, EIO, 3}}, TAVU_FAILURE, TAVU_SUCCESS},
        SystemFault{"PollFails", {{sim::Call::poll, ENOMEM, 6}}, TAVU_FAILURE, TAVU_SUCCESS},
        SystemFault{"ReadsShort",
                    {{.call = sim::Call::read, .times = 3, .limit = 1}},
                    TAVU_SUCCESS,
                    TAVU_SUCCESS},
        SystemFault{"WritesShort",
                    {{.call = sim::Call::write, .times = 3, .limit = 1}},
                    TAVU_SUCCESS,
                    TAVU_SUCCESS},
        SystemFault{"Unplugged", {}, TAVU_FAILURE, TAVU_FAILURE, true}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
