// tests/usb_guest/reports.h - test: numbered reports and frame commands, each told by its number alone.
// Uses the module's wire format and the library's records, which know nothing of each other.
// SPDX-License-Identifier: MIT
#ifndef TESTS_USB_GUEST_REPORTS_H
#define TESTS_USB_GUEST_REPORTS_H

#include "lib/lib_tavu_2.h"

#include "sim/commands.h"

#include <algorithm>
#include <atomic>
#include <numeric>
#include <random>
#include <span>
#include <tuple>

// What a numbered stream is made of; with errors: also protocol-status reports.
enum class Stream { frames, frames_and_errors, commands };

// What a number stands for. Lengths follow no period: the loss of a whole transfer shows, wherever
// it begins and ends.
struct Numbered {
    Numbered(std::uint32_t number, Stream stream) {
        std::minstd_rand random{number + 1};
        const auto draw = [&] { return static_cast<std::uint8_t>(random() >> 8); };
        const unsigned choice = draw();
        const unsigned flags = draw();
        is_error = stream == Stream::frames_and_errors && choice < 12;
        is_stamped = stream != Stream::commands && choice >= 75;
        frame.channel = static_cast<int>(flags & 1);
        frame.id = number;
        frame.extended = true;
        frame.fd = choice >= 140;
        frame.brs = frame.fd && (flags & 2) != 0;
        frame.esi = frame.fd && (flags & 4) != 0;
        frame.remote = !frame.fd && (flags & 8) != 0;
        frame.dlc = static_cast<std::uint8_t>(draw() % (sim::highest_dlc(frame.fd) + 1));
        const int length = frame.remote ? 0 : sim::payload_length(frame.dlc, frame.fd);
        std::generate_n(frame.data.begin(), length, draw);
        std::ranges::generate(errors[1], draw);
        for (std::size_t i = 0; i < 4; ++i) {
            errors[0].at(i) = static_cast<std::uint8_t>(number >> (24 - 8 * i));
        }
        stamp = {static_cast<std::uint32_t>(random()), number};
    }

    // Appends it as a report, as it stands on the wire.
    void append(sim::Bytes& out) const {
        if (is_error) {
            const sim::Bytes report = sim::protocol_status_report(errors);
            out.insert(out.end(), report.begin(), report.end());
            return;
        }
        using sim::ClassicReport;
        const ClassicReport form = is_stamped ? ClassicReport::stamped : ClassicReport::plain;
        sim::append_frame_report(out, frame, stamp, form);
    }

    // What the library must deliver for the report, or send for the command.
    [[nodiscard]] CAN_FRAME_INFO record() const {
        CAN_FRAME_INFO record{};
        if (is_error) {
            record.msg_type = TAVU_BUSERR_PSR_TYPE;
            std::ranges::copy(errors[0], record.data_err[0]);
            std::ranges::copy(errors[1], record.data_err[1]);
            return record;
        }
        record.CAN_port = frame.channel;
        record.id_type = TAVU_EID;
        record.id = frame.id;
        record.dlc = frame.dlc;
        record.rtr = frame.remote ? TAVU_EN_RTR : TAVU_DIS_RTR;
        record.fdf = frame.fd ? TAVU_FDF_ON : TAVU_FDF_OFF;
        record.brs = frame.brs ? TAVU_BRS_ON : TAVU_BRS_OFF;
        record.esi = frame.esi ? 1 : 0;
        std::ranges::copy(frame.data, record.data);
        if (is_stamped || frame.fd) {
            record.timestamp = {stamp.second, stamp.micro_second};
        }
        return record;
    }

    bool is_error;
    bool is_stamped;
    sim::Frame frame;
    sim::TimeStamp stamp;
    std::array<sim::ErrorData, 2> errors{};
};

inline bool same(const CAN_FRAME_INFO& a, const CAN_FRAME_INFO& b) {
    const auto scalars = [](const CAN_FRAME_INFO& r) {
        return std::tuple(r.CAN_port, r.id_type, r.rtr, r.dlc, r.msg_type, r.brs, r.esi, r.fdf,
                          r.id, r.timestamp.second, r.timestamp.micro_second, r.recv_time[12]);
    };
    return scalars(a) == scalars(b) && std::ranges::equal(a.data, b.data) &&
           std::ranges::equal(a.data_err[0], b.data_err[0]) &&
           std::ranges::equal(a.data_err[1], b.data_err[1]);
}

// What became of a stream; everything that came is held against what its number stands for. Counts
// may be read by another thread.
struct Tally {
    Tally(Stream its_stream, std::uint32_t its_total) : stream(its_stream), total(its_total) {}

    void take(const CAN_FRAME_INFO& record) {
        const bool is_frame = record.msg_type == TAVU_DATA_TYPE;
        const std::uint32_t number =
            is_frame ? record.id : sim::big_endian({record.data_err[0], 4});
        count(number, same(record, Numbered(number, stream).record()));
    }
    // Commands that carry no frame are passed over.
    void take(sim::ByteView command) {
        const sim::CommandRow* row = sim::find_command(command[0]);
        if (row->refused == sim::Refused::never) {
            using enum sim::FrameForm;
            const bool is_classic = row->id == sim::CommandId::frame;
            const auto frame = sim::decode_frame(command.subspan(1), is_classic ? classic : fd);
            const auto sum = std::accumulate(command.begin(), command.end() - 3, 0U) & 0xFF;
            const std::uint32_t number = frame ? frame->id : 0;
            count(number, frame == Numbered(number, stream).frame && sum == *(command.end() - 3));
        }
    }
    [[nodiscard]] std::uint32_t lost() const { return total - received; }

    const Stream stream;
    const std::uint32_t total;
    std::uint32_t next = 0;
    std::atomic<std::uint32_t> received{0};
    std::atomic<std::uint32_t> wrong{0};  // invented, damaged, out of order

  private:
    void count(std::uint32_t number, bool right) {
        if (number < next || number >= total || !right) {
            ++wrong;
            return;
        }
        next = number + 1;
        ++received;
    }
};

#endif
