// gui/monitor/filter.cpp - user interface: a line of text parsed to a filter, and frames held against it.
// Thread: any.
// SPDX-License-Identifier: MIT
#include "gui/monitor/filter.h"

#include <algorithm>
#include <optional>
#include <span>

namespace {

constexpr std::string_view kSpaces = " \t";
constexpr std::size_t kShortDigits = 3;  // most of an 11-bit identifier
constexpr std::size_t kLongDigits = 8;   // of a 29-bit one

// ---- Words ----

// A set of bits of the filter while its words are being read.
struct Bits {
    unsigned int wanted = 0;
    unsigned int unwanted = 0;
};
enum Set { kChannels, kDirections, kKinds, kSets };

struct Word {
    std::string_view text;
    Set set;
    unsigned int bits;
};
constexpr Word kWords[] = {
    {"can1", kChannels, 1U << TAVU_CAN_1}, {"can2", kChannels, 1U << TAVU_CAN_2},
    {"received", kDirections, 1U << 0},    {"rx", kDirections, 1U << 0},
    {"sent", kDirections, 1U << 1},        {"tx", kDirections, 1U << 1},
    {"classic", kKinds, kFilterClassic},   {"fd", kKinds, kFilterFd},
    {"brs", kKinds, kFilterBrs},           {"remote", kKinds, kFilterRemote},
    {"error", kKinds, kFilterError},
};

std::string in_lower_case(std::string_view word) {
    std::string text(word);
    for (char& character : text) {
        if (character >= 'A' && character <= 'Z') {
            character = static_cast<char>(character - 'A' + 'a');
        }
    }
    return text;
}

// The word as it is quoted: not more of it than a line takes, and no half of a character.
std::string quoted(std::string_view word) {
    constexpr std::size_t kMost = 24;
    constexpr unsigned char kCode = 0xC0;  // of the bytes that continue a character, the first two
    constexpr unsigned char kContinued = 0x80;
    if (word.size() <= kMost) {
        return '"' + std::string(word) + '"';
    }
    std::size_t length = kMost;
    while (length > 0 && (static_cast<unsigned char>(word[length]) & kCode) == kContinued) {
        --length;
    }
    return '"' + std::string(word.substr(0, length)) + "...\"";
}

// ---- Identifiers ----

std::optional<unsigned int> hex_value(std::string_view digits) {
    unsigned int value = 0;
    for (const char digit : digits) {
        const char lower = static_cast<char>(digit | 0x20);
        if (digit >= '0' && digit <= '9') {
            value = value << 4 | static_cast<unsigned int>(digit - '0');
        } else if (lower >= 'a' && lower <= 'f') {
            value = value << 4 | static_cast<unsigned int>(lower - 'a' + 10);
        } else {
            return std::nullopt;
        }
    }
    return digits.empty() ? std::nullopt : std::optional(value);
}

// Why these digits are no identifier; empty when they are one.
std::string identifier_fault(std::string_view digits) {
    if (digits.size() > kShortDigits && digits.size() != kLongDigits) {
        return quoted(digits) + " has " + std::to_string(digits.size()) +
               " digits: an 11-bit identifier has up to 3, a 29-bit one 8, with zeros in front.";
    }
    const unsigned int value = hex_value(digits).value_or(0);
    if (digits.size() <= kShortDigits && value > TAVU_SID_MAX) {
        return quoted(digits) +
               " is above 7FF, the highest 11-bit identifier; a 29-bit one has 8 "
               "digits.";
    }
    if (value > TAVU_EID_MAX) {
        return quoted(digits) + " is above 1FFFFFFF, the highest 29-bit identifier.";
    }
    return {};
}

// Whether a word looks as if it were meant as an identifier or a range of them.
bool looks_like_range(std::string_view word) {
    constexpr std::string_view kOfRange = "0123456789ABCDEFabcdef-";
    return word.find_first_not_of(kOfRange) == std::string_view::npos;
}

// A reason, or empty with *range.
std::string range_parse(std::string_view word, IdRange* range) {
    const std::size_t dash = word.find('-');
    const std::string_view first = word.substr(0, dash);
    const std::string_view last = dash == std::string_view::npos ? first : word.substr(dash + 1);
    const auto low = hex_value(first);
    const auto high = hex_value(last);
    if (!low || !high) {
        return quoted(word) + " is no range: it has two ends, such as 100-1FF.";
    }
    for (const std::string_view end : {first, last}) {
        if (std::string fault = identifier_fault(end); !fault.empty()) {
            return fault;
        }
    }
    if ((first.size() == kLongDigits) != (last.size() == kLongDigits)) {
        return quoted(word) + " is no range: both ends have 8 digits, or both up to 3.";
    }
    if (*low > *high) {
        return quoted(word) + " runs backwards: the lower identifier comes first.";
    }
    *range = {.is_extended = first.size() == kLongDigits, .first = *low, .last = *high};
    return {};
}

// ---- Filter ----

struct Draft {
    std::array<Bits, kSets> bits{};
    FrameFilter filter;
};

std::string word_take(Draft* draft, std::string_view word) {
    const bool is_unwanted = word.front() == '!';
    const std::string_view rest = word.substr(is_unwanted ? 1 : 0);
    const std::string name = in_lower_case(rest);
    if (name.empty()) {
        return "\"!\" stands right before a word, such as !7DF.";
    }
    const auto* known = std::find_if(std::begin(kWords), std::end(kWords),
                                     [&name](const Word& each) { return each.text == name; });
    if (known != std::end(kWords)) {
        Bits& bits = draft->bits[known->set];
        (is_unwanted ? bits.unwanted : bits.wanted) |= known->bits;
        return {};
    }
    if (!looks_like_range(rest)) {
        return quoted(rest) +
               " is no word of a filter. These are: can1, can2, sent, received, "
               "classic, fd, brs, remote, error, an identifier such as 123 or "
               "18FEF100, a range such as 100-1FF.";
    }
    IdRanges& ranges = is_unwanted ? draft->filter.unwanted : draft->filter.wanted;
    IdRange range;
    std::string fault = range_parse(rest, &range);
    if (fault.empty() && ranges.count == kFilterRanges) {
        return quoted(word) + " is one identifier too many: a filter takes " +
               std::to_string(kFilterRanges) + ". Make ranges of them.";
    }
    if (fault.empty()) {
        ranges.range[static_cast<std::size_t>(ranges.count++)] = range;
    }
    return fault;
}

unsigned int kinds_of(const CAN_FRAME_INFO& frame) {
    if (!trace::frame_is_data(frame)) {
        return kFilterError;
    }
    if (frame.fdf != TAVU_FDF_OFF) {
        return frame.brs != TAVU_BRS_OFF ? kFilterFd | kFilterBrs : kFilterFd;
    }
    return frame.rtr != TAVU_DIS_RTR ? kFilterClassic | kFilterRemote : kFilterClassic;
}

bool is_in(const IdRanges& ranges, const CAN_FRAME_INFO& frame) {
    const bool is_extended = frame.id_type == TAVU_EID;
    const std::span used(ranges.range.data(), static_cast<std::size_t>(ranges.count));
    return std::any_of(used.begin(), used.end(), [&](const IdRange& range) {
        return frame.id >= range.first && frame.id <= range.last &&
               range.is_extended == is_extended;
    });
}

}  // namespace

int filter_parse(std::string_view text, FrameFilter* filter, FilterError* error) {
    Draft draft;
    for (std::size_t at = text.find_first_not_of(kSpaces); at < text.size();
         at = text.find_first_not_of(kSpaces, at)) {
        const std::size_t end = std::min(text.find_first_of(kSpaces, at), text.size());
        std::string fault = word_take(&draft, text.substr(at, end - at));
        if (!fault.empty()) {
            *error = {.offset = static_cast<int>(at),
                      .length = static_cast<int>(end - at),
                      .reason = std::move(fault)};
            return TAVU_FAILURE;
        }
        at = end;
    }
    const auto wanted = [&draft](Set set) {
        const unsigned int bits = draft.bits[set].wanted;
        return bits == 0 ? ~0U : bits;
    };
    draft.filter.channels = wanted(kChannels) & ~draft.bits[kChannels].unwanted;
    draft.filter.directions = wanted(kDirections) & ~draft.bits[kDirections].unwanted;
    draft.filter.kinds = wanted(kKinds);
    draft.filter.unwanted_kinds = draft.bits[kKinds].unwanted;
    *filter = draft.filter;
    return TAVU_SUCCESS;
}

bool filter_matches(const FrameFilter& filter, const CAN_FRAME_INFO& frame, bool is_sent) {
    const unsigned int kinds = kinds_of(frame);
    if ((filter.channels >> static_cast<unsigned int>(frame.CAN_port) & 1U) == 0 ||
        (filter.directions >> (is_sent ? 1U : 0U) & 1U) == 0 || (filter.kinds & kinds) == 0 ||
        (filter.unwanted_kinds & kinds) != 0) {
        return false;
    }
    if (kinds == kFilterError) {
        return filter.wanted.count == 0;
    }
    return (filter.wanted.count == 0 || is_in(filter.wanted, frame)) &&
           !is_in(filter.unwanted, frame);
}
