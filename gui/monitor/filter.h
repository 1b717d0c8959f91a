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
//
// "fd" is the kind; the identifier is 0FD. A remote frame is a classic one too, and a frame with
// bit-rate switch a CAN FD frame. An error frame fits neither "classic" nor any identifier.
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

// Bits of FrameFilter::kinds; a frame has one or two of them.
enum : unsigned int {
    kFilterClassic = 1U << 0,
    kFilterFd = 1U << 1,
    kFilterBrs = 1U << 2,
    kFilterRemote = 1U << 3,
    kFilterError = 1U << 4,
};

// Bits of channel, direction and kind; all set when no word of the kind is there.
struct FrameFilter {
    unsigned int channels = ~0U;      // bit: channel number from 0
    unsigned int directions = ~0U;    // bit 0: received, bit 1: sent
    unsigned int kinds = ~0U;         // kFilter...
    unsigned int unwanted_kinds = 0;  // of kinds that frames must not have
    IdRanges wanted{};                // none: all
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

// Whether a valid frame passes. Costs some nanoseconds, and one for each identifier of the filter.
bool filter_matches(const FrameFilter& filter, const CAN_FRAME_INFO& frame, bool is_sent);

#endif
