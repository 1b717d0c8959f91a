// sim/pty_link.h - simulated module: the pty that stands for the module's serial line.
// Only sim/.
// Thread: the station's thread; unread() from any thread.
// SPDX-License-Identifier: MIT
#ifndef SIM_PTY_LINK_H
#define SIM_PTY_LINK_H

#include "sim/wire.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace sim {

// A descriptor, closed when it goes.
class Descriptor {
  public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor();
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    [[nodiscard]] int get() const { return fd_; }

  private:
    int fd_;
};

// Both ends of a pty. The host's end is held open here as well, so that the host may close and open
// it again; destroying the link hangs up.
class PtyLink {
  public:
    PtyLink();  // throws std::system_error when the system has no pty left

    [[nodiscard]] int master() const { return master_.get(); }
    [[nodiscard]] std::uint32_t number() const { return number_; }  // N of /dev/pts/N
    [[nodiscard]] std::string path() const;

    // Never block; the results are byte counts, 0 when nothing can be moved now.
    std::size_t read(std::span<std::uint8_t> buffer) const;
    std::size_t write(ByteView bytes) const;

    // Bytes that have reached the host's end and are unread.
    [[nodiscard]] std::size_t unread() const;

  private:
    Descriptor master_;
    std::uint32_t number_;
    Descriptor host_end_;
};

}  // namespace sim

#endif
