// sim/link.cpp - simulated module: its end of the serial line, a pty or a serial device.
// Uses POSIX terminals.
// Thread: the station's thread; unread() from any thread.
// SPDX-License-Identifier: MIT
#include "sim/link.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace sim {

namespace {

int checked(int result, const std::string& what) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

int open_master() {
    return checked(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC), "no pty");
}

std::uint32_t unlock(int master) {
    checked(grantpt(master), "grantpt");
    checked(unlockpt(master), "unlockpt");
    unsigned int number = 0;
    checked(ioctl(master, TIOCGPTN, &number), "no pty number");
    return number;
}

std::string host_path(std::uint32_t number) {
    return "/dev/pts/" + std::to_string(number);
}

int open_terminal(const std::string& path, int more_flags) {
    return checked(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC | more_flags), path);
}

// A line that echoed would send the module its own reports.
void make_raw(int fd, const std::string& path) {
    termios settings{};
    checked(tcgetattr(fd, &settings), path);
    cfmakeraw(&settings);
    checked(tcsetattr(fd, TCSANOW, &settings), path);
}

std::size_t bytes_by(int fd, unsigned long request) {
    int count = 0;
    return ioctl(fd, request, &count) == 0 ? static_cast<std::size_t>(count) : 0;
}

std::size_t moved(ssize_t result) {
    return result > 0 ? static_cast<std::size_t>(result) : 0;
}

class PtyLink : public Link {
  public:
    PtyLink() : Link(open_master()), number_(unlock(fd())), host_end_(open_terminal(path(), 0)) {
        make_raw(host_end_.get(), path());
    }
    [[nodiscard]] std::size_t unread() const override {
        return bytes_by(host_end_.get(), FIONREAD);
    }
    [[nodiscard]] std::string path() const final { return host_path(number_); }
    [[nodiscard]] std::uint32_t pty() const override { return number_ + 1; }

  private:
    std::uint32_t number_;
    Descriptor host_end_;
};

// Only the device's own output queue can be asked for; what has left it counts as read.
class DeviceLink : public Link {
  public:
    explicit DeviceLink(std::string path)
        : Link(open_terminal(path, O_NONBLOCK)), path_(std::move(path)) {
        make_raw(fd(), path_);
    }
    [[nodiscard]] std::size_t unread() const override { return bytes_by(fd(), TIOCOUTQ); }
    [[nodiscard]] std::string path() const override { return path_; }

  private:
    std::string path_;
};

}  // namespace

Descriptor::~Descriptor() {
    close(fd_);
}

std::size_t Link::read(std::span<std::uint8_t> buffer) const {
    return moved(::read(fd(), buffer.data(), buffer.size()));
}

std::size_t Link::write(ByteView bytes) const {
    return moved(::write(fd(), bytes.data(), bytes.size()));
}

std::unique_ptr<Link> open_pty() {
    return std::make_unique<PtyLink>();
}

std::unique_ptr<Link> open_device(const std::string& path) {
    return std::make_unique<DeviceLink>(path);
}

}  // namespace sim
