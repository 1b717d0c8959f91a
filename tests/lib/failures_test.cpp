// tests/lib/failures_test.cpp - test: every public call against bad ports, answers and systems.
// Uses the public calls; failures come from simulated modules and the serial shim.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <cerrno>
#include <functional>

namespace {

struct PublicCall {
    std::function<int(int com_port)> call;
    std::string command;      // its last one
    bool is_answered = true;  // otherwise it only writes
};

template <typename... Values>
auto with(int (*call)(int, Values...), std::type_identity_t<Values>... values) {
    return [=](int port) { return call(port, values...); };
}

int raw(int port, int send_len, int recv_len) {
    TEST_INFO info{0, send_len, recv_len, {0x34, 0x34, 0x0D, 0x0A}, {}};
    return TAVUTesting(port, &info);
}

// What the calls fill.
std::array<int, 2> states{};
std::array<unsigned char, 2> bldid{};
std::array<RANGE_FILTER_INFO, 2> tables{};
VER_INFO version{};
CFG_INFO config{};
CANFD_CFG_INFO fd_config{};
VCOM_INFO vcom{};
TIMING_CFG_CANFD timing{};
CAN_FRAME_INFO record{};

const CAN_FRAME_INFO kFrame = {0, TAVU_SID, 0, 0, 0, 0, 0, 0, {}, 0, {}, {}, {}};
const FILTER_INFO kExtended = {TAVU_CAN_1, TAVU_EID, 0x123, 0x1FFFFFFF};
const FILTER_INFO kStandard = {TAVU_CAN_2, TAVU_SID, 0x123, 0x7FF};

// The calls that reach the module.
const std::vector<PublicCall> calls = {
    {with(TAVUShowVer, &version), "36 36 0D 0A"},
    {with(TAVUGetCANStatus, &states[0], &states[1]), "60 60 0D 0A"},
    {with(TAVUInitCAN, 0, 0), "61 00 00 61 0D 0A"},
    {with(TAVUInitCANReal, 1, 0), "61 01 00 62 0D 0A"},
    {TAVUResetCAN, "34 34 0D 0A"},
    {with(TAVUGetCfg, &config), "37 37 0D 0A"},
    {with(TAVUGetVCOMConfig, &vcom), "4D 4D 0D 0A"},
    {with(TAVUSetVCOMConfig, 0x101), "4E 01 4F 0D 0A"},
    {with(TAVUSetBaudRate, 7, 9), "30 07 09 40 0D 0A"},
    {with(TAVUSetMode, 0, 1), "33 00 01 34 0D 0A"},
    {with(TAVUSetErrorType, TAVU_EN_ALL), "38 FF 37 0D 0A"},
    {with(TAVUSetFilter, kExtended), "31 02 00 00 01 23 3F FF FF FF 93 0D 0A"},
    {with(TAVUSetFilter, kStandard), "32 01 00 00 01 23 00 00 07 FF 5D 0D 0A"},
    {with(TAVUClearFilter, 0), "31 00 00 00 00 00 00 00 00 00 31 0D 0A"},
    {with(TAVUClearFilter, 1), "32 00 00 00 00 00 00 00 00 00 32 0D 0A"},
    {with(TAVUExpCfg, "/dev/null"), "37 37 0D 0A"},
    {with(TAVUSetCFG_CANFD, {5, 1, 2, 0}), "4A 05 02 01 00 52 0D 0A"},
    {with(TAVUGetCFG_CANFD, &fd_config), "47 47 0D 0A"},
    {with(TAVUSet_TimingCFG_CANFD, {}),
     "4B 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 4B 0D 0A"},
    {with(TAVUGet_TimingCFG_CANFD, &timing, 0), "4C 00 4C 0D 0A"},
    {with(TAVUGetBLDID, bldid.data()), "36 36 0D 0A"},
    {TAVUGetBusError, "62 62 0D 0A", false},
    {with(raw, 4, 0), "34 34 0D 0A", false},
    {with(TAVUSend, kFrame), "E0 01 00 00 00 00 00 00 00 00 00 00 00 00 E1 0D 0A", false},
    {with(TAVUSend_CANFD, kFrame), "F0 01 00 00 00 00 00 00 00 00 00 00 00 00 00 F1 0D 0A", false}};

std::vector<int> listed(auto... results) {
    return {results...};
}

TEST(Failures, PortsOutOfRangeAndClosedOnesAreRefusedAtOnce) {
    NON_BLOCK_INFO batch{.cnt = 1, .interval = 1, .can_frame_info = &record};
    tavu::send_delay[0] = 60'000'000;
    const auto start = Clock::now();
    for (const int port : {-1, 68, 1 << 30, kPort}) {
        for (const PublicCall& call : calls) {
            EXPECT_EQ(call.call(port), TAVU_FAILURE) << call.command << " on " << port;
        }
        EXPECT_EQ(
            listed(TAVUOpenDevice(port), TAVUOpenDeviceSCT(port), TAVUOpenSocketCAN(port, nullptr),
                   TAVUCloseDevice(port), TAVUFlexibleVCOM(port), TAVUInitRangeFilter(port, 2, 2),
                   TAVUGetRangeFilter(port, &tables[0], &tables[1]),
                   TAVUSetRangeFilter(port, nullptr, nullptr), TAVUImpCfg(port, "/dev/zero"),
                   TAVUWaitReceive(port, 60000)),
            std::vector<int>(10, TAVU_FAILURE));
        EXPECT_EQ(TAVUSetRecvBlock(port, true), TAVU_READ_MODE_FAILURE);
        EXPECT_EQ(TAVUReceive(port, &record), TAVU_NO_REPORT);
        EXPECT_EQ(TAVUReceive_CANFD(port, &record), TAVU_NO_REPORT);
        EXPECT_EQ(TAVUReceiveNonblock(port, &batch), 0);
        TAVUCancelReceive(port);
    }
    EXPECT_LT(Clock::now() - start, kLimit);
}

TEST(Failures, BadArgumentsAreRefusedBeforeAnythingIsSent) {
    OpenModule module;
    const auto results = listed(
        TAVUGetCANStatus(kPort, nullptr, &states[0]), TAVUGetCANStatus(kPort, &states[0], nullptr),
        TAVUGetRangeFilter(kPort, nullptr, &tables[0]),
        TAVUGetRangeFilter(kPort, &tables[0], nullptr), TAVUShowVer(kPort, nullptr),
        TAVUGetCfg(kPort, nullptr), TAVUGetVCOMConfig(kPort, nullptr), TAVUExpCfg(kPort, nullptr),
        TAVUImpCfg(kPort, nullptr), TAVUGetCFG_CANFD(kPort, nullptr),
        TAVUGet_TimingCFG_CANFD(kPort, nullptr, 0), TAVUGet_TimingCFG_CANFD(kPort, &timing, 3),
        TAVUTesting(kPort, nullptr), raw(kPort, 257, 1), raw(kPort, -1, 1), raw(kPort, 4, 257),
        raw(kPort, 4, -1), TAVUGetBLDID(kPort, nullptr), TAVUClearFilter(kPort, 2),
        TAVUSetFilter(kPort, {2, TAVU_SID, 0x123, 0x7FF}));
    EXPECT_EQ(results, std::vector<int>(results.size(), TAVU_FAILURE));
    NON_BLOCK_INFO nowhere{.cnt = 1, .interval = 60000, .can_frame_info = nullptr};
    EXPECT_EQ(listed(TAVUReceive(kPort, nullptr), TAVUReceive_CANFD(kPort, nullptr),
                     TAVUReceiveNonblock(kPort, nullptr), TAVUReceiveNonblock(kPort, &nowhere)),
              std::vector<int>(4, TAVU_NO_REPORT));
    TAVUGetLoss(nullptr);
    EXPECT_EQ(raw(kPort, 0, 0), TAVU_SUCCESS) << "sends nothing, as was asked";
    EXPECT_TRUE(module.sent().empty());
}

// What is wrong with the module or the system, and what every exchange and every write makes of it.
struct Fault {
    const char* name;
    std::function<void(OpenModule&, std::uint8_t command)> strike;
    int exchange_result, write_result;
};

// The next answer: `first` beyond the command byte, then the others.
auto answers(std::uint8_t first, const sim::Bytes& others) {
    return [=](OpenModule& module, std::uint8_t command) {
        sim::Bytes answer = others;
        answer.insert(answer.begin(), static_cast<std::uint8_t>(command + first));
        module.script_reply(command, answer);
    };
}

// The next calls of the system.
auto fails(const sim::CallFault& fault) {
    return [=](OpenModule&, std::uint8_t) { sim::shim_fail(fault); };
}

struct Failure : testing::TestWithParam<Fault> {};

TEST_P(Failure, GivesTheRightResultAndHarmsNoLaterCall) {
    const Fault& fault = GetParam();
    OpenModule module;
    for (const PublicCall& call : calls) {
        SCOPED_TRACE(call.command);
        const int expected = call.is_answered ? fault.exchange_result : fault.write_result;
        expect_at_last(expected, [&] {
            module.forget_commands();
            fault.strike(module, hex(call.command)[0]);
            const int result = call.call(kPort);
            sim::shim_fail_none();
            return result;
        });
        ASSERT_FALSE(HasFailure());
        if (expected == TAVU_SUCCESS) {
            const Texts sent = module.sent(1);
            ASSERT_FALSE(sent.empty());
            EXPECT_EQ(sent.back(), call.command);
        }
    }
    expect_at_last(fault.name == std::string("HangUp") ? TAVU_FAILURE : TAVU_SUCCESS,
                   [] { return TAVUResetCAN(kPort); });
    EXPECT_EQ(sim::shim_open_descriptors(), 1);
}

const auto silence = [](OpenModule& module, std::uint8_t command) {
    module.script_reply(command, {});
};
const auto hang_up = [](OpenModule& module, std::uint8_t) { module.unplug(); };
constexpr int kFine = TAVU_SUCCESS;
constexpr int kFails = TAVU_FAILURE;
using sim::Call;

INSTANTIATE_TEST_SUITE_P(
    Failures, Failure,
    testing::Values(Fault{"Silence", silence, kFails, kFine},
                    Fault{"Refusal", answers(0, {1, 0, 0x0D, 0x0A}), kFails, kFine},
                    Fault{"WrongEcho", answers(1, {0, 0, 0x0D, 0x0A}), kFails, kFine},
                    Fault{"TruncatedReadsAsZeros", answers(0, {}), kFine, kFine},
                    Fault{"Oversized", answers(0, sim::Bytes(200)), kFine, kFine},
                    Fault{"ReadInterrupted", fails({Call::read, EINTR, 3}), kFine, kFine},
                    Fault{"WriteInterrupted", fails({Call::write, EINTR, 3}), kFine, kFine},
                    Fault{"ReadError", fails({Call::read, EIO, 3}), kFails, kFine},
                    Fault{"WriteError", fails({Call::write, EIO, 3}), kFails, kFails},
                    Fault{"WriteCut", fails({.call = Call::write, .limit = 1}), kFine, kFine},
                    Fault{"HangUp", hang_up, kFails, kFails}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
