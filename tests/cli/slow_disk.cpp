// tests/cli/slow_disk.cpp - test: preloaded, a disk whose syncs last until a file "go" is there; the
// file "synced" tells that one began.
// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <unistd.h>

extern "C" int fdatasync(int /*fd*/) {
    constexpr unsigned int kPoll_us = 10'000;
    close(open("synced", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    while (access("go", F_OK) != 0) {
        usleep(kPoll_us);
    }
    return 0;
}
