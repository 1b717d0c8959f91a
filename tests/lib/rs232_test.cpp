// tests/lib/rs232_test.cpp - test: opening, reading, writing and closing a serial device.
// Uses lib/rs232.h on a simulated module's port; failures come from the serial shim.
// SPDX-License-Identifier: MIT
#include "lib/rs232.h"

#include "tests/lib/support.h"

#include <fcntl.h>
#include <termios.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <thread>

namespace {

std::string last_message;  // of the serial layer

auto descriptor_count() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

class Rs232 : public testing::Test {
  protected:
    ~Rs232() override { EXPECT_EQ(sim::shim_open_descriptors(), 0); }

    static int open_or_fail(const sim::StationOptions& options = {}) {
        const int fd = RS232_OpenComport(options.device.c_str(), 9600, "8N1");
        EXPECT_GT(fd, 2);
        return fd;
    }
    static termios settings(int fd) {
        termios settings{};
        EXPECT_EQ(tcgetattr(fd, &settings), 0);
        return settings;
    }

    sim::Station station_;
    const char* device_ = comports[kPort];
};

TEST_F(Rs232, RejectedParametersTouchNothing) {
    const struct {
        int rate_bps;
        const char* mode;
        const char* message;
    } rows[] = {{14400, "8N1", "invalid baudrate"},
                {9600, "8N", "invalid mode"},
                {9600, "8N11", "invalid mode"},
                {9600, "9N1", "invalid number of data-bits"},
                {9600, "4N1", "invalid number of data-bits"},
                {9600, "8X1", "invalid parity"},
                {9600, "8N3", "invalid number of stop bits"}};
    for (const auto& row : rows) {
        EXPECT_EQ(RS232_OpenComport(device_, row.rate_bps, row.mode), RS232_REJECTED)
            << row.message;
        EXPECT_EQ(last_message, std::string("RS232_OpenComport: ") + row.message);
        EXPECT_FALSE(station_.lines().dtr);
    }
}

TEST_F(Rs232, RateAndModeReachTheTerminal) {
    constexpr tcflag_t kFraming = CSIZE | PARENB | PARODD | CSTOPB;
    const struct {
        int rate_bps;
        const char* mode;
        speed_t speed;
        tcflag_t framing;
        tcflag_t input;
    } rows[] = {{9600, "8N1", B9600, CS8, IGNPAR},
                {50, "7e2", B50, CS7 | PARENB | CSTOPB, INPCK},
                {134, "5O1", B134, CS5 | PARENB | PARODD, INPCK},
                {4000000, "6n2", B4000000, CS6 | CSTOPB, IGNPAR}};
    for (const auto& row : rows) {
        const int fd = RS232_OpenComport(device_, row.rate_bps, row.mode);
        ASSERT_GT(fd, 2) << row.mode;
        const termios found = settings(fd);
        EXPECT_EQ(found.c_cflag & kFraming, row.framing) << row.mode;
        EXPECT_EQ(found.c_iflag, row.input) << row.mode;
        EXPECT_EQ(cfgetospeed(&found), row.speed);
        EXPECT_EQ(cfgetispeed(&found), row.speed);
        EXPECT_EQ(found.c_oflag | found.c_lflag | found.c_cc[VMIN] | found.c_cc[VTIME], 0U);
        EXPECT_TRUE(station_.lines().dtr && station_.lines().rts);
        RS232_CloseComport(fd);
        EXPECT_FALSE(station_.lines().dtr || station_.lines().rts);
    }
}

TEST_F(Rs232, FailedOpenLeavesNothingBehind) {
    const struct {
        sim::CallFault fault;
        const char* message;
    } rows[] = {{{sim::Call::open, EACCES}, "unable to open comport"},
                {{sim::Call::flock, EWOULDBLOCK}, "Another process has locked the comport"},
                {{sim::Call::tcgetattr, EIO}, "unable to read portsettings"},
                {{sim::Call::tcsetattr, EIO}, "unable to adjust portsettings"},
                {{sim::Call::ioctl, EIO}, "unable to get portstatus"},
                {{sim::Call::ioctl, EIO, 1, 1}, "unable to set portstatus"}};
    for (const auto& row : rows) {
        sim::shim_fail(row.fault);
        EXPECT_EQ(RS232_OpenComport(device_, 9600, "8N1"), RS232_FAILED) << row.message;
        EXPECT_EQ(last_message, std::string("RS232_OpenComport: ") + row.message);
        EXPECT_EQ(sim::shim_open_descriptors(), 0);
        RS232_CloseComport(open_or_fail());
    }
}

TEST_F(Rs232, SignalsDisturbNoCall) {
    for (const sim::Call call :
         {sim::Call::open, sim::Call::flock, sim::Call::tcgetattr, sim::Call::tcsetattr,
          sim::Call::ioctl, sim::Call::write, sim::Call::poll, sim::Call::read}) {
        sim::shim_fail({call, EINTR, 2});
    }
    const int fd = open_or_fail();
    const sim::Bytes status = hex("60 60 0D 0A");
    EXPECT_EQ(RS232_SendBuf(fd, status.data(), 4), 4);
    ASSERT_TRUE(RS232_WaitInput(fd, kLimit));
    std::array<unsigned char, 7> reply{};
    EXPECT_EQ(RS232_PollComport(fd, reply.data(), 7), 7);
    RS232_CloseComport(fd);
}

TEST_F(Rs232, SecondOpenIsRefusedAndTheFirstHolderUndisturbed) {
    const int fd = open_or_fail();
    EXPECT_EQ(RS232_OpenComport(device_, 9600, "8N1"), RS232_FAILED);
    EXPECT_EQ(last_message, "RS232_OpenComport: Another process has locked the comport");
    station_.send_to_host(hex("AA"));
    EXPECT_TRUE(RS232_WaitInput(fd, kLimit));
    EXPECT_TRUE(station_.lines().dtr);
    RS232_CloseComport(fd);
}

TEST_F(Rs232, ReadModeKeepsEachPortsOwnSettings) {
    sim::Station other({.device = comports[kPort + 1]});
    const int fd = RS232_OpenComport(device_, 115200, "7E2");
    RS232_CloseComport(open_or_fail({.device = comports[kPort + 1]}));
    const termios before = settings(fd);
    ASSERT_EQ(RS232_SetRecvBlock(fd, 1), RS232_OK);
    EXPECT_EQ(settings(fd).c_cc[VMIN], 1);
    EXPECT_EQ(settings(fd).c_cflag, before.c_cflag);

    unsigned char byte = 0;
    std::jthread sender([&] { station_.send_to_host(hex("5A")); });
    EXPECT_EQ(RS232_PollComport(fd, &byte, 1), 1);
    ASSERT_EQ(RS232_SetRecvBlock(fd, 0), RS232_OK);
    EXPECT_EQ(RS232_PollComport(fd, &byte, 1), 0);
    sim::shim_fail({sim::Call::tcsetattr, EIO});
    EXPECT_EQ(RS232_SetRecvBlock(fd, 1), RS232_FAILED);
    RS232_CloseComport(fd);
}

TEST_F(Rs232, CloseLowersTheLinesThoughTheyCannotBeRead) {
    const int fd = open_or_fail();
    sim::shim_fail({sim::Call::ioctl, EIO});
    RS232_CloseComport(fd);
    EXPECT_EQ(last_message, "RS232_CloseComport: unable to get portstatus");
    EXPECT_FALSE(station_.lines().dtr || station_.lines().rts);
}

TEST_F(Rs232, ModuleThatDrainsNothingBlocksNeitherWriteNorClose) {
    station_.set_fault(sim::Fault::deaf);
    const int fd = open_or_fail();
    const sim::Bytes command(74, 0x55);
    const auto start = Clock::now();
    int writes = 0;
    while (RS232_SendBuf(fd, command.data(), 74) != RS232_FAILED) {
        ASSERT_LT(++writes, 10000);
    }
    RS232_CloseComport(fd);
    EXPECT_LT(Clock::now() - start, kLimit);
}

TEST_F(Rs232, ThousandCyclesLeaveNoDescriptor) {
    const auto before = descriptor_count();
    for (int i = 0; i < 1000; ++i) {
        RS232_CloseComport(open_or_fail());
    }
    EXPECT_EQ(descriptor_count(), before);
}

}  // namespace

// Takes the place of the product's hook, which discards the messages.
void showDebugMsg(int line, const char* function, const char* message) {
    EXPECT_GT(line, 0);
    last_message = std::string(function) + ": " + message;
}
