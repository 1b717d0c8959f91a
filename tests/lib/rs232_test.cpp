// tests/lib/rs232_test.cpp - test: opening, reading, writing and closing a serial device.
// Uses lib/rs232.h on a simulated module's port; failures come from the serial shim.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <termios.h>

#include <cerrno>
#include <thread>

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

TEST_F(Rs232, FailedOpenSaysWhyAndLeavesNothingBehind) {
    const auto expect = [&](int result, const std::string& message, int rate_bps = 9600,
                            const char* mode = "8N1") {
        EXPECT_EQ(RS232_OpenComport(comports[kPort], rate_bps, mode), result);
        EXPECT_EQ(last_message, "RS232_OpenComport: " + message);
        EXPECT_EQ(sim::shim_open_descriptors(), 0) << message;
        EXPECT_EQ(raised_lines(), 0) << message;
        RS232_CloseComport(open_or_fail(9600, "8N1"));
    };
    expect(RS232_REJECTED, "invalid baudrate", 14400);
    expect(RS232_REJECTED, "invalid mode", 9600, "8N");
    expect(RS232_REJECTED, "invalid number of data-bits", 9600, "9N1");
    expect(RS232_REJECTED, "invalid parity", 9600, "8X1");
    expect(RS232_REJECTED, "invalid number of stop bits", 9600, "8N3");
    const std::pair<sim::CallFault, std::string> faults[] = {
        {{sim::Call::open, EACCES}, "unable to open comport"},
        {{sim::Call::flock, EAGAIN}, "Another process has locked the comport"},
        {{sim::Call::tcgetattr, EIO}, "unable to read portsettings"},
        {{sim::Call::tcsetattr, EIO}, "unable to adjust portsettings"},
        {{sim::Call::ioctl, EIO}, "unable to get portstatus"},
        {{.call = sim::Call::ioctl, .error = EIO, .skip = 1}, "unable to set portstatus"}};
    for (const auto& [fault, message] : faults) {
        sim::shim_fail(fault);
        expect(RS232_FAILED, message);
    }
}

TEST_F(Rs232, RateAndModeReachTheTerminalAndStayThoughAnotherPortOpens) {
    struct Row {
        const char* mode;
        int rate_bps;
        speed_t speed;
        tcflag_t framing, input;
    };
    const Row rows[] = {{"8N1", 9600, B9600, CS8, IGNPAR},
                        {"7e2", 4000000, B4000000, CS7 | PARENB | CSTOPB, INPCK},
                        {"5O1", 50, B50, CS5 | PARENB | PARODD, INPCK}};
    for (const auto& [mode, rate_bps, speed, framing, input] : rows) {
        const int fd = open_or_fail(rate_bps, mode);
        RS232_CloseComport(RS232_OpenComport(comports[kPort + 1], 9600, "8N1"));
        EXPECT_EQ(RS232_SetRecvBlock(fd, 0), RS232_OK);
        termios found{};
        EXPECT_EQ(tcgetattr(fd, &found), 0);
        EXPECT_EQ(found.c_cflag & (CSIZE | PARENB | PARODD | CSTOPB | CLOCAL), framing | CLOCAL);
        EXPECT_EQ(found.c_iflag | found.c_oflag | found.c_lflag, input);
        EXPECT_EQ(cfgetospeed(&found), speed);
        EXPECT_EQ(found.c_cc[VMIN] | found.c_cc[VTIME], 0);
        EXPECT_EQ(raised_lines(), 2);
        RS232_CloseComport(fd);
    }
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
    for (const int unsent_for_ms : {50, 60'000}) {
        const int fd = open_or_fail(9600, "8N1");
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
