// lib/rs232.cpp - library: opens, locks, reads and writes a serial character device.
// Uses lib/stuck_close.h and POSIX. Knows nothing of the module's protocol; keeps no state but the
// writers' turns and the rests of cut commands.
// Thread: any.
// SPDX-License-Identifier: MIT
#include "lib/rs232.h"

#include "lib/stuck_close.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <mutex>
#include <string_view>

const std::array<const char*, 68> comports = {
    "/dev/ttyCAN0",  "/dev/ttyCAN1",  "/dev/ttyCAN2",  "/dev/ttyCAN3",  "/dev/ttyCAN4",
    "/dev/ttyCAN5",  "/dev/ttyCAN6",  "/dev/ttyCAN7",  "/dev/ttyCAN8",  "/dev/ttyCAN9",
    "/dev/ttyCAN10", "/dev/ttyCAN11", "/dev/ttyCAN12", "/dev/ttyCAN13", "/dev/ttyCAN14",
    "/dev/ttyCAN15", "/dev/ttyUSB0",  "/dev/ttyUSB1",  "/dev/ttyUSB2",  "/dev/ttyUSB3",
    "/dev/ttyUSB4",  "/dev/ttyUSB5",  "/dev/ttyAMA0",  "/dev/ttyAMA1",  "/dev/ttyACM0",
    "/dev/ttyACM1",  "/dev/ttyACM2",  "/dev/ttyACM3",  "/dev/ttyACM4",  "/dev/ttyACM5",
    "/dev/ttyACM6",  "/dev/ttyACM7",  "/dev/ttyACM8",  "/dev/ttyACM9",  "/dev/ttyACM10",
    "/dev/ttyACM11", "/dev/ttyACM12", "/dev/ttyACM13", "/dev/ttyACM14", "/dev/ttyACM15",
    "/dev/rfcomm0",  "/dev/rfcomm1",  "/dev/ircomm0",  "/dev/ircomm1",  "/dev/cuau0",
    "/dev/cuau1",    "/dev/cuau2",    "/dev/cuau3",    "/dev/cuaU0",    "/dev/cuaU1",
    "/dev/cuaU2",    "/dev/cuaU3",    "/dev/serusb0",  "/dev/serusb1",  "/dev/serusb2",
    "/dev/serusb3",  "/dev/serusb4",  "/dev/serusb5",  "/dev/serusb6",  "/dev/serusb7",
    "/dev/serusb8",  "/dev/serusb9",  "/dev/serusb10", "/dev/serusb11", "/dev/serusb12",
    "/dev/serusb13", "/dev/serusb14", "/dev/serusb15",
};

namespace {

using Clock = std::chrono::steady_clock;

// A module that drains its input at all makes room within a few milliseconds.
constexpr std::chrono::milliseconds kRoomWait{100};
// A terminal may make room without waking those who wait for it, so a write is tried then.
constexpr std::chrono::milliseconds kRoomTry{5};
// On close: at 9600 bit/s, which a real line may run at, 480 bytes.
constexpr std::chrono::milliseconds kLeaveWait{500};
constexpr useconds_t kLeaveCheck_us = 1000;

struct Speed {
    int bps;
    speed_t code;
};

constexpr std::array<Speed, 30> kSpeeds = {{
    {50, B50},           {75, B75},           {110, B110},         {134, B134},
    {150, B150},         {200, B200},         {300, B300},         {600, B600},
    {1200, B1200},       {1800, B1800},       {2400, B2400},       {4800, B4800},
    {9600, B9600},       {19200, B19200},     {38400, B38400},     {57600, B57600},
    {115200, B115200},   {230400, B230400},   {460800, B460800},   {500000, B500000},
    {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000},
    {1500000, B1500000}, {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000},
    {3500000, B3500000}, {4000000, B4000000},
}};

// Repeats a system call that a signal interrupted before it did anything.
template <typename SystemCall>
auto uninterrupted(SystemCall call) {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

// Puts a cancellation of the calling thread off until the end of the scope.
class Uncancelled {
  public:
    Uncancelled() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &usual_); }
    ~Uncancelled() { pthread_setcancelstate(usual_, nullptr); }
    Uncancelled(const Uncancelled&) = delete;
    Uncancelled& operator=(const Uncancelled&) = delete;

  private:
    int usual_ = PTHREAD_CANCEL_ENABLE;
};

// Writers of a descriptor take turns, or a command could land inside another on a full port, and
// the terminal would turn the second writer away. The rest of a command that was cut goes out before
// anything else does, or the module would take the next command for it. Only a process with more
// descriptors than places has some that share one; they take turns too, and one has its rest kept.
struct Outlet {
    std::mutex turn;
    int rest_fd = -1;
    std::size_t rest_bytes = 0;
    std::array<unsigned char, 256> rest{};  // the longest command
};
std::array<Outlet, 256> outlets;

Outlet& outlet_of(int fd) {
    return outlets[static_cast<std::size_t>(fd) % outlets.size()];
}

ssize_t read_once(int fd, unsigned char* buffer, int size) {
    return uninterrupted([&] { return read(fd, buffer, static_cast<std::size_t>(size)); });
}

bool await_event(int fd, short event, std::chrono::milliseconds timeout) {
    std::array<pollfd, 1> port = {{{fd, event, 0}}};
    return RS232_PollUntil(port, Clock::now() + timeout);
}

// Writes until all is written, the time is up or the port fails. Result: bytes written.
std::size_t bytes_write(int fd, std::span<const unsigned char> bytes, Clock::time_point end) {
    std::size_t done = 0;
    for (;;) {
        const ssize_t written =
            uninterrupted([&] { return write(fd, bytes.data() + done, bytes.size() - done); });
        if (written < 0 && errno != EAGAIN) {
            break;
        }
        done += static_cast<std::size_t>(std::max<ssize_t>(written, 0));
        // Only a full port takes less than it is given, or nothing; the rest must follow at once,
        // as behind a blocking write, or the command would be cut.
        if (done == bytes.size() || Clock::now() >= end) {
            break;
        }
        await_event(fd, POLLOUT, kRoomTry);
    }
    return done;
}

// A rest that does not fit is none that a command of this library leaves.
void rest_keep(Outlet& outlet, int fd, std::span<const unsigned char> rest) {
    outlet.rest_fd = fd;
    outlet.rest_bytes = rest.size() <= outlet.rest.size() ? rest.size() : 0;
    std::copy_n(rest.begin(), outlet.rest_bytes, outlet.rest.begin());
}

// Writes what is left of a cut command. Result: whether none is left.
bool rest_write(Outlet& outlet, int fd, Clock::time_point end) {
    if (outlet.rest_fd != fd || outlet.rest_bytes == 0) {
        return true;
    }
    const auto rest = std::span(outlet.rest).first(outlet.rest_bytes);
    const std::size_t done = bytes_write(fd, rest, end);
    std::copy(rest.begin() + static_cast<std::ptrdiff_t>(done), rest.end(), rest.begin());
    outlet.rest_bytes -= done;
    return outlet.rest_bytes == 0;
}

// Under the outlet's turn, as all that touches a rest.
void rest_drop(Outlet& outlet, int fd) {
    if (outlet.rest_fd == fd) {
        outlet.rest_bytes = 0;
    }
}

// Gives what was written time to leave, and discards what does not. Result: whether nothing is
// left; a USB serial driver does not let go of it.
bool output_leave(int fd) {
    Outlet& outlet = outlet_of(fd);
    const std::lock_guard turn(outlet.turn);
    const auto end = Clock::now() + kLeaveWait;
    rest_write(outlet, fd, end);
    rest_drop(outlet, fd);
    int unsent = 0;
    while (uninterrupted([&] { return ioctl(fd, TIOCOUTQ, &unsent); }) == RS232_OK && unsent > 0) {
        if (Clock::now() >= end) {
            uninterrupted([&] { return tcflush(fd, TCOFLUSH); });
            return false;
        }
        usleep(kLeaveCheck_us);
    }
    return true;
}

bool data_bits_set(termios& settings, char digit) {
    constexpr std::array<tcflag_t, 4> kSizes = {CS5, CS6, CS7, CS8};
    if (digit < '5' || digit > '8') {
        return false;
    }
    settings.c_cflag |= kSizes[static_cast<std::size_t>(digit - '5')];
    return true;
}

bool parity_set(termios& settings, char letter) {
    switch (letter) {
        case 'N':
        case 'n':
            settings.c_iflag = IGNPAR;
            return true;
        case 'E':
        case 'e':
            settings.c_cflag |= PARENB;
            settings.c_iflag = INPCK;
            return true;
        case 'O':
        case 'o':
            settings.c_cflag |= PARENB | PARODD;
            settings.c_iflag = INPCK;
            return true;
        default:
            return false;
    }
}

bool stop_bits_set(termios& settings, char digit) {
    if (digit == '2') {
        settings.c_cflag |= CSTOPB;
    }
    return digit == '1' || digit == '2';
}

// Fills `settings`, zero on entry. Result: what is wrong with the parameters, or null.
const char* settings_build(termios& settings, int baudrate_bps, std::string_view mode) {
    const auto speed = std::find_if(kSpeeds.begin(), kSpeeds.end(),
                                    [&](const Speed& row) { return row.bps == baudrate_bps; });
    if (speed == kSpeeds.end()) {
        return "invalid baudrate";
    }
    if (mode.size() != 3) {
        return "invalid mode";
    }
    settings.c_cflag = CLOCAL | CREAD;
    if (!data_bits_set(settings, mode[0])) {
        return "invalid number of data-bits";
    }
    if (!parity_set(settings, mode[1])) {
        return "invalid parity";
    }
    if (!stop_bits_set(settings, mode[2])) {
        return "invalid number of stop bits";
    }
    cfsetispeed(&settings, speed->code);
    cfsetospeed(&settings, speed->code);
    return nullptr;
}

int settings_read(int fd, termios& settings) {
    return uninterrupted([&] { return tcgetattr(fd, &settings); });
}

bool is_read_blocking(int fd) {
    termios settings{};
    return settings_read(fd, settings) == RS232_OK && settings.c_cc[VMIN] > 0;
}

int settings_apply(int fd, const termios& settings) {
    return uninterrupted([&] { return tcsetattr(fd, TCSANOW, &settings); });
}

int lines_read(int fd, int& status) {
    return uninterrupted([&] { return ioctl(fd, TIOCMGET, &status); });
}

int lines_write(int fd, const int& status) {
    return uninterrupted([&] { return ioctl(fd, TIOCMSET, &status); });
}

// A write to a module that no longer drains its input must end: see RS232_SendBuf.
int nonblocking_set(int fd) {
    const int flags = fcntl(fd, F_GETFL);
    return flags < 0 ? flags : fcntl(fd, F_SETFL, flags | O_NONBLOCK);
}

// Configures a locked port and raises its modem lines. Result: what failed, or null.
const char* port_configure(int fd, const termios& settings) {
    termios present{};
    if (settings_read(fd, present) != RS232_OK) {
        return "unable to read portsettings";
    }
    if (settings_apply(fd, settings) != RS232_OK || nonblocking_set(fd) != RS232_OK) {
        return "unable to adjust portsettings";
    }
    int status = 0;
    if (lines_read(fd, status) != RS232_OK) {
        return "unable to get portstatus";
    }
    status |= TIOCM_DTR | TIOCM_RTS;
    if (lines_write(fd, status) != RS232_OK) {
        return "unable to set portstatus";
    }
    return nullptr;
}

// Opens and locks. Result: the descriptor, or RS232_FAILED with `problem` set.
int port_claim(const char* path, const char*& problem) {
    const int fd = uninterrupted([&] { return open(path, O_RDWR | O_NOCTTY | O_CLOEXEC); });
    if (fd < 0) {
        problem = "unable to open comport";
        return RS232_FAILED;
    }
    if (uninterrupted([&] { return flock(fd, LOCK_EX | LOCK_NB); }) != RS232_OK) {
        close(fd);
        problem = "Another process has locked the comport";
        return RS232_FAILED;
    }
    return fd;
}

void port_release(int fd, void (*close_by)(int fd)) {
    uninterrupted([&] { return flock(fd, LOCK_UN); });
    close_by(fd);
}

void plain_close(int fd) {
    close(fd);
}

}  // namespace

[[gnu::weak]] void showDebugMsg(int /*line*/, const char* /*function*/, const char* /*message*/) {}

int RS232_OpenComport(const char* path, int baudrate_bps, const char* mode) {
    termios settings{};
    const char* problem = settings_build(settings, baudrate_bps, mode);
    if (problem != nullptr) {
        showDebugMsg(__LINE__, __func__, problem);
        return RS232_REJECTED;
    }
    const int fd = port_claim(path, problem);
    if (problem != nullptr) {
        showDebugMsg(__LINE__, __func__, problem);
        return RS232_FAILED;
    }
    {
        const std::lock_guard turn(outlet_of(fd).turn);
        rest_drop(outlet_of(fd), fd);  // of one that was closed without us
    }
    problem = port_configure(fd, settings);
    if (problem != nullptr) {
        port_release(fd, plain_close);
        showDebugMsg(__LINE__, __func__, problem);
        return RS232_FAILED;
    }
    return fd;
}

int RS232_ReadPending(int fd, unsigned char* buffer, int size) {
    return static_cast<int>(std::max<ssize_t>(read_once(fd, buffer, size), 0));
}

int RS232_PollComport(int fd, unsigned char* buffer, int size) {
    ssize_t count = read_once(fd, buffer, size);
    // The same error says that another thread is reading the port, which is not waited for.
    while (count < 0 && errno == EAGAIN && is_read_blocking(fd)) {
        std::array<pollfd, 1> port = {{{fd, POLLIN, 0}}};
        uninterrupted([&] { return poll(port.data(), port.size(), -1); });
        count = read_once(fd, buffer, size);
    }
    return static_cast<int>(std::max<ssize_t>(count, 0));
}

int RS232_SendBuf(int fd, const unsigned char* bytes, int size) {
    const Uncancelled whole_command;
    Outlet& outlet = outlet_of(fd);
    const std::lock_guard turn(outlet.turn);
    const auto end = Clock::now() + kRoomWait;
    if (!rest_write(outlet, fd, end)) {
        return RS232_FAILED;
    }
    const std::span command(bytes, static_cast<std::size_t>(size));
    const std::size_t done = bytes_write(fd, command, end);
    if (done > 0) {
        rest_keep(outlet, fd, command.subspan(done));
    }
    return done == 0 && size > 0 ? RS232_FAILED : static_cast<int>(done);
}

void RS232_CloseComport(int fd) {
    const bool has_left = output_leave(fd);
    int status = 0;
    if (lines_read(fd, status) != RS232_OK) {
        showDebugMsg(__LINE__, __func__, "unable to get portstatus");
        status = 0;
    }
    status &= ~(TIOCM_DTR | TIOCM_RTS);
    if (lines_write(fd, status) != RS232_OK) {
        showDebugMsg(__LINE__, __func__, "unable to set portstatus");
    }
    port_release(fd, has_left ? plain_close : tavu::stuck_close);
}

void RS232_flushRX(int fd) {
    uninterrupted([&] { return tcflush(fd, TCIFLUSH); });
}

int RS232_SetRecvBlock(int fd, int flag) {
    termios settings{};
    if (settings_read(fd, settings) != RS232_OK) {
        return RS232_FAILED;
    }
    settings.c_cc[VMIN] = flag != 0 ? 1 : 0;
    return settings_apply(fd, settings);
}

bool RS232_PollUntil(std::span<pollfd> fds, std::chrono::steady_clock::time_point deadline) {
    const int ready = uninterrupted([&] {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        return poll(fds.data(), fds.size(),
                    static_cast<int>(std::max(left.count(), decltype(left)::rep{0})));
    });
    return ready > 0;
}

bool RS232_WaitInput(int fd, std::chrono::milliseconds timeout) {
    return await_event(fd, POLLIN, timeout);
}

int RS232_InputCount(int fd) {
    int count = 0;
    const int result = uninterrupted([&] { return ioctl(fd, FIONREAD, &count); });
    return result == RS232_OK ? count : 0;
}
