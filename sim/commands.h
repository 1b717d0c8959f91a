// sim/commands.h - simulated module: every command that a module understands, one row each.
// Only sim/ and tests/sim.
// Thread: any; the table is constant.
// SPDX-License-Identifier: MIT
#ifndef SIM_COMMANDS_H
#define SIM_COMMANDS_H

#include "sim/wire.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace sim {

struct ModuleState;

// In the order of the rows.
enum class CommandId {
    bit_rates,
    filter_can1,
    filter_can2,
    modes,
    reset,
    firmware,
    build,
    configuration,
    error_reports,
    whole_configuration,
    fd_settings,
    timing_write,
    timing_read,
    virtual_port,
    virtual_port_assign,
    run_state,
    run,
    bus_status,
    frame,
    fd_frame,
    kEnd
};
inline constexpr std::size_t kCommandCnt = static_cast<std::size_t>(CommandId::kEnd);

// Second byte of a reply.
enum class Status : std::uint8_t {
    done = 0,
    refused = 1,  // damaged command or a value out of range
    busy = 2,     // a setting that needs both channels stopped
};

// When a command is answered with a status other than done.
enum class Refused {
    never,   // has no reply at all: it carries a frame, and a bad one is dropped
    bad,     // damaged, or a value is out of range
    active,  // the same, and while a channel runs
};

// What carrying out a command leads to.
struct Outcome {
    Status status = Status::done;
    Bytes data{};                  // of the reply
    std::optional<Frame> frame{};  // for the bus
};

inline constexpr std::size_t kLengthByDlc = 0;  // the DLC is in the second byte

// What carries a command out. It has no default, so that a row without one does not compile.
class Handler {
  public:
    // Takes the bytes between the code and the checksum; a refusal leaves the state as it was.
    using Call = Outcome (*)(ModuleState& state, ByteView payload);
    constexpr Handler(Call call) : call_(call) {}
    Outcome operator()(ModuleState& state, ByteView payload) const { return call_(state, payload); }

  private:
    Call call_;
};

struct CommandRow {
    CommandId id;
    std::uint8_t code;  // first byte on the wire
    std::size_t bytes;  // from the code to LF, or kLengthByDlc
    const char* name;
    Refused refused;
    Handler carry_out;
};

std::span<const CommandRow, kCommandCnt> command_rows();
// The row of a command byte; none when no command starts with it.
const CommandRow* find_command(std::uint8_t code);

}  // namespace sim

#endif
