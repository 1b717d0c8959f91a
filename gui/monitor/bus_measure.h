// gui/monitor/bus_measure.h - user interface: frames/s, load and error counters of both channels, now and before.
// Only gui/monitor/ and its tests include it.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_MONITOR_BUS_MEASURE_H
#define GUI_MONITOR_BUS_MEASURE_H

#include "service/apipart.h"

#include "trace/bus_load.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

// ---- Numbers -------------------------------------------------------------------------------

// Error counters of a channel as the module last reported them.
struct BusErrors {
    std::int64_t time_us = -1;  // of the report; below 0: none has come
    int sent = 0;
    int received = 0;  // 128 stands for all from there on: the module does not tell them apart
};
inline constexpr int kErrorWarning = 96;   // a counter from which a controller warns
inline constexpr int kErrorPassive = 128;  // and from which it is error passive

struct BusNow {
    double frames_per_s = 0;
    double percent = 0;        // of the time, while it is known
    bool has_percent = false;  // all bit rates that were needed are known
    BusErrors errors;
};

using BusSample = std::array<BusNow, TAVU_CHANNEL_CNT>;

inline constexpr std::int64_t kBusSpan_us = 300'000'000;  // how far the history goes back

// One sample a second, and some to reach over the begin of the span.
struct BusHistory {
    struct Entry {
        std::int64_t time_us = 0;
        BusSample sample{};
    };
    static constexpr std::size_t kMost = 304;

    std::array<Entry, kMost> entries{};
    std::size_t count = 0;
    std::size_t next = 0;

    // From the oldest one, 0 to count - 1.
    [[nodiscard]] const Entry& at(std::size_t i) const {
        return entries[(next + kMost - count + i) % kMost];
    }
};

// Numbers are read four times a second, each over the last second, so that they can be read.
inline constexpr std::int64_t kBusReading_us = 250'000;
inline constexpr std::size_t kBusReadings = 4;

struct BusMeasure {
    struct Reading {
        std::int64_t passed_us = 0;
        std::array<std::uint64_t, TAVU_CHANNEL_CNT> frames{};
        std::array<std::int64_t, TAVU_CHANNEL_CNT> busy_ns{};
        std::array<bool, TAVU_CHANNEL_CNT> is_untimed{};  // a bit rate was not known
    };
    trace::BusMeter meter{};
    std::array<bool, TAVU_CHANNEL_CNT> is_untimed{};  // since the last reading
    std::array<Reading, kBusReadings> readings{};
    std::size_t reading_cnt = 0;
    std::int64_t read_us = 0;
    BusSample now{};
    BusHistory history{};
};

// All times are of one clock that never goes back, in microseconds.

// Forgets all and begins anew.
void bus_measure_begin(BusMeasure* measure, std::int64_t now_us);

// Adds a frame, or an error frame, of which those with error counters count.
void bus_measure_add(BusMeasure* measure, const trace::Record& record);

// When a reading is due: brings `now` up to date and each second adds it to the history. `rates` are
// those of the channels from now on. False: none is due.
bool bus_measure_read(BusMeasure* measure,
                      const std::array<trace::BusRates, TAVU_CHANNEL_CNT>& rates,
                      std::int64_t now_us);

// ---- Of the module's configuration ----------------------------------------------------------

// Bit rates of both channels; 0: not known.
std::array<trace::BusRates, TAVU_CHANNEL_CNT> bus_rates(const UPUI_INFO& configuration);

// ---- Words ----------------------------------------------------------------------------------

// "500 kbit/s", "1 Mbit/s, 2 Mbit/s", "Unknown".
std::string bus_rate_words(const trace::BusRates& rates);
// "12.3 %"; "Unknown" when a bit rate is.
std::string bus_load_words(const BusNow& now);
// "5"; a dash while nothing is known. Of the received ones also "128+".
std::string bus_sent_words(const BusErrors& errors);
std::string bus_received_words(const BusErrors& errors);
// What the counters mean, and how long ago they were reported: "Active, now", "Warning, 12 s ago",
// "Passive, 3 min ago"; "Not reported".
std::string bus_state_words(const BusErrors& errors, std::int64_t now_us);

#endif
