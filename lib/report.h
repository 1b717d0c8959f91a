// lib/report.h - library: the reports a module sends: their lengths, their closings, their records.
// Library-internal. Looks at bytes only: no port, no buffer, no counters.
// Thread: any.
// SPDX-License-Identifier: MIT
#ifndef LIB_REPORT_H
#define LIB_REPORT_H

#include "lib/lib_tavu_2.h"

#include <cstddef>
#include <span>

namespace tavu {

using Bytes = std::span<const unsigned char>;

inline constexpr std::size_t kHeaderBytes = 3;     // tell kind and length of a report
inline constexpr std::size_t kFixedBytes = 17;     // CAN 2.0 frame, error and status reports
inline constexpr std::size_t kLongestReport = 82;  // CAN FD frame with 64 data bytes

// Length of the report that begins there, 0 for a header of no known report. At least kHeaderBytes.
// An EEPROM error report comes in two lengths; with too few bytes to tell, it is the shorter one.
std::size_t report_length(Bytes bytes);
// The same for the 17-byte reports that TAVUReceive knows. At least 2 bytes.
std::size_t classic_report_length(Bytes bytes);

// What the three closing bytes of a report are; a higher one includes those below.
enum class Closing : unsigned char { kAny, kEndOfLine, kChecksum };
// Of a whole report: CR LF behind the sum of all bytes before, CR LF alone, or neither.
Closing closing_of(Bytes report);

// Whether a module can have sent this whole report: channel, identifier and flags in their ranges.
bool is_plausible(Bytes report);

// Fills the fields of the report's kind. Result: whether there is something to tell; a bus-error
// report that is all zero is not, and leaves the record untouched.
bool report_decode(Bytes report, CAN_FRAME_INFO& info);

}  // namespace tavu

#endif
