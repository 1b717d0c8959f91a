// gui/monitor/trace_search.h - user interface: what is looked for in the rows of the trace page, and the search.
// Only gui/monitor/, its tests and its benchmark include it.
// Thread: any, one at a time for each search.
// SPDX-License-Identifier: MIT
#ifndef GUI_MONITOR_TRACE_SEARCH_H
#define GUI_MONITOR_TRACE_SEARCH_H

#include "gui/monitor/trace_rows.h"

#include <array>
#include <string>
#include <string_view>

enum SearchKind { kSearchData, kSearchFrames };

// Bytes that follow each other anywhere in the data of a frame, or words of a filter.
struct SearchFor {
    SearchKind kind = kSearchData;
    std::array<unsigned char, trace::kFdBytes> bytes{};
    std::size_t count = 0;
    FrameFilter frames;
};

// Bytes are pairs of hexadecimal digits, spaces between them or not; frames are told by the words
// of gui/monitor/filter.h, such as an identifier. TAVU_SUCCESS, or TAVU_FAILURE with a sentence in
// *fault: *wanted is untouched then. An empty text is a fault.
int search_parse(SearchKind kind, std::string_view text, SearchFor* wanted, std::string* fault);

// An error frame has no data: its bytes are shown in words.
bool search_matches(const SearchFor& wanted, const trace::Record& record);

enum SearchState { kSearching, kFound, kNotFound };

// Goes once around all rows that there were when it began.
struct Search {
    SearchFor wanted;
    bool is_backwards = false;
    RowRange range;
    std::uint64_t row = 0;   // to be looked at next; the one found
    std::uint64_t left = 0;  // rows not yet looked at
    bool is_around = false;  // it has gone on at the other end
};

// Begins with a row, or backwards with the one before it; where there is none, at the other end.
void search_begin(Search* search, const SearchFor& wanted, RowRange range, std::uint64_t from,
                  bool is_backwards);

// Goes on for no longer than a slice.
SearchState search_go_on(Search* search, const TraceRows* rows);

// How much has been looked at, per cent.
int search_progress(const Search* search);

#endif
