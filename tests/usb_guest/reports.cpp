// tests/usb_guest/reports.cpp - test: numbered reports and frame commands, each told by its number alone.
// Uses the records of lib/lib_tavu_2.h; the bytes are written out here, by no encoder of ours.
// SPDX-License-Identifier: MIT
#include "tests/usb_guest/reports.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <span>
#include <tuple>

namespace {

constexpr std::array<int, 16> kDataBytes{0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
constexpr std::size_t kShortest = 17;  // of a frame command

enum Code : unsigned char {
    kFrameCommand = 0xE0,
    kFrame = 0xE1,
    kStampedFrame = 0xE2,
    kFdCommand = 0xF0,
    kFdFrame = 0xF1,
    kError = 0x99
};

// Random bits of the number, and more of them by `draw`.
std::uint64_t bits(std::uint32_t number, std::uint32_t draw) {
    std::uint64_t x = (std::uint64_t{draw} << 32 | number) + 0x9E3779B97F4A7C15U;
    x = (x ^ x >> 30) * 0xBF58476D1CE4E5B9U;
    x = (x ^ x >> 27) * 0x94D049BB133111EBU;
    return x ^ x >> 31;
}

Code code_of(std::uint32_t number, Stream stream) {
    const std::uint64_t choice = bits(number, 0) % 100;
    if (stream == Stream::commands) {
        return choice < 50 ? kFrameCommand : kFdCommand;
    }
    if (choice < 5 && stream == Stream::frames_and_errors) {
        return kError;
    }
    return choice < 30 ? kFrame : choice < 55 ? kStampedFrame : kFdFrame;
}

bool is_fd(Code code) {
    return code == kFdFrame || code == kFdCommand;
}

void fill(std::span<unsigned char> data, std::uint32_t number) {
    for (std::size_t i = 0; i < data.size(); ++i) {
        const auto draw = static_cast<std::uint32_t>(2 + i / 8);
        data[i] = static_cast<unsigned char>(bits(number, draw) >> (8 * (i % 8)));
    }
}

void big_endian(Bytes& out, std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        out.push_back(static_cast<unsigned char>(value >> shift));
    }
}

void little_endian(Bytes& out, std::uint32_t value) {
    for (int shift = 0; shift <= 24; shift += 8) {
        out.push_back(static_cast<unsigned char>(value >> shift));
    }
}

std::uint32_t number_of(const CAN_FRAME_INFO& record) {
    const unsigned char* e = record.data_err[0];
    return record.msg_type == TAVU_DATA_TYPE
               ? record.id
               : static_cast<std::uint32_t>(e[0] << 24 | e[1] << 16 | e[2] << 8 | e[3]);
}

auto scalars(const CAN_FRAME_INFO& r) {
    return std::make_tuple(r.CAN_port, r.id_type, r.rtr, r.dlc, r.msg_type, r.brs, r.esi, r.fdf,
                           r.id, r.timestamp.second, r.timestamp.micro_second,
                           r.recv_time[12] == '\0');
}

bool same(const CAN_FRAME_INFO& a, const CAN_FRAME_INFO& b) {
    return scalars(a) == scalars(b) && std::ranges::equal(a.data, b.data) &&
           std::ranges::equal(a.data_err[0], b.data_err[0]) &&
           std::ranges::equal(a.data_err[1], b.data_err[1]);
}

}  // namespace

CAN_FRAME_INFO numbered_record(std::uint32_t number, Stream stream) {
    const Code code = code_of(number, stream);
    const std::uint64_t random = bits(number, 1);
    CAN_FRAME_INFO record{};
    if (code == kError) {
        record.msg_type = TAVU_BUSERR_PSR_TYPE;
        fill(record.data_err[1], number);
        Bytes digits;
        big_endian(digits, number);
        std::ranges::copy(digits, record.data_err[0]);
        return record;
    }
    record.CAN_port = static_cast<int>(random & 1);
    record.id_type = TAVU_EID;
    record.id = number;
    record.dlc = static_cast<int>(random >> 8 & 0xFF) % (is_fd(code) ? 16 : 9);
    record.fdf = is_fd(code) ? TAVU_FDF_ON : TAVU_FDF_OFF;
    record.brs = record.fdf * static_cast<int>(random >> 1 & 1);
    record.esi = record.fdf * static_cast<int>(random >> 2 & 1);
    record.rtr = (1 - record.fdf) * static_cast<int>(random >> 3 & 1);
    const int count = is_fd(code) ? kDataBytes.at(static_cast<std::size_t>(record.dlc)) : 8;
    fill(std::span(record.data).first(static_cast<std::size_t>(count)), number);
    if (code == kStampedFrame || code == kFdFrame) {
        record.timestamp = {static_cast<std::uint32_t>(random >> 16), number};
    }
    return record;
}

void numbered_append(Bytes& out, std::uint32_t number, Stream stream) {
    const std::size_t start = out.size();
    const Code code = code_of(number, stream);
    const CAN_FRAME_INFO record = numbered_record(number, stream);
    out.push_back(code);
    if (code == kError) {
        out.push_back(TAVU_BUSERR_PSR_TYPE);
        out.insert(out.end(), record.data_err[0], record.data_err[0] + 6);
        out.insert(out.end(), record.data_err[1], record.data_err[1] + 6);
    } else {
        out.push_back(static_cast<unsigned char>((record.CAN_port + 1) | 0x04 | record.rtr << 3 |
                                                 record.dlc << 4));
        if (is_fd(code)) {
            out.push_back(static_cast<unsigned char>(record.brs | record.esi << 1 | 0x04));
        }
        if (code == kStampedFrame || code == kFdFrame) {
            little_endian(out, record.timestamp.second);
            little_endian(out, record.timestamp.micro_second);
        }
        big_endian(out, record.id);
        const int count = is_fd(code) ? kDataBytes.at(static_cast<std::size_t>(record.dlc)) : 0;
        out.insert(out.end(), record.data, record.data + std::max(count, 8));
    }
    out.push_back(static_cast<unsigned char>(
        std::accumulate(out.begin() + static_cast<std::ptrdiff_t>(start), out.end(), 0U)));
    out.insert(out.end(), {'\r', '\n'});
}

void Tally::take(const CAN_FRAME_INFO& record) {
    const std::uint32_t number = number_of(record);
    if (number < next_ || number >= total_ || !same(record, numbered_record(number, stream_))) {
        ++wrong_;
        return;
    }
    next_ = number + 1;
    ++received_;
}

void CommandCheck::feed(const Bytes& bytes) {
    pending_.insert(pending_.end(), bytes.begin(), bytes.end());
    while (take()) {
    }
}

// Takes one command off the front of the input; false: none is there whole.
bool CommandCheck::take() {
    constexpr std::array<unsigned char, 2> kEnd{'\r', '\n'};
    if (pending_.size() >= kShortest && (pending_[0] & 0xEF) == kFrameCommand) {
        const std::size_t id_at = pending_[0] == kFdCommand ? 3 : 2;
        std::uint32_t number = 0;
        for (std::size_t i = id_at; i < id_at + 4; ++i) {
            number = number << 8 | pending_[i];
        }
        Bytes expected;
        numbered_append(expected, number, Stream::commands);
        if (pending_.size() < expected.size()) {
            return false;
        }
        const auto end = pending_.begin() + static_cast<std::ptrdiff_t>(expected.size());
        if (number >= next_ && std::equal(pending_.begin(), end, expected.begin())) {
            next_ = number + 1;
            ++received;
            pending_.erase(pending_.begin(), end);
            return true;
        }
        ++wrong;
    } else if (!pending_.empty() && (pending_[0] & 0xEF) == kFrameCommand) {
        return false;
    }
    const auto end = std::search(pending_.begin(), pending_.end(), kEnd.begin(), kEnd.end());
    if (end == pending_.end()) {
        return false;
    }
    pending_.erase(pending_.begin(), end + kEnd.size());
    return true;
}
