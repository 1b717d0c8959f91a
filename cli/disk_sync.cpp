// cli/disk_sync.cpp - command: puts captures on the disk while they are written.
// Uses trace/capture.h.
// Thread: main, and the one that waits for the disk, as the header says.
// SPDX-License-Identifier: MIT
#include "cli/disk_sync.h"

#include "cli/interrupt.h"

#include <cerrno>
#include <chrono>
#include <cstring>

namespace cli {

namespace {

constexpr std::chrono::seconds kPeriod{1};

}  // namespace

bool disk_has(const CaptureFile& file) {
    const bool is_synced = trace::capture_sync(file.capture.get()) == TAVU_SUCCESS;
    if (!is_synced) {
        complain("%s: %s; the disk may not have all of it", file.path.c_str(),
                 std::strerror(errno));
    }
    return is_synced;
}

DiskSync::DiskSync(const std::vector<CaptureFile>& files) : files_(files) {
    if (!files_.empty()) {
        thread_ = std::thread([this] { run(); });
    }
}

DiskSync::~DiskSync() {
    if (thread_.joinable()) {
        {
            const std::lock_guard lock(mutex_);
            is_ended_ = true;
        }
        ended_.notify_one();
        thread_.join();
    }
}

void DiskSync::run() {
    std::unique_lock lock(mutex_);
    while (!ended_.wait_for(lock, kPeriod, [this] { return is_ended_; }) && !has_failed_) {
        lock.unlock();
        for (const CaptureFile& file : files_) {
            if (!disk_has(file)) {
                has_failed_ = true;
            }
        }
        lock.lock();
    }
}

}  // namespace cli
