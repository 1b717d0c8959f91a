// tests/usb_guest/reports.h - test: numbered frame reports, each told by its number alone.
// Uses the module's wire format and the library's records, which know nothing of each other.
// SPDX-License-Identifier: MIT
#ifndef TESTS_USB_GUEST_REPORTS_H
#define TESTS_USB_GUEST_REPORTS_H

#include "lib/lib_tavu_2.h"

#include "sim/wire.h"

#include <algorithm>
#include <random>

// What a number stands for. Lengths follow no period: the loss of a whole transfer shows, wherever
// it begins and ends.
inline sim::Frame numbered_frame(std::uint32_t number) {
    std::minstd_rand random{number + 1};
    const auto draw = [&] { return static_cast<std::uint8_t>(random() >> 8); };
    const unsigned flags = draw();
    const bool fd = (flags & 1) != 0;
    sim::Frame frame{.channel = (flags & 2) != 0 ? 1 : 0,
                     .id = number,
                     .dlc = static_cast<std::uint8_t>(draw() % (sim::highest_dlc(fd) + 1)),
                     .extended = true,
                     .remote = !fd && (flags & 4) != 0,
                     .fd = fd,
                     .brs = fd && (flags & 8) != 0,
                     .esi = fd && (flags & 16) != 0};
    const int length = frame.remote ? 0 : sim::payload_length(frame.dlc, fd);
    std::generate_n(frame.data.begin(), length, draw);
    return frame;
}

// All reports of a stream; made beforehand, as making them costs more than sending them.
inline sim::Bytes numbered_reports(std::uint32_t total) {
    sim::Bytes reports;
    for (std::uint32_t number = 0; number < total; ++number) {
        const sim::TimeStamp stamp{.second = ~number, .micro_second = number};
        sim::append_frame_report(reports, numbered_frame(number), stamp,
                                 sim::ClassicReport::stamped);
    }
    return reports;
}

// What became of the reports; each that came is held against what its number stands for.
struct Tally {
    void take(const CAN_FRAME_INFO& record) {
        sim::Frame frame{.channel = record.CAN_port,
                         .id = record.id,
                         .dlc = static_cast<std::uint8_t>(record.dlc),
                         .extended = record.id_type == TAVU_EID,
                         .remote = record.rtr == TAVU_EN_RTR,
                         .fd = record.fdf == TAVU_FDF_ON,
                         .brs = record.brs == TAVU_BRS_ON,
                         .esi = record.esi != 0};
        std::ranges::copy(record.data, frame.data.begin());
        const bool is_right = record.msg_type == TAVU_DATA_TYPE && frame.id >= next &&
                              frame == numbered_frame(frame.id) &&
                              record.timestamp.second == ~frame.id &&
                              record.timestamp.micro_second == frame.id;
        (is_right ? received : wrong) += 1;
        next = is_right ? frame.id + 1 : next;
    }

    std::uint32_t next = 0;
    std::uint32_t received = 0;
    std::uint32_t wrong = 0;  // invented, damaged, out of order
};

#endif
