// gui/monitor/identifiers_list.cpp - user interface: orders identifiers, follows their changed bytes.
// Uses trace/statistics.h, gui/monitor/filter.h, gui/monitor/trace_text.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/identifiers_list.h"

#include "gui/monitor/trace_text.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <new>
#include <tuple>

namespace {

constexpr std::size_t kBytes = trace::kFdBytes;

const trace::StatisticsRow& row_at(const IdentifierList& list, std::uint32_t row) {
    return trace::statistics_rows(list.statistics.get())[row];
}

// ---- Order ----

struct SortKey {
    std::uint64_t key;
    std::uint64_t identity;  // no two rows have the same
    std::uint32_t row;
};

std::uint64_t identifier_key(const trace::StatisticsRow& row) {
    constexpr int kIdBits = 29;
    return static_cast<std::uint64_t>(row.id_type) << kIdBits | row.id;
}

std::uint64_t identity_key(const trace::StatisticsRow& row) {
    return identifier_key(row) << 2 | static_cast<std::uint64_t>(row.channel) << 1 |
           static_cast<std::uint64_t>(row.is_sent);
}

std::uint64_t kind_key(const CAN_FRAME_INFO& frame) {
    return static_cast<std::uint64_t>(frame.fdf << 3 | frame.rtr << 2 | frame.brs << 1 | frame.esi);
}

std::uint64_t data_key(const CAN_FRAME_INFO& frame) {
    const int bytes = trace::payload_bytes(frame);
    std::uint64_t key = 0;
    for (int i = 0; i < 8; ++i) {
        key = key << 8 | (i < bytes ? frame.data[i] : 0U);
    }
    return key;
}

std::uint64_t key_of(const trace::StatisticsRow& row, int column) {
    const auto number = [](auto value) { return static_cast<std::uint64_t>(value); };
    switch (column) {
        case kIdChannel:
            return number(row.channel);
        case kIdDirection:
            return number(row.is_sent);
        case kIdKind:
            return kind_key(row.last);
        case kIdLength:
            return number(shown_length(row.last));
        case kIdCount:
            return row.count;
        case kIdPeriod:
            return number(row.period_us);
        case kIdShortest:
            return number(row.shortest_us);
        case kIdLongest:
            return number(row.longest_us);
        case kIdMean:
            return number(std::llround(trace::mean_period_us(row)));
        case kIdLast:
            return number(row.last_us);
        case kIdData:
            return data_key(row.last);
        default:
            return identifier_key(row);
    }
}

// ---- Cells ----

void append_number(std::string* text, const char* format, auto value) {
    std::array<char, 32> buffer{};
    const int length = std::snprintf(buffer.data(), buffer.size(), format, value);
    text->append(buffer.data(), static_cast<std::size_t>(length));
}

// Milliseconds; nothing while there was no period.
void append_period(const trace::StatisticsRow& row, double period_us, std::string* text) {
    if (row.periods > 0) {
        append_number(text, "%.3f", period_us / 1000);
    }
}

void append_time(std::int64_t time_us, std::string* text) {
    constexpr std::int64_t kSecond_us = 1'000'000;
    const std::time_t seconds = time_us / kSecond_us;
    std::tm local{};
    localtime_r(&seconds, &local);
    std::array<char, 16> buffer{};
    text->append(buffer.data(), std::strftime(buffer.data(), buffer.size(), "%H:%M:%S", &local));
    append_number(text, ".%03d", static_cast<int>(time_us % kSecond_us / 1000));
}

// Bytes side by side that are marked alike share one span. The ground is see-through, so that it
// suits light and dark themes and selected rows.
void append_data(const IdentifierList& list, std::uint32_t row, std::uint32_t now_ms,
                 std::string* text) {
    constexpr int kStep_percent = 11;
    const CAN_FRAME_INFO& frame = row_at(list, row).last;
    const int bytes = trace::payload_bytes(frame);
    int before = 0;
    for (int i = 0; i < bytes; ++i) {
        const int mark = identifiers_mark(list, row, i, now_ms);
        const bool is_new = mark != before;
        *text += is_new && before != 0 ? "</span>" : "";
        *text += i == 0 ? "" : " ";
        if (is_new && mark != 0) {
            *text += "<span weight=\"bold\" background=\"#F0A020\" bgalpha=\"";
            append_number(text, "%d%%\">", mark * kStep_percent);
        }
        byte_text(frame.data[i], text);
        before = mark;
    }
    *text += before != 0 ? "</span>" : "";
}

}  // namespace

// ---- Rows ----

bool identifiers_make(IdentifierList* list) {
    constexpr std::size_t kRows = trace::kStatisticsRows;
    *list = {};
    list->statistics = trace::statistics_make(trace::kStatisticsRows);
    list->changed_ms.reset(new (std::nothrow) std::uint32_t[kRows * kBytes]);
    if (list->statistics == nullptr || list->changed_ms == nullptr) {
        *list = {};
        return false;
    }
    list->shown.reserve(kRows);
    return true;
}

void identifiers_add(IdentifierList* list, const trace::Record& record, std::uint32_t now_ms) {
    if (list->statistics == nullptr) {
        return;
    }
    const int index = trace::statistics_add(list->statistics.get(), record);
    if (index < 0) {
        return;
    }
    const trace::StatisticsRow& row = row_at(*list, static_cast<std::uint32_t>(index));
    std::uint32_t* changed_ms = &list->changed_ms[static_cast<std::size_t>(index) * kBytes];
    list->longest = std::max(list->longest, trace::payload_bytes(row.last));
    if (row.count == 1) {
        std::fill_n(changed_ms, kBytes, 0);
    }
    for (std::uint64_t bits = row.changed; bits != 0; bits &= bits - 1) {
        changed_ms[std::countr_zero(bits)] = now_ms;
    }
}

void identifiers_clear(IdentifierList* list) {
    if (list->statistics != nullptr) {
        trace::statistics_clear(list->statistics.get());
    }
    list->shown.clear();
    list->seen = 0;
    list->longest = 0;
}

void identifiers_arrange(IdentifierList* list, const IdentifierSort& sort,
                         const FrameFilter& filter) {
    static std::vector<SortKey> keys;
    keys.clear();
    const auto rows = trace::statistics_rows(list->statistics.get());
    for (std::uint32_t i = 0; i < rows.size(); ++i) {
        if (filter_matches(filter, rows[i].last, rows[i].is_sent)) {
            const std::uint64_t key = key_of(rows[i], sort.column);
            keys.push_back({sort.is_descending ? ~key : key, identity_key(rows[i]), i});
        }
    }
    std::sort(keys.begin(), keys.end(), [](const SortKey& a, const SortKey& b) {
        return std::tie(a.key, a.identity) < std::tie(b.key, b.identity);
    });
    list->seen = rows.size();
    list->shown.clear();
    for (const SortKey& key : keys) {
        list->shown.push_back(key.row);
    }
}

void identifiers_extend(IdentifierList* list, const FrameFilter& filter) {
    const auto rows = trace::statistics_rows(list->statistics.get());
    for (; list->seen < rows.size(); ++list->seen) {
        if (filter_matches(filter, rows[list->seen].last, rows[list->seen].is_sent)) {
            list->shown.push_back(static_cast<std::uint32_t>(list->seen));
        }
    }
}

std::int64_t identifiers_place(const IdentifierList& list, std::uint32_t row) {
    const auto found = std::find(list.shown.begin(), list.shown.end(), row);
    return found == list.shown.end() ? -1 : found - list.shown.begin();
}

int identifiers_mark(const IdentifierList& list, std::uint32_t row, int byte,
                     std::uint32_t now_ms) {
    constexpr std::uint32_t kStep_ms = kMark_ms / kMarkSteps;
    const std::uint32_t changed_ms = list.changed_ms[row * kBytes + static_cast<std::size_t>(byte)];
    const std::uint32_t age_ms = now_ms - changed_ms;
    return changed_ms == 0 || age_ms >= kMark_ms ? 0
                                                 : kMarkSteps - static_cast<int>(age_ms / kStep_ms);
}

void identifiers_write(const IdentifierList& list, std::uint32_t row, int column,
                       std::uint32_t now_ms, std::string* text) {
    const trace::StatisticsRow& data = row_at(list, row);
    switch (column) {
        case kIdChannel:
            *text += data.channel == TAVU_CAN_1 ? "CAN 1" : "CAN 2";
            break;
        case kIdDirection:
            *text += data.is_sent ? "Sent" : "Received";
            break;
        case kIdIdentifier:
            identifier_text(data.last, text);
            break;
        case kIdKind:
            kind_text(data.last, text);
            break;
        case kIdLength:
            length_text(data.last, text);
            break;
        case kIdCount:
            *text += std::to_string(data.count);
            break;
        case kIdPeriod:
            append_period(data, static_cast<double>(data.period_us), text);
            break;
        case kIdShortest:
            append_period(data, static_cast<double>(data.shortest_us), text);
            break;
        case kIdLongest:
            append_period(data, static_cast<double>(data.longest_us), text);
            break;
        case kIdMean:
            append_period(data, trace::mean_period_us(data), text);
            break;
        case kIdLast:
            append_time(data.last_us, text);
            break;
        default:
            append_data(list, row, now_ms, text);
            break;
    }
}
