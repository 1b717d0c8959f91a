// tests/lib/rs232_test.cpp - test: opening, reading, writing and closing a serial device.
// Uses lib/rs232.h on a simulated module's port; failures come from the serial shim.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <termios.h>

#include <cerrno>

namespace {

using std::chrono::milliseconds;

std::string last_message;  // of the serial layer

struct Rs232 : testing::Test {
    ~Rs232() override { EXPECT_EQ(sim::shim_open_descriptors(), 0); }

    static int open_or_fail(int rate_bps, const char* mode) {
        const int fd = RS232_OpenComport(comports[kPort], rate_bps, mode);
        EXPECT_GT(fd, 2) << rate_bps << mode;
        return fd;
    }
    int raised_lines() { return module_.lines().dtr + module_.lines().rts; }

    Module module_;
    const Module other_{kPort + 1};
};

TEST_F(Rs232, FailedOpenLeavesNothingBehind) {
    const auto expect = [&](int result, int rate_bps, const char* mode) {
        EXPECT_EQ(RS232_OpenComport(comports[kPort], rate_bps, mode), result) << rate_bps << mode;
        EXPECT_EQ(sim::shim_open_descriptors() + raised_lines(), 0) << last_message;
        RS232_CloseComport(open_or_fail(9600, "8N1"));
    };
    expect(RS232_REJECTED, 14400, "8N1");
    for (const char* const mode : {"8N", "9N1", "8X1", "8N3"}) {
        expect(RS232_REJECTED, 9600, mode);
    }
    const sim::CallFault faults[] = {
        {sim::Call::open, EACCES},   {sim::Call::flock, EAGAIN},
        {sim::Call::tcgetattr, EIO}, {sim::Call::tcsetattr, EIO},
        {sim::Call::ioctl, EIO},     {.call = sim::Call::ioctl, .error = EIO, .skip = 1}};
    for (const sim::CallFault& fault : faults) {
        sim::shim_fail(fault);
        expect(RS232_FAILED, 9600, "8N1");
    }
    EXPECT_EQ(last_message, "RS232_OpenComport: unable to set portstatus");
}

TEST_F(Rs232, SettingsReachTheTerminalAndStayThoughAnotherPortOpens) {
    const int fd = open_or_fail(9600, "8N1");
    RS232_CloseComport(RS232_OpenComport(comports[kPort + 1], 4000000, "7e2"));
    EXPECT_EQ(RS232_SetRecvBlock(fd, 0), RS232_OK);
    termios found{};
    EXPECT_EQ(tcgetattr(fd, &found), 0);
    EXPECT_EQ(found.c_cflag & (CSIZE | PARENB | CSTOPB | CLOCAL), tcflag_t{CS8 | CLOCAL});
    EXPECT_EQ(found.c_iflag | found.c_oflag | found.c_lflag, tcflag_t{IGNPAR});
    EXPECT_EQ(cfgetospeed(&found), speed_t{B9600});
    EXPECT_EQ(found.c_cc[VMIN] | found.c_cc[VTIME], 0);
    EXPECT_EQ(raised_lines(), 2);
    RS232_CloseComport(fd);
}

TEST_F(Rs232, DeafModuleBlocksNeitherWriteNorCloseAndLinesGoLowThoughTheyCannotBeRead) {
    module_.set_fault(sim::Fault::deaf);
    const int fd = open_or_fail(9600, "8N1");
    const sim::Bytes command(74, 0x55);
    auto start = Clock::now();
    for (int writes = 0; RS232_SendBuf(fd, command.data(), 74) != RS232_FAILED; ++writes) {
        ASSERT_LT(writes, 10000);
        start = Clock::now();
    }
    EXPECT_GE(Clock::now() - start, milliseconds(100));                    // a busy one makes room
    sim::shim_fail({.call = sim::Call::ioctl, .error = EIO, .times = 2});  // unsent bytes, lines
    RS232_CloseComport(fd);
    EXPECT_LT(Clock::now() - start, kLimit);
    EXPECT_EQ(last_message, "RS232_CloseComport: unable to get portstatus");
    EXPECT_EQ(raised_lines(), 0);
}

TEST_F(Rs232, CloseGivesOutputTimeToLeaveButNotForEver) {
    const int fd = open_or_fail(9600, "8N1");
    sim::shim_unsent(1);
    const auto start = Clock::now();
    RS232_CloseComport(fd);
    EXPECT_GE(Clock::now() - start, milliseconds(500));
    EXPECT_LT(Clock::now() - start, kLimit);
    sim::shim_unsent(-1);
}

}  // namespace

// Takes the place of the product's hook, which discards the messages.
void showDebugMsg(int /*line*/, const char* function, const char* message) {
    last_message = std::string(function) + ": " + message;
}
