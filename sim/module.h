// sim/module.h - simulated module: the module's state and its answer to every command.
// Only sim/ and tests/sim. Commands in, bytes out, no I/O and no clock.
// Thread: one at a time.
// SPDX-License-Identifier: MIT
#ifndef SIM_MODULE_H
#define SIM_MODULE_H

#include "sim/bus.h"
#include "sim/wire.h"

#include <array>
#include <cstdint>
#include <optional>

namespace sim {

// What the module stores and reports about itself; tests may change any of it between commands.
// A new module runs both channels at 500 kbit/s, CAN FD off, without filters and error reports.
struct ModuleState {
    std::array<std::uint8_t, 2> firmware{0x03, 0x10};
    std::array<std::uint8_t, 2> build{0x12, 0x34};
    // The configuration bytes in wire order: for each channel bit-rate code, mode, filter type,
    // filter identifier (4), filter mask (4); then the error-report code.
    std::array<std::uint8_t, 23> config{7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7};
    // CAN 1 enable, CAN 1 data rate in Mbit/s, CAN 2 enable, CAN 2 data rate.
    std::array<std::uint8_t, 4> fd_config{0, 2, 0, 2};
    // The first byte of a set is its number.
    std::array<std::array<std::uint8_t, 16>, 3> timing{{{0}, {1}, {2}}};
    // Skip, assign, order, identifier (8).
    std::array<std::uint8_t, 11> vcom{1, 0, 0, 'S', 'I', 'M', '0', '0', '0', '0', '1'};
    std::array<std::uint8_t, 2> running{};
};

// Second byte of a reply.
enum class Status : std::uint8_t {
    done = 0,
    refused = 1,  // damaged command or a value out of range
    busy = 2,     // a setting that needs both channels stopped
};

Bytes reply(std::uint8_t command, Status status, ByteView data = {});

// What a command leads to.
struct Answer {
    Bytes reply;                 // empty: the command has none
    std::optional<Frame> frame;  // to be sent on the bus
};

class Module {
  public:
    explicit Module(const ModuleState& state) : state_(state) {}

    Answer execute(const Command& command);

    // How a channel takes part in the bus with the present settings.
    [[nodiscard]] PortSettings port(int channel) const;
    // The error counters that the module reports from now on.
    void note_errors(int channel, const ErrorCounters& counters);
    // The reports of a bus error, as far as the error-report setting wants them.
    [[nodiscard]] Bytes error_reports() const;
    [[nodiscard]] bool reports_rom_errors() const;

    [[nodiscard]] const ModuleState& state() const { return state_; }
    void set_state(const ModuleState& state) { state_ = state; }

  private:
    Status set(ByteView command);
    Status change(ByteView command);
    Status set_bit_rates(ByteView payload);
    Status set_modes(ByteView payload);
    Status set_filter(int channel, ByteView payload);
    Status set_fd(ByteView payload);
    Status set_timing(ByteView payload);
    Status set_error_type(std::uint8_t code);
    Status set_running(ByteView payload);
    [[nodiscard]] Bytes read(ByteView command) const;
    [[nodiscard]] bool any_running() const;

    ModuleState state_;
    std::array<ErrorCounters, kChannels> errors_{};
};

}  // namespace sim

#endif
