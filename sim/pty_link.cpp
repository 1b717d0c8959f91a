// sim/pty_link.cpp - simulated module: the pty that stands for the module's serial line.
// Uses POSIX terminals.
// Thread: the station's thread; unread() from any thread.
// SPDX-License-Identifier: MIT
#include "sim/pty_link.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace sim {

namespace {

int checked(int result, const char* what) {
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

// Raw from the start: a line that echoed would send the module its own reports.
int open_host_end(std::uint32_t number) {
    const int fd =
        checked(open(host_path(number).c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC), "open pty");
    termios settings{};
    tcgetattr(fd, &settings);
    cfmakeraw(&settings);
    tcsetattr(fd, TCSANOW, &settings);
    return fd;
}

std::size_t moved(ssize_t result) {
    return result > 0 ? static_cast<std::size_t>(result) : 0;
}

}  // namespace

Descriptor::~Descriptor() {
    close(fd_);
}

PtyLink::PtyLink()
    : master_(open_master()), number_(unlock(master_.get())), host_end_(open_host_end(number_)) {}

std::string PtyLink::path() const {
    return host_path(number_);
}

std::size_t PtyLink::read(std::span<std::uint8_t> buffer) const {
    return moved(::read(master_.get(), buffer.data(), buffer.size()));
}

std::size_t PtyLink::write(ByteView bytes) const {
    return moved(::write(master_.get(), bytes.data(), bytes.size()));
}

std::size_t PtyLink::unread() const {
    int count = 0;
    return ioctl(host_end_.get(), FIONREAD, &count) == 0 ? static_cast<std::size_t>(count) : 0;
}

}  // namespace sim
