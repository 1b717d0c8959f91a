// gui/monitor/filter.h - user interface: which frames to show, as a line of text and as a test.
// Only gui/monitor/ and its tests include it.
// Thread: any.
// SPDX-License-Identifier: MIT
//
// Words parted by spaces, in upper or lower case. A frame passes when it fits one word of each kind
// that is there at all, and no word that is marked with "!". No word: every frame passes.
//
//   channel      can1 can2
//   direction    sent received (tx, rx)
//   kind         classic fd brs remote error
//   identifier   123         11-bit: up to 3 hexadecimal digits
//                18FEF100    29-bit: 8 digits
//                100-1FF     a range, both ends included
//   without      !7DF !error
#ifndef GUI_MONITOR_FILTER_H
#define GUI_MONITOR_FILTER_H

#include "trace/record.h"

#include <array>
#include <string>
#include <string_view>

// Identifiers of one type, both ends included.
struct IdRange {
    bool is_extended = false;
    unsigned int first = 0;
    unsigned int last = 0;
};

// Most identifiers and ranges of one filter, with and without "!" each.
inline constexpr int kFilterRanges = 64;

struct IdRanges {
    int count = 0;
    std::array<IdRange, kFilterRanges> range{};
};

// Bits of channel, direction and kind; all set when no word of the kind is there.
struct FrameFilter {
    unsigned int channels = ~0U;    // bit: channel number from 0
    unsigned int directions = ~0U;  // bit 0: received, bit 1: sent
    unsigned int kinds = ~0U;       // bits of filter_kinds
    IdRanges wanted{};              // none: all
    IdRanges unwanted{};
};

// Where and why a text is no filter.
struct FilterError {
    int offset = 0;  // of the word that cannot be, and its length
    int length = 0;
    std::string reason;  // a sentence that says what could stand there
};

// TAVU_SUCCESS, or TAVU_FAILURE with *error; *filter is untouched then.
int filter_parse(std::string_view text, FrameFilter* filter, FilterError* error);

bool filter_matches(const FrameFilter& filter, const CAN_FRAME_INFO& frame, bool is_sent);

#endif
