// lib/port_state.cpp - library: why a port can or cannot be used, found out without an exchange.
// Uses lib/link.h for the open ports, POSIX, and the lists that Linux keeps in /proc.
// Thread: see the table in lib_tavu_2.h.
// SPDX-License-Identifier: MIT
#include "lib/link.h"
#include "lib/rs232.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <grp.h>
#include <string>

namespace tavu {
namespace {

// Descriptor that goes with the scope.
struct OpenFile {
    explicit OpenFile(const char* path)
        : fd(open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {}
    ~OpenFile() {
        if (fd >= 0) {
            close(fd);
        }
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    const int fd;
};

void copy_text(char* to, const std::string& text, std::size_t size = TAVU_WHO_SIZE) {
    if (to == nullptr) {
        return;
    }
    std::size_t end = text.copy(to, size - 1);
    // A character that is cut would make the whole text invalid.
    while (end < text.size() && end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) {
        --end;
    }
    to[end] = '\0';
}

// The group whose members may read and write the device, empty when there is none that one joins.
std::string group_of(const char* path) {
    struct stat device {};
    constexpr mode_t kBoth = S_IRGRP | S_IWGRP;
    if (stat(path, &device) != 0 || (device.st_mode & kBoth) != kBoth || device.st_gid == 0) {
        return {};
    }
    const group* const entry = getgrgid(device.st_gid);
    return entry == nullptr ? std::string() : entry->gr_name;
}

// The program that has locked the file, by the system's list of locks; empty when it is not told.
// A line reads "5: FLOCK  ADVISORY  WRITE 4711 00:1a:3 0 EOF".
std::string locker_of(int fd) {
    struct stat file {};
    if (fstat(fd, &file) != 0) {
        return {};
    }
    std::array<char, 64> wanted{};
    std::snprintf(wanted.data(), wanted.size(), "%02x:%02x:%llu", major(file.st_dev),
                  minor(file.st_dev), static_cast<unsigned long long>(file.st_ino));
    std::ifstream locks("/proc/locks");
    std::string number;
    std::string kind;
    std::string ignored;
    std::string process;
    std::string place;
    while (locks >> number >> kind >> ignored >> ignored >> process >> place) {
        std::getline(locks, ignored);
        if (kind == "FLOCK" && place == wanted.data()) {
            std::ifstream command("/proc/" + process + "/comm");
            std::string name;
            std::getline(command, name);
            return name;
        }
    }
    return {};
}

int state_of_open(const COM_NODE& node) {
    std::array<pollfd, 1> port = {{{node.fd, 0, 0}}};
    RS232_PollUntil(port, {});
    return port[0].revents == 0 ? TAVU_PORT_OPEN : TAVU_PORT_GONE;
}

int state_of_unopenable(const char* path, int error, char* who) {
    switch (error) {
        case ENOENT:
        case ENXIO:
        case ENODEV:
            return TAVU_PORT_ABSENT;
        case EACCES:
        case EPERM:
            copy_text(who, group_of(path));
            return TAVU_PORT_DENIED;
        case EBUSY:
            return TAVU_PORT_HELD;
        default:
            copy_text(who, std::strerror(error));
            return TAVU_PORT_FAULTY;
    }
}

std::string reason(int state, const std::string& who) {
    switch (state) {
        case TAVU_PORT_ABSENT:
            return "there is no such device; plug the module in";
        case TAVU_PORT_DENIED:
            return "you may not open it; join the group " +
                   (who.empty() ? "that owns it (dialout on Debian)" : who) + " and log in again";
        case TAVU_PORT_HELD:
            return (who.empty() ? "another program" : "the program " + who) +
                   " holds it; end that program";
        case TAVU_PORT_FAULTY:
            return "it cannot be opened: " + who;
        case TAVU_PORT_GONE:
            return "the module is gone";
        default:
            return "it does not answer as a module does";
    }
}

}  // namespace
}  // namespace tavu

using namespace tavu;

int TAVUPortState(int com_port, char* who) {
    copy_text(who, {});
    const char* const path = TAVUPortName(com_port);
    if (path == nullptr) {
        return TAVU_PORT_ABSENT;
    }
    if (const COM_NODE* node = chk_is_legal_com(com_port)) {
        return state_of_open(*node);
    }
    const OpenFile file(path);
    if (file.fd < 0) {
        return state_of_unopenable(path, errno, who);
    }
    if (flock(file.fd, LOCK_EX | LOCK_NB) != 0) {
        copy_text(who, locker_of(file.fd));
        return TAVU_PORT_HELD;
    }
    return TAVU_PORT_FREE;
}

int TAVUPortReason(int com_port, char* text) {
    std::array<char, TAVU_WHO_SIZE> who{};
    const int state = TAVUPortState(com_port, who.data());
    copy_text(text, reason(state, who.data()), TAVU_REASON_SIZE);
    return state;
}
