// gui/monitor/history.h - user interface: the frames that the trace page has seen, as many as a chosen memory holds.
// Only gui/monitor/, its tests and its benchmark include it.
// Thread: any, one at a time for each history.
// SPDX-License-Identifier: MIT
//
// Frames are packed: 14 bytes and the data, 8 more with a stamp of the module, and 2 to find them.
// A classic frame of 8 bytes so takes 24 bytes, or 32. They lie in blocks of 512, which go as a
// whole, the oldest first, when the memory that was chosen is used up or the system has no more.
#ifndef GUI_MONITOR_HISTORY_H
#define GUI_MONITOR_HISTORY_H

#include "trace/record.h"

#include <cstddef>
#include <cstdint>
#include <memory>

inline constexpr std::uint64_t kMegabyte = 1024UL * 1024;
inline constexpr std::uint64_t kHistoryLeast = 16 * kMegabyte;  // limits of the limit
inline constexpr std::uint64_t kHistoryMost = 4096 * kMegabyte;
inline constexpr std::uint64_t kHistoryUsual = 256 * kMegabyte;
inline constexpr std::uint64_t kBlockFrames = 512;

struct History;

struct HistoryFreer {
    void operator()(History* history) const;
};
using HistoryPointer = std::unique_ptr<History, HistoryFreer>;

// Makes an empty history of the usual limit. Null: no memory. `allocate` gives blocks, which are
// freed with std::free; null is no memory.
HistoryPointer history_make(void* (*allocate)(std::size_t bytes));
HistoryPointer history_make();

// Keeps a valid frame (trace::frame_is_valid) under the number history_end, with the module's stamp
// if it has one. Drops the oldest block when there is no room. Takes the same time whatever is kept.
void history_add(History* history, const trace::Record& record);

// Frames are numbered from 0 as they come. Those from history_begin on are kept, and keep their
// numbers; those before were dropped, as many as the number says.
std::uint64_t history_begin(const History* history);
std::uint64_t history_end(const History* history);

// The frame of a number; false, and *record untouched, when it is not kept. A frame without a stamp
// has the stamp 0, 0. Takes the same time whatever is kept.
bool history_get(const History* history, std::uint64_t number, trace::Record* record);

// Memory that may be used, from kHistoryLeast to kHistoryMost (beyond: the nearest). Frames for
// which there is no room any more are dropped at once.
void history_set_limit(History* history, std::uint64_t bytes);
std::uint64_t history_limit(const History* history);

// Memory that the caller uses beside the frames within the same limit, from the next add on.
void history_set_beside(History* history, std::uint64_t bytes);

// Memory that the frames take.
std::uint64_t history_bytes(const History* history);

// Drops all frames without counting them; the next one is number 0.
void history_clear(History* history);

// Gives back some of the memory of what clear and set_limit have dropped: to give back gigabytes at
// once would take long. Call it again and again; true, and without effect, when all is given back.
bool history_tidy(History* history);

#endif
