// gui/monitor/recorder.cpp - user interface: records frames to a file on a thread of its own.
// Uses trace/capture.h. The thread shares its half of the recorder with the main thread, so that one
// which the disk holds can be left behind.
// Thread: main, and the recorder's own, which alone touches the file.
// SPDX-License-Identifier: MIT
#include "gui/monitor/recorder.h"

#include "lib/lib_tavu_2.h"

#include <signal.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// So that a power cut takes about a second.
constexpr auto kSyncPeriod = 1s;
constexpr std::size_t kMostSpare = 8;  // emptied blocks that are kept for the next frames

struct Block {
    std::size_t count = 0;
    std::array<trace::Record, 512> records;

    [[nodiscard]] bool is_full() const { return count == records.size(); }
};
using BlockPointer = std::unique_ptr<Block>;

// Blocks in their order. Has its memory from the start: where frames are taken nothing may throw.
class BlockQueue {
  public:
    explicit BlockQueue(std::size_t most) : places_(most) {}

    [[nodiscard]] bool is_empty() const { return count_ == 0; }
    void push(BlockPointer block) {
        places_[(first_ + count_++) % places_.size()] = std::move(block);
    }
    BlockPointer pop() {
        BlockPointer block = std::move(places_[first_]);
        first_ = (first_ + 1) % places_.size();
        --count_;
        return block;
    }

  private:
    std::vector<BlockPointer> places_;
    std::size_t first_ = 0;
    std::size_t count_ = 0;
};

// What both threads see, under the mutex but for the settings.
struct Shared {
    explicit Shared(const RecorderSettings& wanted)
        : settings(wanted),
          most_blocks(std::max<std::size_t>(wanted.most_waiting_bytes / sizeof(Block), 1)),
          waiting(most_blocks) {
        spare.reserve(kMostSpare);
    }

    const RecorderSettings settings;
    const std::size_t most_blocks;
    std::mutex mutex;
    std::condition_variable is_work;
    std::condition_variable is_over;
    BlockQueue waiting;
    std::vector<BlockPointer> spare;
    std::uint64_t waiting_frames = 0;  // in `waiting` and in the writer's hands
    std::size_t blocks = 0;            // the same in blocks
    bool is_stopped = false;
    bool is_abandoned = false;
    RecorderState state;  // without what the main thread counts
};
using SharedPointer = std::shared_ptr<Shared>;

// ---- The recorder's thread ----

class Writer {
  public:
    explicit Writer(SharedPointer shared) : shared_(std::move(shared)) {}
    void run();

  private:
    bool open();
    bool next_block(BlockPointer* block);
    void write(BlockPointer block);
    void sync_when_due();
    void sync();
    void close();
    void tell_over(RecorderPhase phase, int error);

    SharedPointer shared_;
    trace::CapturePointer capture_;
    Clock::time_point next_sync_ = Clock::now();
    bool is_unsynced_ = true;
};

// A pipe whose reader goes and a file that reaches its size limit would end the program; blocked,
// both are errors of the write.
void block_signals_of_writes() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    sigaddset(&signals, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void Writer::run() {
    block_signals_of_writes();
    if (!open()) {
        return;
    }
    for (BlockPointer block; next_block(&block);) {
        if (block != nullptr) {
            write(std::move(block));
        }
        sync_when_due();
    }
    close();
}

bool Writer::open() {
    const RecorderSettings& settings = shared_->settings;
    trace::CaptureSettings capture;
    capture.format = settings.format;
    capture_ = trace::capture_open(settings.path.c_str(), capture);
    if (capture_ == nullptr) {
        tell_over(RecorderPhase::kFailed, errno);
        return false;
    }
    const std::lock_guard lock(shared_->mutex);
    shared_->state.phase =
        shared_->is_stopped ? RecorderPhase::kFinishing : RecorderPhase::kRecording;
    return true;
}

// The next one to be written, null when none came for a while. False: this is the end.
bool Writer::next_block(BlockPointer* block) {
    std::unique_lock lock(shared_->mutex);
    shared_->is_work.wait_until(lock, next_sync_, [this] {
        return !shared_->waiting.is_empty() || shared_->is_stopped || shared_->is_abandoned;
    });
    *block = nullptr;
    if (shared_->is_abandoned || (shared_->waiting.is_empty() && shared_->is_stopped)) {
        return false;
    }
    if (!shared_->waiting.is_empty()) {
        *block = shared_->waiting.pop();
    }
    return true;
}

void Writer::write(BlockPointer block) {
    const std::size_t count = block->count;
    const bool is_whole =
        trace::capture_write(capture_.get(), std::span(block->records).first(count)) ==
        TAVU_SUCCESS;
    const trace::CaptureState capture = trace::capture_state(capture_.get());
    is_unsynced_ = true;
    block->count = 0;
    const std::lock_guard lock(shared_->mutex);
    RecorderState& state = shared_->state;
    state.written = capture.records;
    state.bytes = capture.bytes;
    state.lost = capture.lost;
    state.error = is_whole ? 0 : capture.error;
    state.last_error = is_whole ? state.last_error : capture.error;
    shared_->waiting_frames -= count;
    --shared_->blocks;
    if (shared_->spare.size() < kMostSpare) {
        shared_->spare.push_back(std::move(block));
    }
}

void Writer::sync_when_due() {
    if (Clock::now() < next_sync_) {
        return;
    }
    sync();
    struct statvfs disk {};
    const bool is_known = statvfs(shared_->settings.path.c_str(), &disk) == 0;
    next_sync_ = Clock::now() + kSyncPeriod;
    const std::lock_guard lock(shared_->mutex);
    shared_->state.free_bytes =
        is_known ? static_cast<std::int64_t>(disk.f_bavail * disk.f_frsize) : -1;
}

void Writer::sync() {
    if (is_unsynced_ && trace::capture_sync(capture_.get()) != TAVU_SUCCESS) {
        const int reason = errno;
        const std::lock_guard lock(shared_->mutex);
        shared_->state.last_error = reason;
    }
    is_unsynced_ = false;
}

void Writer::close() {
    sync();
    const bool is_closed = trace::capture_close(capture_.release()) == TAVU_SUCCESS;
    tell_over(RecorderPhase::kEnded, is_closed ? 0 : errno);
}

void Writer::tell_over(RecorderPhase phase, int error) {
    const std::lock_guard lock(shared_->mutex);
    RecorderState& state = shared_->state;
    state.phase = phase;
    state.error = error;
    state.last_error = error == 0 ? state.last_error : error;
    shared_->is_over.notify_all();
}

bool is_over(const RecorderState& state) {
    return state.phase == RecorderPhase::kEnded || state.phase == RecorderPhase::kFailed;
}

}  // namespace

// ---- The main thread ----

struct Recorder {
    SharedPointer shared;
    std::thread thread;
    BlockPointer block;  // being filled; null when there was no room for one
    std::uint64_t taken = 0;
    std::uint64_t dropped = 0;      // found no room
    bool is_too_slow = false;       // as too many waited
    bool is_out_of_memory = false;  // as there was no memory for a block
    bool is_stopped = false;
};

namespace {

// Hands over the block, if there is something in it, and takes another, if one more may wait.
void change_block(Recorder* recorder) {
    Shared& shared = *recorder->shared;
    {
        const std::lock_guard lock(shared.mutex);
        if (recorder->block != nullptr && recorder->block->count > 0) {
            shared.waiting_frames += recorder->block->count;
            ++shared.blocks;
            shared.waiting.push(std::move(recorder->block));
            shared.is_work.notify_one();
        }
        if (recorder->block == nullptr && !shared.spare.empty() &&
            shared.blocks < shared.most_blocks) {
            recorder->block = std::move(shared.spare.back());
            shared.spare.pop_back();
        }
        if (recorder->block != nullptr) {
            return;
        }
        if (shared.blocks >= shared.most_blocks) {
            recorder->is_too_slow = true;
            return;
        }
    }
    recorder->block.reset(new (std::nothrow) Block);
    recorder->is_out_of_memory = recorder->is_out_of_memory || recorder->block == nullptr;
}

// Whether no block waits. While one does, another that is not full would gain nothing and take the
// memory of a full one.
bool is_idle(Shared& shared) {
    const std::lock_guard lock(shared.mutex);
    return shared.waiting.is_empty();
}

}  // namespace

void RecorderAbandon::operator()(Recorder* recorder) const {
    {
        const std::lock_guard lock(recorder->shared->mutex);
        recorder->shared->is_abandoned = true;
        recorder->shared->is_work.notify_one();
    }
    if (recorder_wait(recorder, 0)) {
        recorder->thread.join();
    } else {
        recorder->thread.detach();
    }
    delete recorder;
}

RecorderPointer recorder_start(const RecorderSettings& settings) {
    try {
        auto recorder = std::make_unique<Recorder>();
        recorder->shared = std::make_shared<Shared>(settings);
        recorder->thread = std::thread([shared = recorder->shared] { Writer(shared).run(); });
        return RecorderPointer(recorder.release());
    } catch (const std::system_error&) {  // no thread to be had
        return nullptr;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void recorder_add(Recorder* recorder, const trace::Record& record) {
    if (recorder->is_stopped) {
        return;
    }
    ++recorder->taken;
    if (recorder->block == nullptr || recorder->block->is_full()) {
        change_block(recorder);
    }
    if (recorder->block == nullptr) {
        ++recorder->dropped;
        return;
    }
    Block& block = *recorder->block;
    block.records[block.count++] = record;
}

void recorder_flush(Recorder* recorder) {
    if (recorder->block != nullptr && recorder->block->count > 0 && is_idle(*recorder->shared)) {
        change_block(recorder);
    }
}

void recorder_stop(Recorder* recorder) {
    change_block(recorder);
    recorder->block = nullptr;
    recorder->is_stopped = true;
    const std::lock_guard lock(recorder->shared->mutex);
    recorder->shared->is_stopped = true;
    if (recorder->shared->state.phase == RecorderPhase::kRecording ||
        recorder->shared->state.phase == RecorderPhase::kOpening) {
        recorder->shared->state.phase = RecorderPhase::kFinishing;
    }
    recorder->shared->is_work.notify_one();
}

bool recorder_wait(Recorder* recorder, int most_ms) {
    std::unique_lock lock(recorder->shared->mutex);
    return recorder->shared->is_over.wait_for(lock, std::chrono::milliseconds(most_ms), [recorder] {
        return is_over(recorder->shared->state);
    });
}

RecorderState recorder_state(const Recorder* recorder) {
    RecorderState state;
    std::uint64_t waiting = 0;
    {
        const std::lock_guard lock(recorder->shared->mutex);
        state = recorder->shared->state;
        waiting = recorder->shared->waiting_frames;
    }
    state.taken = recorder->taken;
    state.waiting = waiting + (recorder->block == nullptr ? 0 : recorder->block->count);
    state.lost += recorder->dropped;
    state.is_too_slow = recorder->dropped > 0 && recorder->is_too_slow;
    state.is_out_of_memory = recorder->dropped > 0 && recorder->is_out_of_memory;
    return state;
}
