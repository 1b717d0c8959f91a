// tests/gui/recorder_test.cpp - test: the recorder's files, full and stuck disks.
// Uses trace/capture.h to read what was written.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/recorder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

namespace {

using trace::CaptureFormat;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr int kGenerous_ms = 20'000;

// Number `i` of a stream in which every frame can be told from the others.
trace::Record numbered(unsigned int i) {
    trace::Record record{.time_us = 1'700'000'000'000'000 + i, .is_sent = i % 3 == 0};
    record.frame.id_type = TAVU_EID;
    record.frame.id = i;
    record.frame.dlc = 1;
    record.frame.data[0] = static_cast<unsigned char>(i);
    return record;
}

void add(Recorder* recorder, unsigned int from, unsigned int behind) {
    for (unsigned int i = from; i < behind; ++i) {
        recorder_add(recorder, numbered(i));
    }
}

RecorderState stopped(Recorder* recorder) {
    recorder_stop(recorder);
    EXPECT_TRUE(recorder_wait(recorder, kGenerous_ms));
    return recorder_state(recorder);
}

// Flushes, as the page does, until the condition holds.
bool reached(Recorder* recorder, bool (*condition)(const RecorderState&)) {
    const auto limit = std::chrono::steady_clock::now() + 20s;
    while (!condition(recorder_state(recorder)) && std::chrono::steady_clock::now() < limit) {
        recorder_flush(recorder);
        std::this_thread::sleep_for(1ms);
    }
    return condition(recorder_state(recorder));
}

// What is in a log, each record held against the one of that number. Result: how many.
std::uint64_t records_of(const fs::path& path) {
    const trace::LogReaderPointer reader = trace::log_open(path.c_str(), {});
    trace::Record record;
    trace::LogFault fault;
    std::uint64_t count = 0;
    while (trace::log_read(reader.get(), &record, &fault) == trace::kLogRecord) {
        const trace::Record wanted = numbered(record.frame.id);
        EXPECT_EQ(record.time_us, wanted.time_us);
        EXPECT_EQ(record.is_sent, wanted.is_sent);
        EXPECT_EQ(record.frame.data[0], wanted.frame.data[0]);
        ++count;
    }
    EXPECT_EQ(trace::log_read(reader.get(), &record, &fault), trace::kLogEnd);
    return count;
}

struct RecorderTest : testing::Test {
    RecorderTest() { fs::create_directory(folder); }
    ~RecorderTest() override { fs::remove_all(folder); }

    const fs::path folder = testing::TempDir() + "recorder-" + std::to_string(getpid());
    const fs::path path = folder / "run.log";
};

}  // namespace

TEST_F(RecorderTest, AllThatIsTakenIsInTheFileWhenItHasEnded) {
    constexpr unsigned int kMany = 100'001;
    std::ofstream(path) << "what was there before";
    const RecorderPointer recorder = recorder_start({.path = path});
    add(recorder.get(), 0, 1);
    EXPECT_TRUE(reached(recorder.get(), [](const auto& state) { return state.written == 1; }))
        << "a block that is not full waits";
    add(recorder.get(), 1, kMany);
    const RecorderState state = stopped(recorder.get());
    recorder_add(recorder.get(), numbered(kMany));  // too late
    EXPECT_EQ(state.phase, RecorderPhase::kEnded);
    EXPECT_EQ(state.taken, kMany);
    EXPECT_EQ(state.written, kMany);
    EXPECT_EQ(state.lost + state.waiting, 0U);
    EXPECT_EQ(state.last_error, 0);
    EXPECT_EQ(state.bytes, fs::file_size(path));
    EXPECT_GT(state.free_bytes, 0);
    EXPECT_EQ(records_of(path), kMany);

    const RecorderPointer pcap = recorder_start({.path = path, .format = CaptureFormat::kPcap});
    add(pcap.get(), 0, kMany);
    EXPECT_EQ(stopped(pcap.get()).written, kMany);
    EXPECT_EQ(fs::file_size(path), 24 + 32ULL * kMany);
}

TEST_F(RecorderTest, AFileThatCannotBeCreatedIsToldByItsReason) {
    for (const auto& [name, error] :
         {std::pair{folder, EISDIR}, {folder / "no" / "run.log", ENOENT}}) {
        const RecorderPointer recorder = recorder_start({.path = name});
        add(recorder.get(), 0, 10);
        EXPECT_TRUE(recorder_wait(recorder.get(), kGenerous_ms));
        EXPECT_EQ(stopped(recorder.get()).phase, RecorderPhase::kFailed);
        EXPECT_EQ(recorder_state(recorder.get()).error, error);
    }
}

// A limit of the file's size stands for the disk. Its signal would end the program.
TEST_F(RecorderTest, AFullDiskIsToldWhileItIsFullAndTheRecordingGoesOnWhenThereIsRoom) {
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit full{100'000, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &full);
    const RecorderPointer recorder = recorder_start({.path = path});
    add(recorder.get(), 0, 10'000);
    EXPECT_TRUE(reached(recorder.get(), [](const auto& state) { return state.waiting == 0; }));
    const RecorderState while_full = recorder_state(recorder.get());
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(while_full.error, EFBIG);
    EXPECT_GT(while_full.lost, 0U);
    EXPECT_EQ(while_full.written + while_full.lost, 10'000U);
    add(recorder.get(), 10'000, 20'000);
    EXPECT_TRUE(reached(recorder.get(), [](const auto& state) { return state.waiting == 0; }));
    const RecorderState state = stopped(recorder.get());
    EXPECT_EQ(state.error, 0);
    EXPECT_EQ(state.last_error, EFBIG);
    EXPECT_EQ(state.lost, while_full.lost);
    EXPECT_EQ(records_of(path), state.written);
    EXPECT_EQ(state.written + state.lost, 20'000U);
}

// A pipe without a reader stands for a disk that takes nothing.
TEST_F(RecorderTest, AStuckDiskHoldsNobodyUpAndWhatFindsNoRoomIsCounted) {
    constexpr unsigned int kMany = 200'000;
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    RecorderPointer recorder =
        recorder_start({.path = path, .most_waiting_bytes = std::size_t{4} << 20});
    const auto begin = std::chrono::steady_clock::now();
    add(recorder.get(), 0, kMany);
    recorder_flush(recorder.get());
    recorder_stop(recorder.get());
    EXPECT_FALSE(recorder_wait(recorder.get(), 0));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s);
    const RecorderState state = recorder_state(recorder.get());
    EXPECT_EQ(state.phase, RecorderPhase::kFinishing);
    EXPECT_TRUE(state.is_too_slow);
    EXPECT_GT(state.waiting, 10'000U);
    EXPECT_EQ(state.waiting + state.lost, kMany);

    // The disk moves again: what waited is written, no more and no less.
    std::ifstream reader(path);
    const auto lines = static_cast<std::uint64_t>(
        std::count(std::istreambuf_iterator<char>(reader), std::istreambuf_iterator<char>(), '\n'));
    EXPECT_TRUE(recorder_wait(recorder.get(), kGenerous_ms));
    EXPECT_EQ(recorder_state(recorder.get()).written, state.waiting);
    EXPECT_EQ(lines, state.waiting);
}

TEST_F(RecorderTest, GivingUpLeavesAStuckThreadBehindWhichWritesNothingMore) {
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    RecorderPointer recorder = recorder_start({.path = path});
    add(recorder.get(), 0, 10);
    recorder_flush(recorder.get());
    recorder.reset();
    std::ifstream reader(path);  // lets the thread go on
    EXPECT_EQ(reader.get(), std::ifstream::traits_type::eof());
}

TEST_F(RecorderTest, AReaderThatGoesIsAnErrorOfThePipeAndNotTheEndOfTheProgram) {
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const RecorderPointer recorder = recorder_start({.path = path});
    EXPECT_TRUE(reached(recorder.get(), [](const auto& state) {
        return state.phase == RecorderPhase::kRecording;
    }));
    close(reader);
    add(recorder.get(), 0, 10);
    EXPECT_TRUE(reached(recorder.get(), [](const auto& state) { return state.error == EPIPE; }));
    EXPECT_EQ(stopped(recorder.get()).lost, 10U);
}
