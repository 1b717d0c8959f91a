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
template <typename Record>
Record out{};

const CAN_FRAME_INFO kFrame = {0, TAVU_SID, 0, 0, 0, 0, 0, 0, {}, 0, {}, {}, {}};
// The calls that reach the module.
const std::vector<PublicCall> calls = {
    {with(TAVUShowVer, &out<VER_INFO>), "36 36 0D 0A"},
    {with(TAVUGetCANStatus, &out<int>, &out<int>), "60 60 0D 0A"},
    {with(TAVUInitCAN, 0, 0), "61 00 00 61 0D 0A"},
    {with(TAVUInitCANReal, 1, 0), "61 01 00 62 0D 0A"},
    {TAVUResetCAN, "34 34 0D 0A"},
    {with(TAVUGetCfg, &out<CFG_INFO>), "37 37 0D 0A"},
    {with(TAVUGetVCOMConfig, &out<VCOM_INFO>), "4D 4D 0D 0A"},
    {with(TAVUSetVCOMConfig, 0x101), "4E 01 4F 0D 0A"},
    {with(TAVUSetBaudRate, 7, 9), "30 07 09 40 0D 0A"},
    {with(TAVUSetMode, 0, 1), "33 00 01 34 0D 0A"},
    {with(TAVUSetErrorType, TAVU_EN_ALL), "38 FF 37 0D 0A"},
    {with(TAVUSetFilter, {0, TAVU_EID, 1, 0x1FFFFFFF}), "31 02 00 00 00 01 3F FF FF FF 70 0D 0A"},
    {with(TAVUSetFilter, {1, TAVU_SID, 0x123, 0x7FF}), "32 01 00 00 01 23 00 00 07 FF 5D 0D 0A"},
    {with(TAVUClearFilter, 0), "31 00 00 00 00 00 00 00 00 00 31 0D 0A"},
    {with(TAVUClearFilter, 1), "32 00 00 00 00 00 00 00 00 00 32 0D 0A"},
    {with(TAVUExpCfg, "/dev/null"), "37 37 0D 0A"},
    {with(TAVUSetCFG_CANFD, {5, 1, 2, 0}), "4A 05 02 01 00 52 0D 0A"},
    {with(TAVUGetCFG_CANFD, &out<CANFD_CFG_INFO>), "47 47 0D 0A"},
    {with(TAVUSet_TimingCFG_CANFD, {}),
     "4B 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 4B 0D 0A"},
    {with(TAVUGet_TimingCFG_CANFD, &out<TIMING_CFG_CANFD>, 0), "4C 00 4C 0D 0A"},
    {with(TAVUGetBLDID, out<std::array<unsigned char, 2>>.data()), "36 36 0D 0A"},
    {TAVUGetBusError, "62 62 0D 0A", false},
    {with(raw, 4, 0), "34 34 0D 0A", false},
    {with(TAVUSend, kFrame), "E0 01 00 00 00 00 00 00 00 00 00 00 00 00 E1 0D 0A", false},
    {with(TAVUSend_CANFD, kFrame), "F0 01 00 00 00 00 00 00 00 00 00 00 00 00 00 F1 0D 0A", false}};

std::vector<int> listed(auto... results) {
    return {results...};
}

TEST(Failures, PortsOutOfRangeAndClosedOnesAreRefusedAtOnce) {
    NON_BLOCK_INFO batch{.cnt = 1, .interval = 1, .can_frame_info = &out<CAN_FRAME_INFO>};
    tavu::send_delay[0] = 600'000'000;
    for (const int port : {-1, 68, kPort}) {
        for (const PublicCall& call : calls) {
            EXPECT_EQ(call.call(port), TAVU_FAILURE) << call.command << " on " << port;
        }
        EXPECT_EQ(
            listed(TAVUOpenDevice(port), TAVUOpenSocketCAN(port, nullptr), TAVUCloseDevice(port),
                   TAVUFlexibleVCOM(port), TAVUInitRangeFilter(port, 2, 2),
                   TAVUGetRangeFilter(port, &out<RANGE_FILTER_INFO>, &out<RANGE_FILTER_INFO>),
                   TAVUSetRangeFilter(port, nullptr, nullptr), TAVUImpCfg(port, "/dev/zero"),
                   TAVUWaitReceive(port, 600000)),
            std::vector<int>(9, TAVU_FAILURE));
        EXPECT_EQ(TAVUSetRecvBlock(port, true), TAVU_READ_MODE_FAILURE);
        EXPECT_EQ(TAVUReceive(port, &out<CAN_FRAME_INFO>) + TAVUReceiveNonblock(port, &batch),
                  TAVU_NO_REPORT);
        TAVUCancelReceive(port);
    }
}

TEST(Failures, BadArgumentsAreRefusedBeforeAnythingIsSent) {
    OpenModule module;
    const auto results = listed(
        TAVUGetCANStatus(kPort, nullptr, &out<int>), TAVUGetCANStatus(kPort, &out<int>, nullptr),
        TAVUGetRangeFilter(kPort, nullptr, &out<RANGE_FILTER_INFO>),
        TAVUGetRangeFilter(kPort, &out<RANGE_FILTER_INFO>, nullptr), TAVUShowVer(kPort, nullptr),
        TAVUGetCfg(kPort, nullptr), TAVUGetVCOMConfig(kPort, nullptr), TAVUExpCfg(kPort, nullptr),
        TAVUImpCfg(kPort, nullptr), TAVUGetCFG_CANFD(kPort, nullptr),
        TAVUGet_TimingCFG_CANFD(kPort, nullptr, 0),
        TAVUGet_TimingCFG_CANFD(kPort, &out<TIMING_CFG_CANFD>, 3), TAVUTesting(kPort, nullptr),
        raw(kPort, 257, 1), raw(kPort, -1, 1), raw(kPort, 4, 257), raw(kPort, 4, -1),
        TAVUGetBLDID(kPort, nullptr), TAVUClearFilter(kPort, 2),
        TAVUSetFilter(kPort, {2, TAVU_SID, 0x123, 0x7FF}));
    EXPECT_EQ(results, std::vector<int>(results.size(), TAVU_FAILURE));
    NON_BLOCK_INFO nowhere{.cnt = 1, .interval = 60000, .can_frame_info = nullptr};
    EXPECT_EQ(listed(TAVUReceive_CANFD(kPort, nullptr), TAVUReceiveNonblock(kPort, nullptr),
                     TAVUReceiveNonblock(kPort, &nowhere)),
              std::vector<int>(3, TAVU_NO_REPORT));
    EXPECT_TRUE(module.sent().empty());
}

// What is wrong with the module or the system, and what every exchange and every write makes of it.
struct Fault {
    const char* name;
    std::function<void(OpenModule&, std::uint8_t command)> strike;
    int exchange_result, write_result;
};

// The next answer; its first byte is XORed with the command's. An empty one is silence.
auto answers(const sim::Bytes& answer) {
    return [=](OpenModule& module, std::uint8_t command) {
        sim::Bytes bytes = answer;
        if (!bytes.empty()) {
            bytes[0] ^= command;
        }
        module.script_reply(command, bytes);
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
}

const auto hang_up = [](OpenModule& module, std::uint8_t) { module.unplug(); };
constexpr int kFine = TAVU_SUCCESS;
constexpr int kFails = TAVU_FAILURE;

INSTANTIATE_TEST_SUITE_P(
    Failures, Failure,
    testing::Values(Fault{"Silence", answers({}), kFails, kFine},
                    Fault{"Refusal", answers({0, 1, 0, 0x0D, 0x0A}), kFails, kFine},
                    Fault{"WrongEcho", answers({1, 0, 0, 0x0D, 0x0A}), kFails, kFine},
                    Fault{"TruncatedReadsAsZeros", answers({0}), kFine, kFine},
                    Fault{"Oversized", answers(sim::Bytes(200)), kFine, kFine},
                    Fault{"ReadInterrupted", fails({sim::Call::read, EINTR, 3}), kFine, kFine},
                    Fault{"WriteInterrupted", fails({sim::Call::write, EINTR, 3}), kFine, kFine},
                    Fault{"WriteError", fails({sim::Call::write, EIO, 3}), kFails, kFails},
                    Fault{"HangUp", hang_up, kFails, kFails}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
