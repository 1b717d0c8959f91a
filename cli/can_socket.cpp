// cli/can_socket.cpp - command: a CAN interface of the system, to write frames to and read from.
// Uses the kernel's raw CAN sockets, trace/record.h.
// Thread: any; one writer and one reader at a time.
// SPDX-License-Identifier: MIT
#include "cli/can_socket.h"

#include "trace/record.h"

#include <linux/can.h>
#include <linux/can/error.h>
#include <linux/can/raw.h>
#include <linux/sock_diag.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace cli {

namespace {

std::string reason(const std::string& interface, const char* what) {
    return interface + ": " + what;
}

canfd_frame to_socket(const CAN_FRAME_INFO& frame) {
    canfd_frame raw{};
    raw.can_id = frame.id;
    if (!trace::frame_is_data(frame)) {
        raw.can_id |= CAN_ERR_FLAG;
        raw.len = CAN_ERR_DLC;
    } else {
        raw.can_id |= frame.id_type == TAVU_EID ? CAN_EFF_FLAG : 0;
        raw.can_id |= frame.rtr == TAVU_EN_RTR ? CAN_RTR_FLAG : 0;
        raw.len = static_cast<__u8>(frame.rtr == TAVU_EN_RTR ? std::min(frame.dlc, CAN_MAX_DLEN)
                                                             : trace::payload_bytes(frame));
    }
    raw.flags = static_cast<__u8>((frame.brs == TAVU_BRS_ON ? CANFD_BRS : 0) |
                                  (frame.esi != 0 ? CANFD_ESI : 0));
    std::memcpy(raw.data, frame.data, trace::frame_is_data(frame) ? raw.len : CAN_ERR_DLC);
    return raw;
}

CAN_FRAME_INFO from_socket(const canfd_frame& raw, bool is_fd) {
    CAN_FRAME_INFO frame{};
    const bool is_extended = (raw.can_id & CAN_EFF_FLAG) != 0;
    frame.id_type = is_extended ? TAVU_EID : TAVU_SID;
    frame.id = raw.can_id & (is_extended ? CAN_EFF_MASK : CAN_SFF_MASK);
    frame.rtr = (raw.can_id & CAN_RTR_FLAG) != 0 ? TAVU_EN_RTR : TAVU_DIS_RTR;
    frame.fdf = is_fd ? TAVU_FDF_ON : TAVU_FDF_OFF;
    frame.brs = is_fd && (raw.flags & CANFD_BRS) != 0 ? TAVU_BRS_ON : TAVU_BRS_OFF;
    frame.esi = is_fd && (raw.flags & CANFD_ESI) != 0 ? 1 : 0;
    const int length = std::min<int>(raw.len, is_fd ? CANFD_MAX_DLEN : CAN_MAX_DLEN);
    frame.dlc = is_fd ? std::max(trace::fd_dlc(length), 0) : length;
    if (frame.rtr == TAVU_DIS_RTR) {
        std::memcpy(frame.data, raw.data, static_cast<std::size_t>(length));
    }
    return frame;
}

// The kernel's usual room is for some 280 frames, less than a bus carries in a tenth of a second.
// Only with the right to it the system gives as much as is asked for; else what it allows to all.
void receive_buffer_widen(int fd) {
    constexpr int kBytes = 4 << 20;
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &kBytes, sizeof kBytes) != 0) {
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kBytes, sizeof kBytes);
    }
}

}  // namespace

CanSocket::~CanSocket() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

std::optional<std::string> CanSocket::open(const std::string& interface, bool with_fd) {
    fd_ = socket(PF_CAN, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, CAN_RAW);
    if (fd_ < 0) {
        return reason(interface, "the system has no CAN sockets (modprobe can-raw)");
    }
    ifreq request{};
    if (interface.size() >= sizeof request.ifr_name) {
        return reason(interface, "no interface has so long a name");
    }
    interface.copy(request.ifr_name, interface.size());
    const auto index = if_nametoindex(request.ifr_name);
    if (index == 0) {
        return reason(interface, "there is no such interface (ip link add dev NAME type vcan)");
    }
    if (ioctl(fd_, SIOCGIFMTU, &request) != 0 ||
        (request.ifr_mtu != CAN_MTU && request.ifr_mtu != CANFD_MTU)) {
        return reason(interface, "it is no CAN interface");
    }
    if (with_fd && request.ifr_mtu != CANFD_MTU) {
        return reason(interface, "it cannot carry CAN FD (ip link set NAME mtu 72)");
    }
    if (ioctl(fd_, SIOCGIFFLAGS, &request) != 0 || (request.ifr_flags & IFF_UP) == 0) {
        return reason(interface, "it is down (ip link set NAME up)");
    }
    const int on = 1;
    setsockopt(fd_, SOL_CAN_RAW, CAN_RAW_FD_FRAMES, &on, sizeof on);
    receive_buffer_widen(fd_);
    sockaddr_can address{};
    address.can_family = AF_CAN;
    address.can_ifindex = static_cast<int>(index);
    if (bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return reason(interface, std::strerror(errno));
    }
    return std::nullopt;
}

bool CanSocket::write(const CAN_FRAME_INFO& frame) const {
    const canfd_frame raw = to_socket(frame);
    const std::size_t size = frame.fdf == TAVU_FDF_ON ? CANFD_MTU : CAN_MTU;
    return ::write(fd_, &raw, size) == static_cast<ssize_t>(size);
}

std::optional<CAN_FRAME_INFO> CanSocket::read() const {
    canfd_frame raw{};
    const ssize_t size = ::read(fd_, &raw, sizeof raw);
    const bool is_frame = size == CAN_MTU || size == CANFD_MTU;
    return is_frame ? std::optional(from_socket(raw, size == CANFD_MTU)) : std::nullopt;
}

// Asked for, as the count that comes with a frame lacks what was dropped behind it.
std::uint32_t CanSocket::overflowed() const {
    std::array<std::uint32_t, SK_MEMINFO_VARS> values{};
    socklen_t size = sizeof values;
    getsockopt(fd_, SOL_SOCKET, SO_MEMINFO, values.data(), &size);
    return values[SK_MEMINFO_DROPS];
}

}  // namespace cli
