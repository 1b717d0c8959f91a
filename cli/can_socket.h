// cli/can_socket.h - command: a CAN interface of the system, to write frames to and read from.
// Thread: any; one writer and one reader at a time.
// SPDX-License-Identifier: MIT
#ifndef CLI_CAN_SOCKET_H
#define CLI_CAN_SOCKET_H

#include "lib/lib_tavu_2.h"

#include <cstdint>
#include <optional>
#include <string>

namespace cli {

class CanSocket {
  public:
    CanSocket() = default;
    ~CanSocket();
    CanSocket(const CanSocket&) = delete;
    CanSocket& operator=(const CanSocket&) = delete;

    // Binds to an interface that is there and up. Result: what is wrong, or nothing.
    std::optional<std::string> open(const std::string& interface, bool with_fd);
    // A valid frame, or an error frame of trace/. False: it was not taken, errno tells why.
    [[nodiscard]] bool write(const CAN_FRAME_INFO& frame) const;
    // The next frame that another program wrote, none when there is none at the moment.
    [[nodiscard]] std::optional<CAN_FRAME_INFO> read() const;
    // Frames of other programs that the system dropped, as they were not read in time.
    [[nodiscard]] std::uint32_t overflowed() const;
    [[nodiscard]] int fd() const { return fd_; }

  private:
    int fd_ = -1;
};

}  // namespace cli

#endif
