// cli/file_replace.cpp - command: writes a small file whole or not at all.
// Uses POSIX files.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "cli/file_replace.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

namespace cli {

namespace {

bool write_all(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            errno = written == 0 ? ENOSPC : errno;
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

// Writes and closes; `done` says whether what came before went well.
bool finish(int fd, bool done, std::string_view bytes, bool has_disk) {
    done = done && write_all(fd, bytes) && (!has_disk || fsync(fd) == 0);
    const int reason = errno;
    const bool is_closed = close(fd) == 0;
    errno = done ? errno : reason;
    return done && is_closed;
}

mode_t usual_mode() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

// Where a chain of symbolic links ends, so that the link stays one.
std::string target_of(const std::string& path) {
    const std::unique_ptr<char, decltype(&free)> real(realpath(path.c_str(), nullptr), free);
    return real ? std::string(real.get()) : path;
}

}  // namespace

bool file_replace(const std::string& path, std::string_view bytes) {
    struct stat before {};
    const bool exists = stat(path.c_str(), &before) == 0;
    if (exists && !S_ISREG(before.st_mode)) {
        const int fd = open(path.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC);
        return fd >= 0 && finish(fd, true, bytes, false);
    }
    if (exists && access(path.c_str(), W_OK) != 0) {
        return false;  // a file that is protected stays, though its folder would let it go
    }
    const std::string target = target_of(path);
    std::string beside = target + ".XXXXXX";
    const int fd = mkostemp(beside.data(), O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    [[maybe_unused]] const int owned = exists ? fchown(fd, before.st_uid, before.st_gid) : 0;
    const bool is_open_to_all = fchmod(fd, exists ? before.st_mode & 07777 : usual_mode()) == 0;
    if (finish(fd, is_open_to_all, bytes, true) &&
        std::rename(beside.c_str(), target.c_str()) == 0) {
        return true;
    }
    const int reason = errno;
    unlink(beside.c_str());
    errno = reason;
    return false;
}

}  // namespace cli
