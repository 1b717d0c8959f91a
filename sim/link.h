// sim/link.h - simulated module: its end of the serial line, a pty or a serial device.
// Only sim/.
// Thread: the station's thread; unread() from any thread.
// SPDX-License-Identifier: MIT
#ifndef SIM_LINK_H
#define SIM_LINK_H

#include "sim/wire.h"

#include <cstddef>
#include <cstdint>
#include <memory>
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

// The module's end of its line; destroying it hangs up, as far as the line can tell its host.
class Link {
  public:
    explicit Link(int fd) : end_(fd) {}
    virtual ~Link() = default;
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    [[nodiscard]] int fd() const { return end_.get(); }

    // Never block; the results are byte counts, 0 when nothing can be moved now.
    std::size_t read(std::span<std::uint8_t> buffer) const;
    std::size_t write(ByteView bytes) const;

    // Bytes that were written and, as far as this end can know, have not been read.
    [[nodiscard]] virtual std::size_t unread() const = 0;
    // What to tell a user: the host's end of a pty, or the device that is served.
    [[nodiscard]] virtual std::string path() const = 0;
    // Number below /dev/pts plus one, as the port table has it; 0: no pty of our own.
    [[nodiscard]] virtual std::uint32_t pty() const { return 0; }

  private:
    Descriptor end_;
};

// Both ends of a new pty. The host's end is held open here as well, so that the host may close and
// open it again. Throws std::system_error when the system has no pty left.
std::unique_ptr<Link> open_pty();

// A serial device, in raw mode, such as the gadget side of a USB serial line. Throws
// std::system_error when it cannot be opened or is no terminal.
std::unique_ptr<Link> open_device(const std::string& path);

}  // namespace sim

#endif
