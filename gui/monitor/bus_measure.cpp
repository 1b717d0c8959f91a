// gui/monitor/bus_measure.cpp - user interface: measures both channels and puts the numbers into words.
// Uses trace/bus_load.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/bus_measure.h"

#include "gui/widgets.h"

#include <algorithm>

namespace {

constexpr double kMicrosInSecond = 1e6;
constexpr const char* kNothing = "–";

std::string printed(const char* format, double value) {
    std::array<char, G_ASCII_DTOSTR_BUF_SIZE> text{};
    g_ascii_formatd(text.data(), static_cast<int>(text.size()), format, value);
    return text.data();
}

std::string rate_words(std::uint32_t bps) {
    constexpr std::uint32_t kMega = 1'000'000;
    return bps >= kMega ? printed("%g", static_cast<double>(bps) / kMega) + " Mbit/s"
                        : printed("%g", static_cast<double>(bps) / 1000) + " kbit/s";
}

std::string age_words(std::int64_t age_us) {
    constexpr std::int64_t kMinute_s = 60;
    const std::int64_t age_s = age_us / G_USEC_PER_SEC;
    if (age_s < 1) {
        return "now";
    }
    return age_s < 2 * kMinute_s ? std::to_string(age_s) + " s ago"
                                 : std::to_string(age_s / kMinute_s) + " min ago";
}

// What the last readings say of a channel together.
void update_channel(BusMeasure* measure, std::size_t channel) {
    BusMeasure::Reading sum;
    for (const BusMeasure::Reading& reading : measure->readings) {
        sum.passed_us += reading.passed_us;
        sum.frames[channel] += reading.frames[channel];
        sum.busy_ns[channel] += reading.busy_ns[channel];
        sum.is_untimed[channel] = sum.is_untimed[channel] || reading.is_untimed[channel];
    }
    BusNow& now = measure->now[channel];
    const auto passed_us = static_cast<double>(sum.passed_us);
    now.frames_per_s = static_cast<double>(sum.frames[channel]) * kMicrosInSecond / passed_us;
    now.percent = static_cast<double>(sum.busy_ns[channel]) / 10 / passed_us;  // ns, us, per cent
    now.has_percent = !sum.is_untimed[channel] && measure->meter.rates[channel].nominal_bps != 0;
}

void history_add(BusHistory* history, const BusHistory::Entry& entry) {
    history->entries[history->next] = entry;
    history->next = (history->next + 1) % BusHistory::kMost;
    history->count = std::min(history->count + 1, BusHistory::kMost);
}

}  // namespace

void bus_measure_begin(BusMeasure* measure, std::int64_t now_us) {
    *measure = {};
    measure->read_us = now_us;
    trace::meter_start(&measure->meter, {}, now_us);
}

void bus_measure_add(BusMeasure* measure, const trace::Record& record) {
    const CAN_FRAME_INFO& frame = record.frame;
    const auto channel = static_cast<std::size_t>(frame.CAN_port);
    if (trace::frame_is_data(frame)) {
        if (trace::meter_add(&measure->meter, record) != TAVU_SUCCESS) {
            measure->is_untimed[channel] = true;
        }
    } else if ((frame.id & trace::kErrorCounters) != 0) {
        constexpr std::size_t kSentAt = 6;
        constexpr std::size_t kReceivedAt = 7;
        measure->now[channel].errors = {
            .time_us = measure->read_us,
            .sent = frame.data[kSentAt],
            .received = std::min<int>(frame.data[kReceivedAt], kErrorPassive)};
    }
}

bool bus_measure_read(BusMeasure* measure,
                      const std::array<trace::BusRates, TAVU_CHANNEL_CNT>& rates,
                      std::int64_t now_us) {
    if (now_us - measure->read_us < kBusReading_us) {
        return false;
    }
    BusMeasure::Reading& reading = measure->readings[measure->reading_cnt++ % kBusReadings];
    reading.passed_us = now_us - measure->read_us;
    reading.is_untimed = measure->is_untimed;
    measure->is_untimed = {};
    for (int i = 0; i < TAVU_CHANNEL_CNT; ++i) {
        const auto channel = static_cast<std::size_t>(i);
        const trace::BusLoad load = trace::meter_read(&measure->meter, i, now_us);
        reading.frames[channel] = load.frames;
        reading.busy_ns[channel] = load.busy_ns;
    }
    measure->meter.rates = rates;
    measure->read_us = now_us;
    for (std::size_t channel = 0; channel < rates.size(); ++channel) {
        update_channel(measure, channel);
    }
    if (measure->reading_cnt % kBusReadings == 0) {
        history_add(&measure->history, {.time_us = now_us, .sample = measure->now});
    }
    return true;
}

std::array<trace::BusRates, TAVU_CHANNEL_CNT> bus_rates(const UPUI_INFO& configuration) {
    constexpr std::uint32_t kMega = 1'000'000;
    std::array<trace::BusRates, TAVU_CHANNEL_CNT> rates{};
    const bool is_fd = configuration.device_type == 1;
    for (std::size_t i = 0; i < rates.size(); ++i) {
        const unsigned char code =
            is_fd ? configuration.cfg_info_canfd.baud[i] : configuration.cfg_info.baud[i];
        rates[i].nominal_bps = trace::rate_bps(code);
        if (is_fd && configuration.cfg_info_canfd.fdf_en[i] == TAVU_FDF_ON) {
            rates[i].data_bps = configuration.cfg_info_canfd.datarate[i] * kMega;
        }
    }
    return rates;
}

std::string bus_rate_words(const trace::BusRates& rates) {
    if (rates.nominal_bps == 0) {
        return "Unknown";
    }
    const std::string data = rates.data_bps == 0 ? "" : ", " + rate_words(rates.data_bps);
    return rate_words(rates.nominal_bps) + data;
}

std::string bus_load_words(const BusNow& now) {
    return now.has_percent ? printed("%.1f", now.percent) + " %" : "Unknown";
}

std::string bus_sent_words(const BusErrors& errors) {
    return errors.time_us < 0 ? kNothing : std::to_string(errors.sent);
}

std::string bus_received_words(const BusErrors& errors) {
    if (errors.time_us < 0) {
        return kNothing;
    }
    return errors.received < kErrorPassive ? std::to_string(errors.received) : "128+";
}

std::string bus_state_words(const BusErrors& errors, std::int64_t now_us) {
    if (errors.time_us < 0) {
        return "Not reported";
    }
    const int higher = std::max(errors.sent, errors.received);
    const char* const low = higher >= kErrorWarning ? "Warning, " : "Active, ";
    return (higher >= kErrorPassive ? "Passive, " : low) + age_words(now_us - errors.time_us);
}
