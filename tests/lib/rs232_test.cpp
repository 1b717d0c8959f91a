// tests/lib/rs232_test.cpp - test: opening, reading, writing and closing a serial device.
// Uses lib/rs232.h on a simulated module's port; failures come from the serial shim.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <termios.h>

#include <cerrno>
#include <thread>
#include <tuple>

namespace {

std::string last_message;  // of the serial layer

struct Rs232 : testing::Test {
    ~Rs232() override { EXPECT_EQ(sim::shim_open_descriptors(), 0); }

    static int open_or_fail(int rate_bps = 9600, const char* mode = "8N1") {
        const int fd = RS232_OpenComport(comports[kPort], rate_bps, mode);
        EXPECT_GT(fd, 2) << rate_bps << mode;
        return fd;
    }
    int raised_lines() { return module_.lines().dtr + module_.lines().rts; }

    Module module_;
};

TEST_F(Rs232, FailedOpenLeavesNothingBehindAndSignalsFailNone) {
    using enum sim::Call;
    const std::tuple<int, const char*, int, std::string, std::vector<sim::CallFault>> rows[] = {
        {14400, "8N1", RS232_REJECTED, "invalid baudrate", {}},
        {9600, "8N", RS232_REJECTED, "invalid mode", {}},
        {9600, "9N1", RS232_REJECTED, "invalid number of data-bits", {}},
        {9600, "8X1", RS232_REJECTED, "invalid parity", {}},
        {9600, "8N3", RS232_REJECTED, "invalid number of stop bits", {}},
        {9600, "8N1", RS232_FAILED, "unable to open comport", {{open, EACCES}}},
        {9600, "8N1", RS232_FAILED, "Another process has locked the comport", {{flock, EAGAIN}}},
        {9600, "8N1", RS232_FAILED, "unable to read portsettings", {{tcgetattr, EIO}}},
        {9600, "8N1", RS232_FAILED, "unable to adjust portsettings", {{tcsetattr, EIO}}},
        {9600, "8N1", RS232_FAILED, "unable to get portstatus", {{ioctl, EIO}}},
        {9600, "8N1", RS232_FAILED, "unable to set portstatus", {{ioctl, EIO, 1, 1}}}};
    for (const auto& [rate_bps, mode, result, message, faults] : rows) {
        std::ranges::for_each(faults, sim::shim_fail);
        EXPECT_EQ(RS232_OpenComport(comports[kPort], rate_bps, mode), result);
        EXPECT_EQ(last_message, "RS232_OpenComport: " + message);
        EXPECT_EQ(sim::shim_open_descriptors() + raised_lines(), 0) << message;
        for (const sim::Call call : {open, flock, tcgetattr, tcsetattr, ioctl}) {
            sim::shim_fail({call, EINTR, 2});
        }
        RS232_CloseComport(open_or_fail());
    }
}

TEST_F(Rs232, RateAndModeReachTheTerminalAndStayThoughAnotherPortOpens) {
    const int fd = open_or_fail(4000000, "7e2");
    const OpenModule other(kPort + 1);
    EXPECT_EQ(RS232_SetRecvBlock(fd, 0), RS232_OK);
    const std::tuple<int, tcflag_t, tcflag_t, speed_t> rows[] = {
        {fd, CS7 | PARENB | CSTOPB, INPCK, B4000000}, {other.node->fd, CS8, IGNPAR, B9600}};
    for (const auto& [port, framing, input, speed] : rows) {
        termios found{};
        EXPECT_EQ(tcgetattr(port, &found), 0);
        EXPECT_EQ(found.c_cflag & (CSIZE | PARENB | PARODD | CSTOPB), framing);
        EXPECT_EQ(found.c_iflag | found.c_oflag | found.c_lflag, input);
        EXPECT_EQ(cfgetospeed(&found), speed);
        EXPECT_EQ(found.c_cc[VMIN] | found.c_cc[VTIME], 0);
    }
    EXPECT_EQ(raised_lines(), 2);
    RS232_CloseComport(fd);
}

TEST_F(Rs232, TwoReadersOfASilentPortDoNotWaitForEachOther) {
    const int fd = open_or_fail();
    {
        const auto read_often = [&] {
            unsigned char byte = 0;
            for (int i = 0; i < 100'000; ++i) {
                EXPECT_EQ(RS232_PollComport(fd, &byte, 1), 0);
            }
        };
        const std::jthread first(read_often);
        const std::jthread second(read_often);
    }
    RS232_CloseComport(fd);
}

TEST_F(Rs232, DeafModuleBlocksNeitherWriteNorCloseAndLinesGoLowThoughTheyCannotBeRead) {
    module_.set_fault(sim::Fault::deaf);
    const int fd = open_or_fail();
    const sim::Bytes command(74, 0x55);
    auto start = Clock::now();
    for (int writes = 0; RS232_SendBuf(fd, command.data(), 74) != RS232_FAILED; ++writes) {
        ASSERT_LT(writes, 10000);
        start = Clock::now();
    }
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(100));  // a busy one makes room
    sim::shim_fail({sim::Call::ioctl, EIO, 2});  // what is unsent, and the lines
    RS232_CloseComport(fd);
    EXPECT_LT(Clock::now() - start, kLimit);
    EXPECT_EQ(last_message, "RS232_CloseComport: unable to get portstatus");
    EXPECT_EQ(raised_lines(), 0);
}

TEST_F(Rs232, CloseGivesOutputTimeToLeaveButNotForEver) {
    using std::chrono::milliseconds;
    for (const int unsent_for_ms : {50, 60'000}) {
        const int fd = open_or_fail();
        sim::shim_unsent(1);
        const auto start = Clock::now();
        const std::jthread line([&](const std::stop_token& stop) {
            while (!stop.stop_requested() && Clock::now() - start < milliseconds(unsent_for_ms)) {
                std::this_thread::sleep_for(milliseconds(1));
            }
            sim::shim_unsent(-1);
        });
        RS232_CloseComport(fd);
        EXPECT_GE(Clock::now() - start, milliseconds(std::min(unsent_for_ms, 500)));
        EXPECT_LT(Clock::now() - start, kLimit);
    }
}

}  // namespace

// Takes the place of the product's hook, which discards the messages.
void showDebugMsg(int /*line*/, const char* function, const char* message) {
    last_message = std::string(function) + ": " + message;
}
