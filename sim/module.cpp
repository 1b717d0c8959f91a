// sim/module.cpp - simulated module: the module's state and its answer to every command.
// Uses sim/commands.h for the answers, sim/wire.h for reports, sim/bus.h for the settings of the bus.
// Thread: one at a time.
// SPDX-License-Identifier: MIT
#include "sim/module.h"

#include <algorithm>

namespace sim {

namespace {

constexpr std::uint8_t kWarningLevel = 96;

// Errors logged, receive counter with the passive bit, transmit counter.
ErrorData counter_bytes(const ErrorCounters& counters) {
    const int passive = counters.receive > 127 ? 0x80 : 0x00;
    const auto receive = static_cast<std::uint8_t>(std::min<int>(counters.receive, 127) | passive);
    return {0, 0, 0, counters.logged, receive, counters.transmit};
}

// Last error in bits 0-2, activity "on the bus" in bits 3-4, error passive in bit 5, warning level
// in bit 6, bus off in bit 7.
ErrorData status_bytes(const ErrorCounters& counters) {
    const int worst = std::max(counters.receive, counters.transmit);
    const int level = (counters.is_passive() ? 0x20 : 0) | (worst >= kWarningLevel ? 0x40 : 0) |
                      (counters.bus_off ? 0x80 : 0);
    const auto last_error = static_cast<std::uint8_t>(counters.last_error);
    return {0, 0, 0, 0, 0, static_cast<std::uint8_t>(last_error | 0x08 | level)};
}

}  // namespace

Bytes reply(std::uint8_t command, Status status, ByteView data) {
    Bytes bytes(2 + data.size());
    bytes[0] = command;
    bytes[1] = static_cast<std::uint8_t>(status);
    std::copy(data.begin(), data.end(), bytes.begin() + 2);
    seal(bytes);
    return bytes;
}

std::array<ErrorData, kChannels> counter_data(const ModuleState& state) {
    return {counter_bytes(state.errors[0]), counter_bytes(state.errors[1])};
}

Answer Module::execute(const Command& command) {
    const CommandRow& row = *command.row;
    const bool active = state_.running[0] != 0 || state_.running[1] != 0;
    Outcome outcome;
    if (!command.intact) {
        outcome.status = Status::refused;
    } else if (row.refused == Refused::active && active) {
        outcome.status = Status::busy;
    } else {
        const ByteView bytes = command.bytes;
        outcome = row.carry_out(state_, bytes.subspan(1, bytes.size() - 1 - kClosingBytes));
    }
    if (row.refused == Refused::never) {
        return {{}, outcome.frame};
    }
    return {reply(row.code, outcome.status, outcome.data), std::nullopt};
}

PortSettings Module::port(int channel) const {
    const auto c = static_cast<std::size_t>(channel);
    const ByteView config = ByteView(state_.config).subspan(c * kChannelBytes, kChannelBytes);
    const ByteView fd = ByteView(state_.fd_config).subspan(c * 2, 2);
    PortSettings port;
    port.started = state_.running.at(c) != 0;
    port.listen = config[kModeAt] != 0;
    port.rates.nominal_bps =
        kNominalBps.at(std::min<std::size_t>(config[kRateAt], kNominalBps.size() - 1));
    port.fd = fd[0] != 0;
    port.rates.data_bps = fd[1] * 1'000'000U;
    port.filter_type = config[kFilterAt];
    port.filter_id = big_endian(config.subspan(kFilterAt + 1));
    port.filter_mask = big_endian(config.subspan(kFilterAt + 5));
    return port;
}

void Module::note_errors(int channel, const ErrorCounters& counters) {
    state_.errors.at(static_cast<std::size_t>(channel)) = counters;
}

Bytes Module::error_reports() const {
    const std::uint8_t wanted = state_.config[kErrorTypeAt];
    if (wanted == kReportNone || wanted == kReportRomErrors) {
        return {};
    }
    Bytes reports = bus_error_report(counter_data(state_));
    const Bytes status =
        protocol_status_report({status_bytes(state_.errors[0]), status_bytes(state_.errors[1])});
    reports.insert(reports.end(), status.begin(), status.end());
    return reports;
}

bool Module::reports_rom_errors() const {
    const std::uint8_t wanted = state_.config[kErrorTypeAt];
    return wanted == kReportRomErrors || wanted == kReportAll;
}

}  // namespace sim
