// sim/station.h - simulated module: one module on its line, served by its own thread.
// Thread: every call from any thread.
// SPDX-License-Identifier: MIT
#ifndef SIM_STATION_H
#define SIM_STATION_H

#include "sim/connector.h"
#include "sim/module.h"
#include "sim/outgoing.h"
#include "sim/wire.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace sim {

// As many generated frames as the bus carries; with flooding, as many as the host reads.
inline constexpr double kUnlimited = std::numeric_limits<double>::infinity();

struct StationOptions {
    std::string device = "/dev/ttyACM0";  // the path that the product opens
    // Serial device to serve instead of a pty, such as the gadget side of a USB serial line; the
    // product then opens what is at the other end, and `device` means nothing.
    std::string serial{};
    ModuleState state{};
    int nodes = 0;             // generated nodes on the bus; each acknowledges every frame
    BitRates node_rates{};     // which they send and understand
    double traffic_per_s = 0;  // generated frames per second on the bus; above 0 at least one node
    bool flood = false;        // ignore bus timing; generated frames wait for the host
    bool stamp_classic = false;  // report classic frames with a time stamp (0xE2, else 0xE1)
    bool keep_commands = true;   // false: commands() stays empty; for long runs
    // Called on the station's thread with every complete command before it is carried out; must
    // not call the station.
    std::function<void(ByteView)> on_command{};
};

// Counts since the station started.
struct ChannelCounters {
    std::uint64_t from_host = 0;  // intact frame commands for the channel
    std::uint64_t refused = 0;    // of these: not sent, as the channel was stopped, listening,
                                  // without CAN FD, bus off, or stuck with its memory full
    std::uint64_t reports = 0;    // frame reports for the channel that were queued for the host
    std::uint64_t lost = 0;       // frame reports dropped because the host did not read
};

struct StationCounters {
    std::array<ChannelCounters, kChannels> channel{};
    std::uint64_t error_reports = 0;
    std::uint64_t garbage = 0;    // pieces of garbage put between reports
    std::uint64_t truncated = 0;  // frame reports that were cut
    std::uint64_t unknown = 0;    // bytes from the host that start no command the module knows
};

// A module at work. Its device path leads to it while it lives, for programs behind the serial shim
// (linked into this process, or preloaded and given the shared port table). A serial device that it
// serves instead may hang up: the module is then without power until the device can be opened again.
// Frames reach the host as 0xF1 reports when they are CAN FD frames, else as 0xE1 or 0xE2.
class Station {
  public:
    // Throws std::runtime_error when the path is not one a module may be attached to or is taken,
    // std::system_error when the system has no pty left or the serial device cannot be opened.
    explicit Station(StationOptions options = {});
    ~Station();
    Station(const Station&) = delete;
    Station& operator=(const Station&) = delete;

    // Every complete command that the host wrote, damaged ones too, in order, as it stood on the
    // wire.
    [[nodiscard]] std::vector<Bytes> commands() const;
    // Waits until at least `count` commands have come or the time is up.
    [[nodiscard]] std::vector<Bytes> wait_commands(std::size_t count,
                                                   std::chrono::milliseconds limit) const;
    void forget_commands();

    // Replaces the next reply to `command` by `reply`; an empty one means silence. Several for one
    // command are used in turn.
    void script_reply(std::uint8_t command, Bytes reply);

    // Bytes to the host as if the module had sent them. Blocks while the pty is full; gives up when
    // the module is unplugged.
    void send_to_host(ByteView bytes);
    // A frame from the bus for `frame.channel`, by the path of the generated frames: reported to
    // the host if the channel is started, its acceptance filter passes it and a CAN FD frame finds
    // CAN FD enabled. Blocks while the pty is full. Result: whether it was reported.
    bool receive_frame(const Frame& frame);
    // An EEPROM error, reported if the error-report setting asks for it. Result: whether it was.
    bool raise_rom_error();
    // Waits until the host has read everything, or the time is up. On a serial device: until all
    // has left its output queue.
    bool wait_drained(std::chrono::milliseconds limit) const;

    void set_fault(Fault fault);
    void set_traffic(double frames_per_s);
    void unplug();  // hangs up: the host sees the device vanish
    // A new pty under the same device path, or the serial device as soon as it can be opened; the
    // settings are kept.
    void plug();

    [[nodiscard]] ModuleState state() const;
    void set_state(const ModuleState& state);
    [[nodiscard]] StationCounters counters() const;
    [[nodiscard]] ModemLines lines() const;
    [[nodiscard]] std::string line_path() const;  // pty or serial device; empty while unplugged

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace sim

#endif
