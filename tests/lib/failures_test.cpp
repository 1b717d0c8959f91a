// tests/lib/failures_test.cpp - test: every public call against bad ports, answers and systems.
// Uses the public calls; failures come from simulated modules and the serial shim.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <cerrno>
#include <functional>
#include <memory>
#include <thread>

namespace {

using Call = std::function<int(int com_port)>;

struct PublicCall {
    const char* name;
    Call call;
    std::uint8_t command = 0;  // of its last exchange; 0: makes none
    int failure = TAVU_FAILURE;
};

template <typename Record>
Call filling(int (*call)(int, Record*)) {
    return [call](int port) {
        Record record{};
        return call(port, &record);
    };
}

const std::vector<PublicCall>& exchanges() {
    static const std::vector<PublicCall> calls = {
        {"ShowVer", filling(TAVUShowVer), 0x36},
        {"GetCANStatus",
         [](int port) {
             int can1 = 0;
             int can2 = 0;
             return TAVUGetCANStatus(port, &can1, &can2);
         },
         0x60},
        {"InitCAN", [](int port) { return TAVUInitCAN(port, 0, 0); }, 0x61},
        {"InitCANReal", [](int port) { return TAVUInitCANReal(port, 0, 0); }, 0x61},
        {"ResetCAN", TAVUResetCAN, 0x34},
        {"GetCfg", filling(TAVUGetCfg), 0x37},
        {"GetVCOMConfig", filling(TAVUGetVCOMConfig), 0x4D},
        {"SetVCOMConfig", [](int port) { return TAVUSetVCOMConfig(port, 1); }, 0x4E},
        {"SetBaudRate", [](int port) { return TAVUSetBaudRate(port, 7, 9); }, 0x30},
        {"SetMode", [](int port) { return TAVUSetMode(port, 0, 1); }, 0x33},
        {"SetErrorType", [](int port) { return TAVUSetErrorType(port, 2); }, 0x38},
        {"SetFilter",
         [](int port) {
             return TAVUSetFilter(port, {0, 1, 2, 3});
         },
         0x31},
        {"ClearFilter", [](int port) { return TAVUClearFilter(port, 1); }, 0x32},
        {"ExpCfg", [](int port) { return TAVUExpCfg(port, "/dev/null"); }, 0x37},
        {"SetCFG_CANFD",
         [](int port) {
             return TAVUSetCFG_CANFD(port, {5, 1, 2, 0});
         },
         0x4A},
        {"GetCFG_CANFD", filling(TAVUGetCFG_CANFD), 0x47},
        {"Set_Timing", [](int port) { return TAVUSet_TimingCFG_CANFD(port, {}); }, 0x4B},
        {"Get_Timing",
         [](int port) {
             TIMING_CFG_CANFD timing{};
             return TAVUGet_TimingCFG_CANFD(port, &timing, 0);
         },
         0x4C},
        {"GetBLDID",
         [](int port) {
             unsigned char bldid[2] = {};
             return TAVUGetBLDID(port, bldid);
         },
         0x36}};
    return calls;
}

// Write without waiting for an answer.
const std::vector<PublicCall>& writes() {
    static const CAN_FRAME_INFO frame = [] {
        CAN_FRAME_INFO info{};
        info.id_type = TAVU_SID;
        return info;
    }();
    static const std::vector<PublicCall> calls = {
        {"GetBusError", TAVUGetBusError},
        {"Testing", filling(TAVUTesting)},
        {"Send", [](int port) { return TAVUSend(port, frame); }},
        {"Send_CANFD", [](int port) { return TAVUSend_CANFD(port, frame); }}};
    return calls;
}

const std::vector<PublicCall>& other_calls() {
    static const std::vector<PublicCall> calls = {
        {"OpenDevice", TAVUOpenDevice},
        {"OpenDeviceSCT", TAVUOpenDeviceSCT},
        {"OpenSocketCAN", [](int port) { return TAVUOpenSocketCAN(port, nullptr); }},
        {"CloseDevice", TAVUCloseDevice},
        {"FlexibleVCOM", TAVUFlexibleVCOM},
        {"InitRangeFilter", [](int port) { return TAVUInitRangeFilter(port, 2, 2); }},
        {"GetRangeFilter",
         [](int port) {
             RANGE_FILTER_INFO tables[2] = {};
             return TAVUGetRangeFilter(port, &tables[0], &tables[1]);
         }},
        {"SetRangeFilter", [](int port) { return TAVUSetRangeFilter(port, nullptr, nullptr); }},
        {"ImpCfg", [](int port) { return TAVUImpCfg(port, "/dev/zero"); }},
        {"WaitReceive", [](int port) { return TAVUWaitReceive(port, 60000); }},
        {"SetRecvBlock", [](int port) { return TAVUSetRecvBlock(port, true); }, 0, -1},
        {"Receive", filling(TAVUReceive), 0, 0},
        {"Receive_CANFD", filling(TAVUReceive_CANFD), 0, 0},
        {"ReceiveNonblock",
         [](int port) {
             CAN_FRAME_INFO record{};
             NON_BLOCK_INFO batch{.cnt = 1, .interval = 1, .can_frame_info = &record};
             return TAVUReceiveNonblock(port, &batch);
         },
         0, 0}};
    return calls;
}

TEST(Failures, PortsOutOfRangeAndClosedOnesAreRefusedAtOnce) {
    sim::Station station;  // on kPort, which stays closed
    const auto start = Clock::now();
    for (const auto* calls : {&exchanges(), &writes(), &other_calls()}) {
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
    const std::array failures = {TAVUShowVer(kPort, nullptr),
                                 TAVUGetCANStatus(kPort, nullptr, &state),
                                 TAVUGetCANStatus(kPort, &state, nullptr),
                                 TAVUGetCfg(kPort, nullptr),
                                 TAVUGetVCOMConfig(kPort, nullptr),
                                 TAVUGetRangeFilter(kPort, nullptr, &table),
                                 TAVUGetRangeFilter(kPort, &table, nullptr),
                                 TAVUExpCfg(kPort, nullptr),
                                 TAVUImpCfg(kPort, nullptr),
                                 TAVUGetCFG_CANFD(kPort, nullptr),
                                 TAVUGet_TimingCFG_CANFD(kPort, nullptr, 0),
                                 TAVUTesting(kPort, nullptr),
                                 TAVUGetBLDID(kPort, nullptr)};
    for (std::size_t i = 0; i < failures.size(); ++i) {
        EXPECT_EQ(failures[i], TAVU_FAILURE) << i;
    }
    EXPECT_EQ(TAVUReceive(kPort, nullptr), 0);
    EXPECT_EQ(TAVUReceive_CANFD(kPort, nullptr), 0);
    EXPECT_EQ(TAVUReceiveNonblock(kPort, nullptr), 0);
    EXPECT_EQ(TAVUReceiveNonblock(kPort, &batch), 0);
    TAVUGetLoss(nullptr);
    EXPECT_TRUE(module.sent().empty());
}

// What the module answers instead, and what every call makes of it. One module for each, all at
// work at once: ports do not affect each other.
TEST(Failures, BadAnswersFailEveryExchangeButNotTheNextOne) {
    const struct {
        std::function<sim::Bytes(std::uint8_t command)> answer;
        int expected;
    } rows[] = {{[](std::uint8_t) { return sim::Bytes{}; }, TAVU_FAILURE},
                {[](std::uint8_t command) {
                     return sim::Bytes{command, 1, 0, 13, 10};
                 },
                 TAVU_FAILURE},
                {[](std::uint8_t) {
                     return sim::Bytes{0x7F, 0, 0, 13, 10};
                 },
                 TAVU_FAILURE},
                {[](std::uint8_t command) { return sim::Bytes{command}; }, TAVU_SUCCESS},
                {[](std::uint8_t command) {
                     sim::Bytes answer(200, 0);
                     answer[0] = command;
                     return answer;
                 },
                 TAVU_SUCCESS}};
    std::vector<std::unique_ptr<OpenModule>> modules;
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        modules.push_back(std::make_unique<OpenModule>(kPort + static_cast<int>(i)));
    }
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        threads.emplace_back([&, i] {
            const int port = kPort + static_cast<int>(i);
            for (const PublicCall& call : exchanges()) {
                modules[i]->station.script_reply(call.command, rows[i].answer(call.command));
                EXPECT_EQ(call.call(port), rows[i].expected) << call.name << " row " << i;
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

void PrintTo(const SystemFault& fault, std::ostream* out) {
    *out << fault.name;
}

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
        meet(exchanges(), GetParam().exchange_result);
        meet(writes(), GetParam().write_result);
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
        SystemFault{"PollFails", {{sim::Call::poll, ENOMEM, 6}}, TAVU_FAILURE, TAVU_FAILURE},
        SystemFault{"ReadsShort",
                    {{.call = sim::Call::read, .times = 3, .limit = 1}},
                    TAVU_SUCCESS,
                    TAVU_SUCCESS},
        SystemFault{"Unplugged", {}, TAVU_FAILURE, TAVU_FAILURE, true}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
