// sim/commands.cpp - simulated module: every command that a module understands, one row each.
// Uses sim/module.h for the state that a command reads or changes.
// Thread: any; the table is constant.
// SPDX-License-Identifier: MIT
#include "sim/commands.h"

#include "sim/module.h"

#include <algorithm>
#include <array>

namespace sim {

namespace {

constexpr std::size_t kFilterBytes = 9;        // type, identifier, mask
constexpr std::uint8_t kSlowRateCodes = 4;     // codes below are the rates under 100 kbit/s
constexpr std::uint8_t kSlowRateFirmware = 3;  // firmware digit from which these exist
constexpr std::array<std::uint8_t, 6> kDataRates{2, 4, 5, 6, 8, 10};  // Mbit/s

bool both_at_most(ByteView pair, std::uint8_t highest) {
    return pair[0] <= highest && pair[1] <= highest;
}

bool is_data_rate(std::uint8_t code) {
    return std::find(kDataRates.begin(), kDataRates.end(), code) != kDataRates.end();
}

Outcome with_data(ByteView data) {
    return {.data = Bytes(data.begin(), data.end())};
}

template <auto field>
Outcome read(ModuleState& state, ByteView /*payload*/) {
    return with_data(state.*field);
}

Outcome set_bit_rates(ModuleState& state, ByteView payload) {
    const bool slow_rates = (state.firmware[0] & 0x0F) >= kSlowRateFirmware;
    const bool slow_asked = payload[0] < kSlowRateCodes || payload[1] < kSlowRateCodes;
    if (!both_at_most(payload, kNominalBps.size() - 1) || (slow_asked && !slow_rates)) {
        return {Status::refused};
    }
    state.config[kRateAt] = payload[0];
    state.config[kChannelBytes + kRateAt] = payload[1];
    return {};
}

template <std::size_t at>
Outcome set_filter(ModuleState& state, ByteView payload) {
    if (payload[0] > 2) {
        return {Status::refused};
    }
    std::copy_n(payload.begin(), kFilterBytes,
                state.config.begin() + static_cast<std::ptrdiff_t>(at));
    return {};
}

Outcome set_modes(ModuleState& state, ByteView payload) {
    if (!both_at_most(payload, 1)) {
        return {Status::refused};
    }
    state.config[kModeAt] = payload[0];
    state.config[kChannelBytes + kModeAt] = payload[1];
    return {};
}

// The channels stop, the settings stay.
Outcome stop_channels(ModuleState& state, ByteView /*payload*/) {
    state.running = {};
    return {};
}

Outcome set_error_reports(ModuleState& state, ByteView payload) {
    if (payload[0] > kReportBusErrors && payload[0] != kReportAll) {
        return {Status::refused};
    }
    state.config[kErrorTypeAt] = payload[0];
    return {};
}

Outcome read_whole_configuration(ModuleState& state, ByteView /*payload*/) {
    Outcome outcome = with_data(state.config);
    outcome.data.insert(outcome.data.end(), state.fd_config.begin(), state.fd_config.end());
    return outcome;
}

// The command carries both data rates first, the state and its reply go channel by channel.
Outcome set_fd(ModuleState& state, ByteView payload) {
    if (!is_data_rate(payload[0]) || !is_data_rate(payload[1]) ||
        !both_at_most(payload.subspan(2), 1)) {
        return {Status::refused};
    }
    state.fd_config = {payload[2], payload[0], payload[3], payload[1]};
    return {};
}

Outcome write_timing(ModuleState& state, ByteView payload) {
    if (payload[0] >= state.timing.size()) {
        return {Status::refused};
    }
    std::copy(payload.begin(), payload.end(), state.timing.at(payload[0]).begin());
    return {};
}

Outcome read_timing(ModuleState& state, ByteView payload) {
    if (payload[0] >= state.timing.size()) {
        return {Status::refused};
    }
    return with_data(state.timing.at(payload[0]));
}

Outcome assign_virtual_port(ModuleState& state, ByteView payload) {
    if (payload[0] > 1) {
        return {Status::refused};
    }
    state.vcom[1] = payload[0];
    return {};
}

Outcome set_running(ModuleState& state, ByteView payload) {
    if (!both_at_most(payload, 1)) {
        return {Status::refused};
    }
    state.running = {payload[0], payload[1]};
    return {};
}

// The second byte of this answer is no status: it says what the data are.
Outcome read_bus_status(ModuleState& state, ByteView /*payload*/) {
    constexpr Status kErrorCounters{2};
    Outcome outcome{.status = kErrorCounters};
    for (const ErrorData& channel : counter_data(state)) {
        outcome.data.insert(outcome.data.end(), channel.begin(), channel.end());
    }
    return outcome;
}

template <FrameForm form>
Outcome send_frame(ModuleState& /*state*/, ByteView payload) {
    return {.frame = decode_frame(payload, form)};
}

using enum CommandId;
using enum Refused;

constexpr std::array<CommandRow, kCommandCnt> kRows{{
    {bit_rates, 0x30, 6, "bit rates", active, set_bit_rates},
    {filter_can1, 0x31, 13, "filter of CAN 1", active, set_filter<kFilterAt>},
    {filter_can2, 0x32, 13, "filter of CAN 2", active, set_filter<kChannelBytes + kFilterAt>},
    {modes, 0x33, 6, "modes", active, set_modes},
    {reset, 0x34, 4, "reset", bad, stop_channels},
    {firmware, 0x35, 4, "firmware", bad, read<&ModuleState::firmware>},
    {build, 0x36, 4, "build", bad, read<&ModuleState::build>},
    {configuration, 0x37, 4, "configuration", bad, read<&ModuleState::config>},
    {error_reports, 0x38, 5, "error reports", bad, set_error_reports},
    {whole_configuration, 0x47, 4, "whole configuration", bad, read_whole_configuration},
    {fd_settings, 0x4A, 8, "CAN FD settings", active, set_fd},
    {timing_write, 0x4B, 20, "timing set", active, write_timing},
    {timing_read, 0x4C, 5, "timing set read back", bad, read_timing},
    {virtual_port, 0x4D, 4, "virtual port", bad, read<&ModuleState::vcom>},
    {virtual_port_assign, 0x4E, 5, "virtual port assigned", bad, assign_virtual_port},
    {run_state, 0x60, 4, "run state", bad, read<&ModuleState::running>},
    {run, 0x61, 6, "run", bad, set_running},
    {bus_status, 0x62, 4, "bus status", bad, read_bus_status},
    {frame, 0xE0, 17, "frame", never, send_frame<FrameForm::classic>},
    {fd_frame, 0xF0, kLengthByDlc, "CAN FD frame", never, send_frame<FrameForm::fd>},
}};

constexpr bool rows_are_complete() {
    for (std::size_t i = 0; i < kRows.size(); ++i) {
        const CommandRow& row = kRows.at(i);
        const bool has_length = row.bytes == kLengthByDlc || row.bytes > kClosingBytes;
        if (row.id != static_cast<CommandId>(i) || !has_length || row.name == nullptr ||
            (i > 0 && row.code <= kRows.at(i - 1).code)) {
            return false;
        }
    }
    return true;
}
static_assert(rows_are_complete(),
              "every command has its row, in the order of the enumerators and codes");

}  // namespace

std::span<const CommandRow, kCommandCnt> command_rows() {
    return kRows;
}

const CommandRow* find_command(std::uint8_t code) {
    const auto found = std::ranges::find(kRows, code, &CommandRow::code);
    return found == kRows.end() ? nullptr : &*found;
}

}  // namespace sim
