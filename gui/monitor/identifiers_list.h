// gui/monitor/identifiers_list.h - user interface: identifiers in an order, and which of their bytes changed when.
// Only gui/monitor/ and its tests include it.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_MONITOR_IDENTIFIERS_LIST_H
#define GUI_MONITOR_IDENTIFIERS_LIST_H

#include "gui/monitor/filter.h"

#include "trace/statistics.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// What the rows are ordered by, in the order of the columns.
enum IdentifierColumn {
    kIdChannel,
    kIdDirection,
    kIdIdentifier,
    kIdKind,
    kIdLength,
    kIdCount,
    kIdPeriod,
    kIdShortest,
    kIdLongest,
    kIdMean,
    kIdLast,
    kIdData,  // by its first eight bytes
    kIdColumnCnt
};

struct IdentifierSort {
    int column = kIdIdentifier;
    bool is_descending = false;

    bool operator==(const IdentifierSort&) const = default;
};

// How long the mark of a changed byte lasts, milliseconds, and in how many steps it fades.
inline constexpr std::uint32_t kMark_ms = 1500;
inline constexpr int kMarkSteps = 5;

struct IdentifierList {
    trace::StatisticsPointer statistics;
    // For each row and byte when it changed, in the caller's milliseconds; 0: never. Left as they
    // come until a row begins: untouched pages cost nothing.
    std::unique_ptr<std::uint32_t[]> changed_ms;
    std::vector<std::uint32_t> shown;  // rows of the statistics in the order in which they show
    std::size_t seen = 0;              // rows that were there when `shown` was made
    int longest = 0;                   // most data bytes of a frame
};

// Makes an empty list. False: no memory; nothing can be added then.
bool identifiers_make(IdentifierList* list);

// Adds a frame; error frames have no row. `now_ms`: above 0, never goes back.
void identifiers_add(IdentifierList* list, const trace::Record& record, std::uint32_t now_ms);

void identifiers_clear(IdentifierList* list);

// Puts those rows in order whose last frame passes the filter. Equal ones stand in the order of
// identifier, channel and direction.
void identifiers_arrange(IdentifierList* list, const IdentifierSort& sort,
                         const FrameFilter& filter);

// Puts rows that have come since then behind the others.
void identifiers_extend(IdentifierList* list, const FrameFilter& filter);

// The place of a row of the statistics in `shown`; -1: it does not show.
std::int64_t identifiers_place(const IdentifierList& list, std::uint32_t row);

// How strong the mark of a byte is: kMarkSteps just after it changed, 0 without a mark.
int identifiers_mark(const IdentifierList& list, std::uint32_t row, int byte, std::uint32_t now_ms);

// Appends what a column shows of a row. The data is Pango markup: marked bytes are bold, on a
// ground that fades.
void identifiers_write(const IdentifierList& list, std::uint32_t row, int column,
                       std::uint32_t now_ms, std::string* text);

#endif
