// sim/shim.cpp - simulated module: leads calls on a module's device path to its pty, answers for
// its modem lines, lets chosen calls fail. Linked into a test, or preloaded as a library.
// Thread: any. No lock is held across the real call, so that a thread can be cancelled inside it.
// SPDX-License-Identifier: MIT

// The fortified headers define some of the functions that are defined here.
#undef _FORTIFY_SOURCE

#include "sim/shim.h"

#include "sim/port_table.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

// Keeps the text in the program.
extern "C" [[gnu::used]] const char* const tavu_sim_shim_marker = sim::kShimMarker;

namespace sim {

namespace {

constexpr std::size_t kDescriptors = 4096;
constexpr std::size_t kFaults = 16;
constexpr std::uint32_t kLineBits = TIOCM_DTR | TIOCM_RTS;
constexpr tcflag_t kFramingBits = CSIZE | PARENB | PARODD | CSTOPB;

// Slot number plus one of every descriptor on a simulated port, 0 for all others.
constinit std::array<std::atomic<std::uint8_t>, kDescriptors> slot_of{};

constinit std::mutex fault_mutex;  // guards the two below; never held across a real call
constinit std::array<CallFault, kFaults> faults{};
constinit std::size_t fault_count = 0;
// Set while there are faults, so that an undisturbed call costs one load.
constinit std::atomic<bool> faults_armed{false};

// See shim_unsent.
constinit std::atomic<int> unsent_bytes{-1};

template <typename Function>
Function* next_symbol(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool in_range(int fd) {
    return fd >= 0 && static_cast<std::size_t>(fd) < kDescriptors;
}

PortSlot* port_of(int fd) {
    if (!in_range(fd)) {
        return nullptr;
    }
    const std::uint8_t slot = slot_of[static_cast<std::size_t>(fd)].load(std::memory_order_acquire);
    return slot == 0 ? nullptr : &port_table().slots[slot - 1U];
}

void remember(int fd, const PortSlot* port) {
    if (!in_range(fd)) {
        return;
    }
    const std::uint8_t slot = port == nullptr
                                  ? std::uint8_t{0}
                                  : static_cast<std::uint8_t>(port - port_table().slots.data() + 1);
    slot_of[static_cast<std::size_t>(fd)].store(slot, std::memory_order_release);
}

// The fault that strikes this call, if any.
std::optional<CallFault> take_fault(Call call) {
    if (!faults_armed.load(std::memory_order_relaxed)) {
        return std::nullopt;
    }
    const std::lock_guard lock(fault_mutex);
    const auto end = faults.begin() + static_cast<std::ptrdiff_t>(fault_count);
    const auto found =
        std::find_if(faults.begin(), end, [&](const CallFault& f) { return f.call == call; });
    if (found == end) {
        return std::nullopt;
    }
    if (found->skip > 0) {
        --found->skip;
        return std::nullopt;
    }
    const CallFault fault = *found;
    if (--found->times <= 0) {
        std::move(found + 1, end, found);
        --fault_count;
    }
    faults_armed.store(fault_count > 0, std::memory_order_relaxed);
    return fault;
}

// Whether the call on this descriptor is to fail; errno is set then.
bool fails(Call call, int fd) {
    if (!faults_armed.load(std::memory_order_relaxed) || port_of(fd) == nullptr) {
        return false;
    }
    const std::optional<CallFault> fault = take_fault(call);
    if (fault) {
        errno = fault->error;
    }
    return fault.has_value();
}

// Opens a path through `real`, a module's path through its pty.
template <typename Real>
int open_through(const char* path, Real real) {
    if (path == nullptr || !is_candidate_path(path)) {
        const int fd = real(path);
        if (port_of(fd) != nullptr) {
            remember(fd, nullptr);
        }
        return fd;
    }
    PortSlot* port = find_port(path);
    const std::uint32_t pty = port == nullptr ? 0 : port->pty.load();
    if (pty == 0) {
        errno = ENOENT;
        return -1;
    }
    if (port->denied.load() != 0) {
        errno = EACCES;
        return -1;
    }
    if (const std::optional<CallFault> fault = take_fault(Call::open)) {
        errno = fault->error;
        return -1;
    }
    const int fd = real(("/dev/pts/" + std::to_string(pty - 1)).c_str());
    remember(fd, port);
    return fd;
}

// Transfers through `real`, cut or failed as the faults want it.
template <typename Real>
ssize_t transfer(Call call, int fd, std::size_t count, Real real) {
    if (!faults_armed.load(std::memory_order_relaxed) || port_of(fd) == nullptr) {
        return real(count);
    }
    const std::optional<CallFault> fault = take_fault(call);
    if (!fault) {
        return real(count);
    }
    if (fault->error != 0) {
        errno = fault->error;
        return -1;
    }
    return real(std::min(count, static_cast<std::size_t>(fault->limit)));
}

template <typename Real>
int poll_through(const pollfd* fds, nfds_t count, Real real) {
    const bool disturbed = faults_armed.load(std::memory_order_relaxed) &&
                           std::any_of(fds, fds + count, [](const pollfd& watched) {
                               return port_of(watched.fd) != nullptr;
                           });
    if (const auto fault = disturbed ? take_fault(Call::poll) : std::nullopt) {
        errno = fault->error;
        return -1;
    }
    return real();
}

bool is_modem_request(unsigned long request) {
    return request == TIOCMGET || request == TIOCMSET || request == TIOCMBIS || request == TIOCMBIC;
}

// Ptys have no modem lines: the table keeps them.
void modem_request(PortSlot& port, unsigned long request, int& lines) {
    const std::uint32_t bits = static_cast<std::uint32_t>(lines) & kLineBits;
    switch (request) {
        case TIOCMGET:
            lines = static_cast<int>(port.lines.load());
            break;
        case TIOCMSET:
            port.lines.store(bits);
            break;
        case TIOCMBIS:
            port.lines.fetch_or(bits);
            break;
        default:
            port.lines.fetch_and(~bits);
            break;
    }
}

mode_t mode_argument(int flags, va_list arguments) {
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return creates ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

void shim_fail(CallFault fault) {
    const std::lock_guard lock(fault_mutex);
    if (fault_count < faults.size()) {
        faults.at(fault_count++) = fault;
        faults_armed.store(true, std::memory_order_relaxed);
    }
}

void shim_fail_none() {
    const std::lock_guard lock(fault_mutex);
    fault_count = 0;
    faults_armed.store(false, std::memory_order_relaxed);
}

void shim_unsent(int bytes) {
    unsent_bytes.store(bytes);
}

int shim_open_descriptors() {
    return static_cast<int>(std::count_if(slot_of.begin(), slot_of.end(),
                                          [](const auto& slot) { return slot.load() != 0; }));
}

}  // namespace sim

// The C library's own functions, as it declares them. A real function is looked up at its first
// use.
extern "C" {

int open(const char* path, int flags, ...) {
    static auto* const real = sim::next_symbol<int(const char*, int, ...)>("open");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = sim::mode_argument(flags, arguments);
    va_end(arguments);
    return sim::open_through(path, [&](const char* target) { return real(target, flags, mode); });
}

int open64(const char* path, int flags, ...) {
    static auto* const real = sim::next_symbol<int(const char*, int, ...)>("open64");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = sim::mode_argument(flags, arguments);
    va_end(arguments);
    return sim::open_through(path, [&](const char* target) { return real(target, flags, mode); });
}

int openat(int directory, const char* path, int flags, ...) {
    static auto* const real = sim::next_symbol<int(int, const char*, int, ...)>("openat");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = sim::mode_argument(flags, arguments);
    va_end(arguments);
    return sim::open_through(
        path, [&](const char* target) { return real(directory, target, flags, mode); });
}

int __open_2(const char* path, int flags) {
    static auto* const real = sim::next_symbol<int(const char*, int)>("__open_2");
    return sim::open_through(path, [&](const char* target) { return real(target, flags); });
}

int __open64_2(const char* path, int flags) {
    static auto* const real = sim::next_symbol<int(const char*, int)>("__open64_2");
    return sim::open_through(path, [&](const char* target) { return real(target, flags); });
}

int close(int fd) {
    static auto* const real = sim::next_symbol<int(int)>("close");
    if (sim::port_of(fd) != nullptr) {
        sim::remember(fd, nullptr);  // before the number can be used again
        if (sim::unsent_bytes.load() > 0) {
            const timespec driver_wait = {30, 0};
            nanosleep(&driver_wait, nullptr);
        }
    }
    return real(fd);
}

ssize_t read(int fd, void* buffer, size_t count) {
    static auto* const real = sim::next_symbol<ssize_t(int, void*, size_t)>("read");
    return sim::transfer(sim::Call::read, fd, count,
                         [&](size_t length) { return real(fd, buffer, length); });
}

ssize_t __read_chk(int fd, void* buffer, size_t count, size_t size) {
    static auto* const real = sim::next_symbol<ssize_t(int, void*, size_t, size_t)>("__read_chk");
    return sim::transfer(sim::Call::read, fd, count,
                         [&](size_t length) { return real(fd, buffer, length, size); });
}

ssize_t write(int fd, const void* buffer, size_t count) {
    static auto* const real = sim::next_symbol<ssize_t(int, const void*, size_t)>("write");
    return sim::transfer(sim::Call::write, fd, count,
                         [&](size_t length) { return real(fd, buffer, length); });
}

int poll(pollfd* fds, nfds_t count, int timeout) {
    static auto* const real = sim::next_symbol<int(pollfd*, nfds_t, int)>("poll");
    return sim::poll_through(fds, count, [&] { return real(fds, count, timeout); });
}

int __poll_chk(pollfd* fds, nfds_t count, int timeout, size_t size) {
    static auto* const real = sim::next_symbol<int(pollfd*, nfds_t, int, size_t)>("__poll_chk");
    return sim::poll_through(fds, count, [&] { return real(fds, count, timeout, size); });
}

int ioctl(int fd, unsigned long request, ...) __THROW {
    static auto* const real = sim::next_symbol<int(int, unsigned long, ...)>("ioctl");
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (sim::PortSlot* port = sim::port_of(fd)) {
        if (sim::fails(sim::Call::ioctl, fd)) {
            return -1;
        }
        if (const int unsent = sim::unsent_bytes.load(); request == TIOCOUTQ && unsent >= 0) {
            *static_cast<int*>(argument) = unsent;
            return 0;
        }
        if (sim::is_modem_request(request)) {
            int unread = 0;
            const int result = real(fd, FIONREAD, &unread);  // fails once the module is unplugged
            if (result == 0) {
                sim::modem_request(*port, request, *static_cast<int*>(argument));
            }
            return result;
        }
    }
    return real(fd, request, argument);
}

// A pty has neither parity nor stop bits and keeps none of them: the table does.
int tcgetattr(int fd, termios* settings) __THROW {
    static auto* const real = sim::next_symbol<int(int, termios*)>("tcgetattr");
    if (sim::fails(sim::Call::tcgetattr, fd)) {
        return -1;
    }
    const int result = real(fd, settings);
    const sim::PortSlot* port = sim::port_of(fd);
    const tcflag_t framing = port == nullptr ? 0 : port->framing.load();
    if (result == 0 && framing != 0) {
        settings->c_cflag = (settings->c_cflag & ~sim::kFramingBits) | framing;
    }
    return result;
}

int tcsetattr(int fd, int action, const termios* settings) __THROW {
    static auto* const real = sim::next_symbol<int(int, int, const termios*)>("tcsetattr");
    if (sim::fails(sim::Call::tcsetattr, fd)) {
        return -1;
    }
    sim::PortSlot* port = sim::port_of(fd);
    if (port == nullptr) {
        return real(fd, action, settings);
    }
    termios possible = *settings;
    possible.c_cflag = (possible.c_cflag & ~sim::kFramingBits) | CS8;
    const int result = real(fd, action, &possible);
    if (result == 0) {
        port->framing = settings->c_cflag & (sim::kFramingBits | CREAD);
    }
    return result;
}

int flock(int fd, int operation) __THROW {
    static auto* const real = sim::next_symbol<int(int, int)>("flock");
    return sim::fails(sim::Call::flock, fd) ? -1 : real(fd, operation);
}

}  // extern "C"
