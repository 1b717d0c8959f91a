// sim/module.h - simulated module: the module's state and its answer to every command.
// Only sim/ and tests/sim. Commands in, bytes out, no I/O and no clock.
// Thread: one at a time.
// SPDX-License-Identifier: MIT
#ifndef SIM_MODULE_H
#define SIM_MODULE_H

#include "sim/bus.h"
#include "sim/commands.h"
#include "sim/wire.h"

#include <array>
#include <cstdint>
#include <optional>

namespace sim {

// Places in the configuration bytes: of one channel, then behind both.
inline constexpr std::size_t kChannelBytes = 11;
inline constexpr std::size_t kRateAt = 0;
inline constexpr std::size_t kModeAt = 1;
inline constexpr std::size_t kFilterAt = 2;  // type, identifier (4), mask (4)
inline constexpr std::size_t kErrorTypeAt = 22;

// Values of the error-report code.
inline constexpr std::uint8_t kReportNone = 0;
inline constexpr std::uint8_t kReportRomErrors = 1;
inline constexpr std::uint8_t kReportBusErrors = 2;
inline constexpr std::uint8_t kReportAll = 255;

// Index: bit-rate code. The last two are the custom rates.
inline constexpr std::array<std::uint32_t, 13> kNominalBps{
    5'000,   10'000,  20'000,    50'000,  100'000, 125'000, 250'000,
    500'000, 800'000, 1'000'000, 400'000, 200'000, 300'000};

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
    std::array<ErrorCounters, kChannels> errors{};
};

Bytes reply(std::uint8_t command, Status status, ByteView data = {});

// The error counters as bus-status and bus-error reports carry them.
std::array<ErrorData, kChannels> counter_data(const ModuleState& state);

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
    ModuleState state_;
};

}  // namespace sim

#endif
