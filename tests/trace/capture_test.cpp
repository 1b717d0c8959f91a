// tests/trace/capture_test.cpp - test: capture files byte by byte, full disks, a crash, reading.
// SPDX-License-Identifier: MIT
#include "trace/capture.h"

#include "tests/trace/support.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <vector>

using namespace trace;

namespace {

std::vector<Record> some_records() {
    Record classic{.time_us = 1436509052249713,
                   .is_sent = true,
                   .frame = Frame{.dlc = 2, .id = 0x123, .data = {0xDE, 0xAD}}};
    Record fd = classic;
    fd.is_sent = false;
    fd.frame = Frame{.CAN_port = TAVU_CAN_2,
                     .id_type = TAVU_EID,
                     .dlc = 9,
                     .brs = TAVU_BRS_ON,
                     .esi = 1,
                     .fdf = TAVU_FDF_ON,
                     .id = 0x18FEF100,
                     .data = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}};
    Record remote = classic;
    remote.frame = Frame{.id_type = TAVU_EID, .rtr = TAVU_EN_RTR, .dlc = 11, .id = 0x123};
    Record error = fd;
    error.frame = Frame{.id_type = TAVU_EID,
                        .dlc = 8,
                        .msg_type = TAVU_BUSERR_TYPE,
                        .id = 0x204,
                        .data = {0, 8, 0, 0, 0, 0, 0x80, 0x7F}};
    return {classic, fd, remote, error};
}

// Writes the records and gives what the file has then.
std::string content_of(const CaptureSettings& settings, std::span<const Record> records) {
    const TemporaryFile file("what was there before");
    CapturePointer capture = capture_open(file.path(), settings);
    EXPECT_EQ(capture_write(capture.get(), records), TAVU_SUCCESS);
    const std::string content = file.content();  // at once, not only when it is closed
    EXPECT_EQ(capture_sync(capture.get()), TAVU_SUCCESS);
    EXPECT_EQ(capture_state(capture.get()).records, records.size());
    EXPECT_EQ(capture_state(capture.get()).bytes, content.size());
    EXPECT_EQ(capture_close(capture.release()), TAVU_SUCCESS);
    return content;
}

std::string bytes(const std::string& hex) {
    std::istringstream in(hex);
    in >> std::hex;
    const std::vector<unsigned> values(std::istream_iterator<unsigned>(in), {});
    return {values.begin(), values.end()};
}

// Reads the whole file. Result: how many records; a line that is broken fails the test.
std::uint64_t records_of(const char* path) {
    const LogReaderPointer reader = log_open(path, {});
    Record record;
    LogFault fault;
    std::uint64_t count = 0;
    for (LogResult result = kLogRecord; result != kLogEnd; ++count) {
        result = log_read(reader.get(), &record, &fault);
        if (result != kLogRecord && result != kLogEnd) {
            ADD_FAILURE() << "line " << fault.line << ": " << fault.error.reason;
            return count;
        }
    }
    return count - 1;
}

// As long as it lives, no file grows beyond `most` bytes: a write stops short there.
class SizeLimit {
  public:
    explicit SizeLimit(rlim_t most) {
        signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{most, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~SizeLimit() { setrlimit(RLIMIT_FSIZE, &before_); }
    SizeLimit(const SizeLimit&) = delete;
    SizeLimit& operator=(const SizeLimit&) = delete;

  private:
    rlimit before_{};
};

}  // namespace

TEST(Capture, ALogHasALineForEachRecord) {
    EXPECT_EQ(content_of({.interfaces = {.name = {{{"bench"}, {"car"}}}}}, some_records()),
              "(1436509052.249713) bench 123#DEAD T\n"
              "(1436509052.249713) car 18FEF100##30102030405060708090A0B0C R\n"
              "(1436509052.249713) bench 00000123#R8_B T\n"
              "(1436509052.249713) bench 20000204#000800000000807F R\n");
}

TEST(Capture, PcapHasTheFramesOfTheKernelWithABigEndianIdentifier) {
    const std::string time = "7C 63 9F 55 71 CF 03 00 ";  // 1436509052, 249713
    const std::string zeros13 = "0 0 0 0 0 0 0 0 0 0 0 0 0 ";
    const std::string expected =
        // Written in this machine's order, version 2.4, 72 bytes at most, link type 227.
        "D4 C3 B2 A1 02 00 04 00 0 0 0 0 0 0 0 0 48 00 00 00 E3 00 00 00 " + time +
        "10 0 0 0 10 0 0 0  00 00 01 23 02 00 00 00 DE AD 0 0 0 0 0 0 " + time +
        "48 0 0 0 48 0 0 0  98 FE F1 00 0C 07 00 00 1 2 3 4 5 6 7 8 9 A B C " + zeros13 + zeros13 +
        zeros13 + zeros13 + time + "10 0 0 0 10 0 0 0  C0 00 01 23 08 00 00 0B 0 0 0 0 0 0 0 0 " +
        time + "10 0 0 0 10 0 0 0  20 00 02 04 08 00 00 00 0 8 0 0 0 0 80 7F";
    EXPECT_EQ(content_of({.format = CaptureFormat::kPcap}, some_records()), bytes(expected));
}

TEST(Capture, AFullDiskIsToldAtOnce) {
    const std::vector<Record> records = some_records();
    CapturePointer capture = capture_open("/dev/full", {});
    ASSERT_NE(capture, nullptr);
    EXPECT_EQ(capture_write(capture.get(), records), TAVU_FAILURE);
    EXPECT_EQ(capture_state(capture.get()).error, ENOSPC);
    EXPECT_EQ(capture_state(capture.get()).lost, 4);
    errno = 0;
    EXPECT_EQ(capture_open("/dev/full", {.format = CaptureFormat::kPcap}), nullptr);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(capture_open("/nowhere/capture.log", {}), nullptr);
    EXPECT_EQ(errno, ENOENT);
}

TEST(Capture, AFileThatFilledUpEndsWithAWholeRecordAndGoesOnWhenThereIsRoom) {
    Dice dice;
    std::vector<Record> records(500);
    for (Record& record : records) {
        record = dice.record();
        record.time_us >>= 11;  // before 2106, as pcap wants it
    }
    for (const CaptureFormat format : {CaptureFormat::kLog, CaptureFormat::kPcap}) {
        const std::string whole = content_of({.format = format}, records);
        const TemporaryFile file;
        const CapturePointer capture = capture_open(file.path(), {.format = format});
        const auto rest = [&] {
            return std::span<const Record>(records).subspan(capture_state(capture.get()).records);
        };
        {
            const SizeLimit limit(10001);
            ASSERT_EQ(capture_write(capture.get(), records), TAVU_FAILURE);
            EXPECT_EQ(capture_state(capture.get()).lost, rest().size());
            ASSERT_EQ(capture_write(capture.get(), rest()), TAVU_FAILURE);
        }
        const CaptureState state = capture_state(capture.get());
        EXPECT_EQ(state.error, EFBIG);
        EXPECT_EQ(state.bytes, std::filesystem::file_size(file.path()));
        EXPECT_GT(state.bytes, 10001 - kTextMost);
        EXPECT_EQ(capture_write(capture.get(), rest()), TAVU_SUCCESS);
        EXPECT_EQ(file.content(), whole);
    }
}

TEST(Capture, AnInvalidRecordIsLeftOutAndTold) {
    std::vector<Record> records = some_records();
    records[1].frame.id = 0x20000000;
    records[2].time_us = std::int64_t{1} << 53;  // in 2255, which pcap cannot tell
    const TemporaryFile file;
    CapturePointer capture = capture_open(file.path(), {});
    EXPECT_EQ(capture_write(capture.get(), records), TAVU_FAILURE);
    EXPECT_EQ(capture_state(capture.get()).lost, 1);
    EXPECT_EQ(records_of(file.path()), 3);
    capture = capture_open(file.path(), {.format = CaptureFormat::kPcap});
    EXPECT_EQ(capture_write(capture.get(), records), TAVU_FAILURE);
    EXPECT_EQ(capture_state(capture.get()).lost, 2);
    EXPECT_EQ(capture_state(capture.get()).error, EINVAL);
}

TEST(Capture, AProgramThatIsKilledLosesNothingThatItWrote) {
    const TemporaryFile file;
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    const pid_t child = fork();
    if (child == 0) {
        Dice dice;
        const CapturePointer capture = capture_open(file.path(), {});
        for (std::uint64_t count = 1;; ++count) {
            const Record record = dice.record();
            if (capture_write(capture.get(), {&record, 1}) != TAVU_SUCCESS ||
                write(ends[1], &count, sizeof(count)) < 0) {
                _exit(1);
            }
        }
    }
    std::uint64_t told = 0;
    while (told < 5000 && read(ends[0], &told, sizeof(told)) == sizeof(told)) {
    }
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status));
    close(ends[1]);
    while (read(ends[0], &told, sizeof(told)) == sizeof(told)) {
    }
    close(ends[0]);
    EXPECT_GE(records_of(file.path()), told);
    EXPECT_GE(told, 5000);
}

TEST(LogReader, ABrokenLineIsToldAndTheNextOneRead) {
    const TemporaryFile file("(1.5) can0 123#00\r\n\n  \n(2.5) can0 123#0\n" +
                             std::string(65600, 'x') + "\n(3.5) can1 123#R");
    const LogReaderPointer reader = log_open(file.path(), {});
    Record record;
    LogFault fault;
    ASSERT_EQ(log_read(reader.get(), &record, &fault), kLogRecord);
    EXPECT_EQ(record.time_us, 1500000);
    ASSERT_EQ(log_read(reader.get(), &record, &fault), kLogBroken);
    EXPECT_EQ(fault.line, 4);
    EXPECT_EQ(fault.error.offset, 16);
    ASSERT_EQ(log_read(reader.get(), &record, &fault), kLogBroken);
    EXPECT_EQ(fault.line, 5);
    EXPECT_STREQ(fault.error.reason, "the line is too long");
    ASSERT_EQ(log_read(reader.get(), &record, &fault), kLogRecord);
    EXPECT_EQ(record.frame.CAN_port, TAVU_CAN_2);
    EXPECT_EQ(log_line(reader.get()), 6);
    EXPECT_EQ(log_read(reader.get(), &record, &fault), kLogEnd);
    EXPECT_EQ(log_read(reader.get(), &record, &fault), kLogEnd);
    const LogReaderPointer folder = log_open("/", {});
    EXPECT_EQ(log_read(folder.get(), &record, &fault), kLogFailed);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(log_open("/nowhere", {}), nullptr);
}
