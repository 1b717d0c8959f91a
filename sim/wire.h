// sim/wire.h - simulated module: command parser and report builder of the module's side of the wire.
// Only sim/ and tests/sim. Shares no code with the product, so that a mistake cannot cancel out.
// Thread: any; no shared state.
// SPDX-License-Identifier: MIT
#ifndef SIM_WIRE_H
#define SIM_WIRE_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace sim {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

inline constexpr int kChannels = 2;
inline constexpr std::size_t kClosingBytes = 3;  // of a command or report: checksum, CR, LF

// A frame as it stands on the bus, with the channel of the module that sends or receives it.
struct Frame {
    int channel = 0;        // 0 = CAN 1, 1 = CAN 2
    std::uint32_t id = 0;   // 11 or 29 bits
    std::uint8_t dlc = 0;   // DLC code, 0 to 15
    bool extended = false;  // 29-bit identifier
    bool remote = false;    // classic frames only
    bool fd = false;        // CAN FD format
    bool brs = false;       // data phase at the data bit rate
    bool esi = false;       // the sender is error passive
    std::array<std::uint8_t, 64> data{};

    bool operator==(const Frame&) const = default;
};

// Time on the module's own clock, which starts with the module.
struct TimeStamp {
    std::uint32_t second = 0;
    std::uint32_t micro_second = 0;  // below a million
};
TimeStamp time_stamp(std::chrono::microseconds age);

// The bits of an identifier that exist.
constexpr std::uint32_t id_mask(bool extended) {
    return extended ? 0x1FFFFFFFU : 0x7FFU;
}

// The highest DLC code that means a length of its own.
constexpr std::uint8_t highest_dlc(bool fd) {
    return fd ? 15 : 8;
}

// Payload bytes of a DLC code; codes above 8 count as 8 in a classic frame.
int payload_length(std::uint8_t dlc, bool fd);

struct CommandRow;

// One command as it came from the host; not intact when its checksum or closing bytes are wrong.
struct Command {
    const CommandRow* row;
    Bytes bytes;
    bool intact = true;
};

// Cuts the host's byte stream into commands by command byte and length. Bytes that start no command
// are skipped; after a command with wrong closing bytes reading goes on behind its first CR LF.
class CommandReader {
  public:
    void feed(ByteView bytes);
    // The next complete command, none when more bytes are needed.
    std::optional<Command> next();
    // Bytes skipped so far, each of which starts no command the module knows.
    [[nodiscard]] std::uint64_t skipped() const { return skipped_; }

  private:
    std::size_t resume_after_damage(std::size_t length) const;

    Bytes pending_;
    std::size_t start_ = 0;  // first byte of pending_ that is not consumed
    std::uint64_t skipped_ = 0;
};

// Of a frame command: classic frames only, or with the flags of CAN FD.
enum class FrameForm { classic, fd };

// The frame in the payload of a frame command; none when it names no channel of the module.
std::optional<Frame> decode_frame(ByteView payload, FrameForm form);

std::uint32_t big_endian(ByteView bytes);  // of the first four

// Appends the checksum over all bytes so far, then CR LF.
void seal(Bytes& bytes);

enum class ClassicReport { plain, stamped };

// Appends the report of a received frame: 0xF1 for CAN FD frames, else 0xE1, or 0xE2 when stamped.
void append_frame_report(Bytes& out, const Frame& frame, TimeStamp stamp, ClassicReport form);

// What an error report says about one channel.
using ErrorData = std::array<std::uint8_t, 6>;

Bytes rom_error_report();                                            // 0x99 0x01
Bytes bus_error_report(const std::array<ErrorData, 2>& data);        // 0x99 0x02
Bytes protocol_status_report(const std::array<ErrorData, 2>& data);  // 0x99 0x04

}  // namespace sim

#endif
