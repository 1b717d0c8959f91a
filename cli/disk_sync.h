// cli/disk_sync.h - command: puts captures on the disk while they are written.
// Thread: main; the one that waits for the disk is inside.
// SPDX-License-Identifier: MIT
#ifndef CLI_DISK_SYNC_H
#define CLI_DISK_SYNC_H

#include "trace/capture.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace cli {

// A file that is being written to.
struct CaptureFile {
    std::string path;
    trace::CapturePointer capture;
};

// Syncs each of the files, which it does not change, once a second from construction to destruction,
// so that a power cut costs little more than the last second. On a thread of its own: a slow disk
// may take longer for it than received frames can wait.
class DiskSync {
  public:
    explicit DiskSync(const std::vector<CaptureFile>& files);
    // Waits for the sync that runs.
    ~DiskSync();
    DiskSync(const DiskSync&) = delete;
    DiskSync& operator=(const DiskSync&) = delete;

    // The disk did not take something, which was told; no further sync is tried.
    [[nodiscard]] bool has_failed() const { return has_failed_.load(); }

  private:
    void run();

    const std::vector<CaptureFile>& files_;
    std::mutex mutex_;
    std::condition_variable ended_;
    bool is_ended_ = false;  // under mutex_
    std::atomic<bool> has_failed_{false};
    std::thread thread_;
};

// Waits until the disk has the file; false after a message.
bool disk_has(const CaptureFile& file);

}  // namespace cli

#endif
