// gui/monitor/trace_search.cpp - user interface: a search through the rows of the trace page, in slices.
// Uses gui/monitor/trace_search.h.
// Thread: any, one at a time for each search.
// SPDX-License-Identifier: MIT
#include "gui/monitor/trace_search.h"

#include <algorithm>
#include <chrono>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRowsPerLook = 256;  // at the clock

// The value of a hexadecimal digit, -1 for another character.
int digit_value(char digit) {
    constexpr std::string_view kDigits = "0123456789ABCDEFabcdef";
    const std::size_t at = kDigits.find(digit);
    if (at == std::string_view::npos) {
        return -1;
    }
    return static_cast<int>(at < 16 ? at : at - 6);
}

// A fault, or empty with the bytes.
std::string bytes_parse(std::string_view text, SearchFor* wanted) {
    int digits = 0;
    for (const char character : text) {
        const int value = digit_value(character);
        if (character == ' ') {
            if (digits % 2 != 0) {
                return "A byte has two hexadecimal digits, such as 0F.";
            }
            continue;
        }
        if (value < 0) {
            return "Bytes are hexadecimal digits, such as 11 22 FF.";
        }
        const auto at = static_cast<std::size_t>(digits++ / 2);
        if (at == wanted->bytes.size()) {
            return "A frame has 64 bytes at most.";
        }
        wanted->bytes[at] = static_cast<unsigned char>(wanted->bytes[at] << 4 | value);
    }
    wanted->count = static_cast<std::size_t>(digits) / 2;
    if (digits % 2 != 0) {
        return "A byte has two hexadecimal digits, such as 0F.";
    }
    return digits == 0 ? "Bytes to look for are missing." : "";
}

void step(Search* search) {
    --search->left;
    if (search->is_backwards) {
        search->is_around = search->is_around || search->row == search->range.first;
        search->row = search->row == search->range.first ? search->range.end - 1 : search->row - 1;
    } else {
        ++search->row;
        search->is_around = search->is_around || search->row == search->range.end;
        search->row = search->row == search->range.end ? search->range.first : search->row;
    }
}

}  // namespace

int search_parse(SearchKind kind, std::string_view text, SearchFor* wanted, std::string* fault) {
    SearchFor draft;
    draft.kind = kind;
    FilterError error;
    std::string reason;
    if (kind == kSearchData) {
        reason = bytes_parse(text, &draft);
    } else if (text.find_first_not_of(' ') == std::string_view::npos) {
        reason = "An identifier to look for is missing.";
    } else if (filter_parse(text, &draft.frames, &error) != TAVU_SUCCESS) {
        reason = error.reason;
    }
    if (!reason.empty()) {
        *fault = reason;
        return TAVU_FAILURE;
    }
    *wanted = draft;
    return TAVU_SUCCESS;
}

bool search_matches(const SearchFor& wanted, const trace::Record& record) {
    const CAN_FRAME_INFO& frame = record.frame;
    if (wanted.kind == kSearchFrames) {
        return filter_matches(wanted.frames, frame, record.is_sent);
    }
    if (!trace::frame_is_data(frame)) {
        return false;
    }
    const unsigned char* end = frame.data + trace::payload_bytes(frame);
    return std::search(frame.data, end, wanted.bytes.data(), wanted.bytes.data() + wanted.count) !=
           end;
}

void search_begin(Search* search, const SearchFor& wanted, RowRange range, std::uint64_t from,
                  bool is_backwards) {
    *search = {};
    search->wanted = wanted;
    search->is_backwards = is_backwards;
    search->range = range;
    search->left = range.count();
    search->is_around = is_backwards ? from <= range.first : from >= range.end;
    if (search->is_around) {
        search->row = is_backwards && range.count() > 0 ? range.end - 1 : range.first;
    } else {
        search->row = is_backwards ? std::min(from, range.end) - 1 : std::max(from, range.first);
    }
}

SearchState search_go_on(Search* search, const TraceRows* rows) {
    const auto limit = Clock::now() + std::chrono::microseconds(kSlice_us);
    trace::Record record;
    while (search->left > 0) {
        for (int i = 0; i < kRowsPerLook && search->left > 0; ++i) {
            if (trace_rows_get(rows, search->row, &record) &&
                search_matches(search->wanted, record)) {
                return kFound;
            }
            step(search);
        }
        if (Clock::now() >= limit) {
            break;
        }
    }
    return search->left > 0 ? kSearching : kNotFound;
}

int search_progress(const Search* search) {
    constexpr std::uint64_t kWhole = 100;
    const std::uint64_t all = std::max<std::uint64_t>(search->range.count(), 1);
    return static_cast<int>((all - search->left) * kWhole / all);
}
