// sim/module.cpp - simulated module: the module's state and its answer to every command.
// Uses sim/wire.h for frames and reports, sim/bus.h for the settings of the bus.
// Thread: one at a time.
// SPDX-License-Identifier: MIT
#include "sim/module.h"

#include <algorithm>

namespace sim {

namespace {

constexpr std::size_t kChannelBytes = 11;  // configuration bytes of one channel
constexpr std::size_t kModeAt = 1;
constexpr std::size_t kFilterAt = 2;
constexpr std::size_t kFilterBytes = 9;
constexpr std::size_t kErrorTypeAt = 22;
constexpr std::size_t kClosingBytes = 3;

constexpr std::uint8_t kReportNone = 0;
constexpr std::uint8_t kReportRomErrors = 1;
constexpr std::uint8_t kReportBusErrors = 2;
constexpr std::uint8_t kReportAll = 255;

constexpr std::uint8_t kSlowRateCodes = 4;     // codes below are the rates under 100 kbit/s
constexpr std::uint8_t kSlowRateFirmware = 3;  // firmware digit from which these exist
constexpr std::uint8_t kWarningLevel = 96;
constexpr std::uint8_t kPassiveLevel = 128;

// Index: bit-rate code. The last two are the custom rates.
constexpr std::array<std::uint32_t, 13> kNominalBps{5'000,   10'000,  20'000,  50'000,  100'000,
                                                    125'000, 250'000, 500'000, 800'000, 1'000'000,
                                                    400'000, 200'000, 300'000};
constexpr std::array<std::uint8_t, 6> kDataRates{2, 4, 5, 6, 8, 10};  // Mbit/s

std::uint32_t big_endian(ByteView bytes) {
    std::uint32_t value = 0;
    for (const std::uint8_t byte : bytes.first(4)) {
        value = value << 8 | byte;
    }
    return value;
}

bool both_at_most(ByteView pair, std::uint8_t highest) {
    return pair[0] <= highest && pair[1] <= highest;
}

bool is_data_rate(std::uint8_t code) {
    return std::find(kDataRates.begin(), kDataRates.end(), code) != kDataRates.end();
}

// The last three bytes of each channel: errors logged, receive counter with the passive bit,
// transmit counter.
ErrorData counter_data(const ErrorCounters& counters) {
    const std::uint8_t passive = counters.receive >= kPassiveLevel ? 0x80 : 0x00;
    const auto receive = static_cast<std::uint8_t>(std::min<int>(counters.receive, 127) | passive);
    return {0, 0, 0, counters.logged, receive, counters.transmit};
}

// The last byte of each channel: last error in bits 0-2, activity "on the bus" in bits 3-4,
// error passive in bit 5, warning level in bit 6.
ErrorData status_data(const ErrorCounters& counters) {
    const int worst = std::max(counters.receive, counters.transmit);
    const int level = (worst >= kPassiveLevel ? 0x20 : 0) | (worst >= kWarningLevel ? 0x40 : 0);
    return {0, 0, 0, 0, 0, static_cast<std::uint8_t>(counters.last_error | 0x08 | level)};
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

Answer Module::execute(const Command& command) {
    const std::uint8_t code = command.bytes[0];
    const bool carries_frame = code == 0xE0 || code == 0xF0;
    if (!command.intact) {
        return {carries_frame ? Bytes{} : reply(code, Status::refused), std::nullopt};
    }
    if (carries_frame) {
        return {{}, decode_frame_command(command.bytes)};
    }
    if (Bytes data = read(command.bytes); !data.empty()) {
        return {std::move(data), std::nullopt};
    }
    return {reply(code, set(command.bytes)), std::nullopt};
}

// Replies of the reading commands; empty for any other command.
Bytes Module::read(ByteView command) const {
    const std::uint8_t code = command[0];
    switch (code) {
        case 0x35:
            return reply(code, Status::done, state_.firmware);
        case 0x36:
            return reply(code, Status::done, state_.build);
        case 0x37:
            return reply(code, Status::done, state_.config);
        case 0x60:
            return reply(code, Status::done, state_.running);
        case 0x62:
            return bus_status_report({counter_data(errors_[0]), counter_data(errors_[1])});
        case 0x47: {
            Bytes data(state_.config.begin(), state_.config.end());
            data.insert(data.end(), state_.fd_config.begin(), state_.fd_config.end());
            return reply(code, Status::done, data);
        }
        case 0x4C:
            return command[1] < state_.timing.size()
                       ? reply(code, Status::done, state_.timing.at(command[1]))
                       : reply(code, Status::refused);
        case 0x4D:
            return reply(code, Status::done, state_.vcom);
        default:
            return {};
    }
}

// The commands that work at any time; the settings of the channels are in change().
Status Module::set(ByteView command) {
    const ByteView payload = command.subspan(1, command.size() - 1 - kClosingBytes);
    switch (command[0]) {
        case 0x34:  // reset: the channels stop, the settings stay
            state_.running = {};
            return Status::done;
        case 0x38:
            return set_error_type(payload[0]);
        case 0x4E:
            if (payload[0] > 1) {
                return Status::refused;
            }
            state_.vcom[1] = payload[0];
            return Status::done;
        case 0x61:
            return set_running(payload);
        default:
            return any_running() ? Status::busy : change(command);
    }
}

Status Module::change(ByteView command) {
    const ByteView payload = command.subspan(1, command.size() - 1 - kClosingBytes);
    switch (command[0]) {
        case 0x30:
            return set_bit_rates(payload);
        case 0x31:
            return set_filter(0, payload);
        case 0x32:
            return set_filter(1, payload);
        case 0x33:
            return set_modes(payload);
        case 0x4A:
            return set_fd(payload);
        case 0x4B:
            return set_timing(payload);
        default:
            return Status::refused;
    }
}

Status Module::set_bit_rates(ByteView payload) {
    const bool slow_rates = (state_.firmware[0] & 0x0F) >= kSlowRateFirmware;
    const bool slow_asked = payload[0] < kSlowRateCodes || payload[1] < kSlowRateCodes;
    if (!both_at_most(payload, kNominalBps.size() - 1) || (slow_asked && !slow_rates)) {
        return Status::refused;
    }
    state_.config[0] = payload[0];
    state_.config[kChannelBytes] = payload[1];
    return Status::done;
}

Status Module::set_modes(ByteView payload) {
    if (!both_at_most(payload, 1)) {
        return Status::refused;
    }
    state_.config[kModeAt] = payload[0];
    state_.config[kChannelBytes + kModeAt] = payload[1];
    return Status::done;
}

Status Module::set_filter(int channel, ByteView payload) {
    if (payload[0] > 2) {
        return Status::refused;
    }
    const std::size_t at = static_cast<std::size_t>(channel) * kChannelBytes + kFilterAt;
    std::copy_n(payload.begin(), kFilterBytes,
                state_.config.begin() + static_cast<std::ptrdiff_t>(at));
    return Status::done;
}

// The command carries both data rates first, the state and its reply go channel by channel.
Status Module::set_fd(ByteView payload) {
    if (!is_data_rate(payload[0]) || !is_data_rate(payload[1]) ||
        !both_at_most(payload.subspan(2), 1)) {
        return Status::refused;
    }
    state_.fd_config = {payload[2], payload[0], payload[3], payload[1]};
    return Status::done;
}

Status Module::set_timing(ByteView payload) {
    if (payload[0] >= state_.timing.size()) {
        return Status::refused;
    }
    std::copy(payload.begin(), payload.end(), state_.timing.at(payload[0]).begin());
    return Status::done;
}

Status Module::set_error_type(std::uint8_t code) {
    if (code > kReportBusErrors && code != kReportAll) {
        return Status::refused;
    }
    state_.config[kErrorTypeAt] = code;
    return Status::done;
}

Status Module::set_running(ByteView payload) {
    if (!both_at_most(payload, 1)) {
        return Status::refused;
    }
    state_.running = {payload[0], payload[1]};
    return Status::done;
}

bool Module::any_running() const {
    return state_.running[0] != 0 || state_.running[1] != 0;
}

PortSettings Module::port(int channel) const {
    const auto c = static_cast<std::size_t>(channel);
    const ByteView config = ByteView(state_.config).subspan(c * kChannelBytes, kChannelBytes);
    const ByteView fd = ByteView(state_.fd_config).subspan(c * 2, 2);
    PortSettings port;
    port.started = state_.running.at(c) != 0;
    port.listen = config[kModeAt] != 0;
    port.nominal_bps = kNominalBps.at(std::min<std::size_t>(config[0], kNominalBps.size() - 1));
    port.fd = fd[0] != 0;
    port.data_bps = fd[1] * 1'000'000U;
    port.filter_type = config[kFilterAt];
    port.filter_id = big_endian(config.subspan(kFilterAt + 1));
    port.filter_mask = big_endian(config.subspan(kFilterAt + 5));
    return port;
}

void Module::note_errors(int channel, const ErrorCounters& counters) {
    errors_.at(static_cast<std::size_t>(channel)) = counters;
}

Bytes Module::error_reports() const {
    const std::uint8_t wanted = state_.config[kErrorTypeAt];
    if (wanted == kReportNone || wanted == kReportRomErrors) {
        return {};
    }
    Bytes reports = bus_error_report({counter_data(errors_[0]), counter_data(errors_[1])});
    const Bytes status = protocol_status_report({status_data(errors_[0]), status_data(errors_[1])});
    reports.insert(reports.end(), status.begin(), status.end());
    return reports;
}

bool Module::reports_rom_errors() const {
    const std::uint8_t wanted = state_.config[kErrorTypeAt];
    return wanted == kReportRomErrors || wanted == kReportAll;
}

}  // namespace sim
