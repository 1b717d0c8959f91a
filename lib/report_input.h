// lib/report_input.h - library: the input buffer of a port, and how reports are cut out of it.
// Library-internal. Does no I/O: the caller fills the buffer and says when nothing more has come.
// Thread: the port's receiver.
// SPDX-License-Identifier: MIT
#ifndef LIB_REPORT_INPUT_H
#define LIB_REPORT_INPUT_H

#include "lib/report.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tavu {

// A terminal hands out at most this many bytes a read.
inline constexpr std::size_t kReadBytes = 4096;

// What a port has delivered and no call has taken yet: bytes `begin` to `end`.
//
// In step, a report is believed by its header, whatever its closing bytes are, as long as nothing
// speaks against it. Two things do. A report that does not close as those before it did is
// dropped when a whole report begins inside it, or when something else than reports is behind it.
// And the part of a report that stopped arriving is kept, but believed only if what completes it
// ends in CR LF.
//
// Out of step (after such a drop, or two unknown headers in a row) the next place is sought where a
// plausible report, complete, closes as the reports of this port do. On a port whose reports do not
// end in CR LF, only the bytes at hand are searched, and if that finds nothing they are taken as in
// step.
struct ReportInput {
    std::array<unsigned char, 2 * kReadBytes> bytes;
    std::size_t begin = 0;
    std::size_t end = 0;
    std::size_t part = 0;    // bytes of a report that did not go on in time; more may complete it
    std::size_t sought = 0;  // out of step: no report begins before this place
    std::size_t passed = 0;  // bytes passed over since the stream got out of step
    std::uint32_t discards_seen = 0;
    Closing closing = Closing::kAny;  // the lesser of those of the last two reports taken
    Closing last_closing = Closing::kChecksum;
    bool is_in_step = true;
    bool is_on_trial = false;   // an unknown header or a discard came before this place
    bool is_exhausted = false;  // what is there gives no report until more comes
};

// The reports a reception call knows.
struct Dialect {
    std::size_t unit;                           // bytes taken at once; those of an unknown header
    std::chrono::milliseconds unit_gap;         // longest pause within them
    std::size_t (*report_length)(Bytes bytes);  // 0: unknown; `unit` bytes at least are there
};

// The header of a report that is just arriving has its other bytes right behind.
inline constexpr Dialect kEveryReport = {kHeaderBytes, std::chrono::milliseconds(2), report_length};
inline constexpr Dialect kClassicReports = {kFixedBytes, std::chrono::milliseconds(20),
                                            classic_report_length};

enum class Outcome {
    kReport,   // `report` is taken; it stands in the buffer until that is filled again
    kNothing,  // no report; bytes may have been dropped
    kMore      // more bytes are needed, or `gap` without any
};

struct Step {
    Outcome outcome;
    Bytes report{};
    std::chrono::milliseconds gap{};
};

// The next step with the bytes at hand. `is_silent`: no more came within the gap asked for; the
// outcome is then never kMore.
Step input_step(ReportInput& input, const Dialect& dialect, bool is_silent);

// Room for kReadBytes bytes or more behind those at hand.
std::span<unsigned char> input_room(ReportInput& input);
// `count` bytes have been put there.
void input_added(ReportInput& input, std::size_t count);
// Drops and counts all bytes.
void input_drop(ReportInput& input);

}  // namespace tavu

#endif
