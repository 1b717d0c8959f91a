// trace/text.h - trace: a frame as a line of text, written and parsed. The forms are those of the
// commands candump and cansend, so that their users' scripts, and the files they have, fit.
// Any layer above lib/ may include it.
// Thread: any.
// SPDX-License-Identifier: MIT
//
//   frame      123#DEADBEEF       11-bit identifier (3 digits), data
//              18FEF100#11.22     29-bit identifier (8 digits); a dot may stand between bytes
//              123#               no data
//              123#R  123#R5      remote frame, with its dlc
//              123#1122334455667788_E   CAN 2.0, dlc above 8: its code, 9 to F, behind 8 bytes
//              123#R8_E                 the same of a remote frame
//              123##311..66       CAN FD: flags (bit 0: bit-rate switch, bit 1: ESI), then 0 to 8,
//                                 12, 16, 20, 24, 32, 48 or 64 bytes
//              20000204#0008000000008000   error frame: 20000000 and its classes, 8 bytes
//   log line   (1436509052.249713) can0 123#DEADBEEF
//              (1436509052.249713) can0 123#DEADBEEF T    T sent, R received
//   console    "  can0  123   [8]  11 22 33 44 55 66 77 88"
//              "  can0  18FEF100   [2]  11 22"
//              "  can0  123  [12]  11 22 33 44 55 66 77 88 99 AA BB CC"
//              "  can0  123   [5]  remote request"
//              "  can0  123   {E}  11 22 33 44 55 66 77 88"           CAN 2.0, dlc above 8
//              "  can0  20000204   [8]  00 08 00 00 00 00 80 00   ERRORFRAME"
//              " (1436509052.249713)  can0  TX B -  123  [12]  11 ..." with time and details: RX or
//                                 TX, B for bit-rate switch, E for ESI
//              "  can0  123   [2]  41 42                     'AB'"   with the data as characters
//
// Digits are written in upper case and read in either.
#ifndef TRACE_TEXT_H
#define TRACE_TEXT_H

#include "trace/record.h"

#include <span>
#include <string_view>

namespace trace {

// Room that is enough for any of the forms, with the NUL.
inline constexpr int kTextMost = 512;

// What is wrong with a text.
struct ParseError {
    int offset = 0;           // of the first character that cannot be; the length: one is missing
    const char* reason = "";  // a text that stays valid, such as "odd number of hexadecimal digits"
};

// ---- Writing ----

// Whether a name can stand in the forms: 1 to 15 printing characters, none of them a space or '('.
bool interface_is_valid(const std::array<char, 16>& name);

// Each writes one line, without a line end, and a NUL. Result: number of characters; -1 for an
// invalid record, an interface name that is none, or too little room: nothing is written then.

// `frame`: what cansend takes, and the third word of a log line.
int frame_write(const CAN_FRAME_INFO& frame, std::span<char> text);

// What a log line may have beside the frame.
enum LogForm { kLogPlain = 0, kLogDirection = 1 };

int log_line_write(const Record& record, const Interfaces& interfaces, LogForm form,
                   std::span<char> text);

// What a console line shows beside the frame.
enum ConsoleTime {
    kTimeNone,
    kTimeSeconds,  // seconds since 1970, (1436509052.249713)
    kTimeDate,     // local time, (2015-07-10 08:17:32.249713)
};
struct ConsoleForm {
    ConsoleTime time = kTimeNone;
    bool has_details = false;     // direction, bit-rate switch, ESI
    bool has_characters = false;  // the data once more as characters, a dot for one that is none
};

// The plain form of a CAN FD frame does not tell bit-rate switch and ESI; the detailed one does.
int console_line_write(const Record& record, const Interfaces& interfaces, const ConsoleForm& form,
                       std::span<char> text);

// ---- Parsing ----

// Each takes one line without its line end. TAVU_SUCCESS, or TAVU_FAILURE with the reason in
// *error: the output is untouched then. Spaces at either end are passed over.

// A frame to send: an error frame is refused. Sets no channel: CAN_port is 0.
int frame_parse(std::string_view text, CAN_FRAME_INFO* frame, ParseError* error);

// A line without a direction is one of a received frame. A time may have 1 to 9 decimals, of which
// six are kept. An interface name that is none of those given is refused.
int log_line_parse(std::string_view text, const Interfaces& interfaces, Record* record,
                   ParseError* error);

// Takes every form that console_line_write makes, and more than one space where it has one. What a
// line does not tell is 0: no time, received, no flags.
int console_line_parse(std::string_view text, const Interfaces& interfaces, Record* record,
                       ParseError* error);

}  // namespace trace

#endif
