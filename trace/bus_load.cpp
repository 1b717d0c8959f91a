// trace/bus_load.cpp - trace: counts the bits of a frame, and what share of the time frames take.
// Uses trace/bus_load.h.
// Thread: any, one at a time for each meter.
// SPDX-License-Identifier: MIT
#include "trace/bus_load.h"

namespace trace {
namespace {

constexpr std::int64_t kNanosInSecond = 1000000000;
constexpr int kIntermission = 3;
constexpr int kAcknowledge = 2;  // slot and delimiter
constexpr int kEndOfFrame = 7;
constexpr int kCrcDelimiter = 1;

// What bit stuffing knows of the bits before: how many equal ones were last, and which. After five
// equal ones comes a stuff bit, which is not known to be there before the next bit is.
struct StuffState {
    std::uint8_t last = 1;  // the idle bus
    std::uint8_t run = 0;   // 0 to kLongestRun
};
constexpr std::uint8_t kLongestRun = 5;

// Puts the stuff bit that is due, if one is. Result: how many.
constexpr int put_stuff(StuffState* state) {
    if (state->run != kLongestRun) {
        return 0;
    }
    *state = {.last = static_cast<std::uint8_t>(state->last ^ 1U), .run = 1};
    return 1;
}

// Puts a bit. Result: number of stuff bits before it.
constexpr int put_bit(StuffState* state, unsigned int bit) {
    const int stuff = put_stuff(state);
    const bool is_equal = bit == state->last;
    state->run = static_cast<std::uint8_t>(is_equal ? state->run + 1 : 1);
    state->last = static_cast<std::uint8_t>(bit);
    return stuff;
}

constexpr int kCrcBits = 15;
constexpr unsigned int kCrcMask = 0x7FFF;

constexpr unsigned int crc_put_bit(unsigned int crc, unsigned int bit) {
    constexpr unsigned int kCrcPolynomial = 0x4599;
    const unsigned int top = crc >> (kCrcBits - 1) & 1;
    return (crc << 1 & kCrcMask) ^ (top == bit ? 0 : kCrcPolynomial);
}

// What eight bits do at once: bit by bit, the frames of a busy bus take more time than their
// display may.
struct ByteStep {
    StuffState state{};
    std::uint8_t stuff = 0;
};
constexpr int kByteValues = 256;
using StuffTable = std::array<std::array<ByteStep, kByteValues>, 2 * (kLongestRun + 1)>;

constexpr std::size_t row_of(const StuffState& state) {
    return static_cast<std::size_t>(state.last * (kLongestRun + 1) + state.run);
}

constexpr StuffTable kStuffTable = [] {
    StuffTable table{};
    for (std::uint8_t last = 0; last <= 1; ++last) {
        for (std::uint8_t run = 0; run <= kLongestRun; ++run) {
            for (unsigned int byte = 0; byte < kByteValues; ++byte) {
                ByteStep step{.state = {.last = last, .run = run}};
                for (int i = 7; i >= 0; --i) {
                    step.stuff =
                        static_cast<std::uint8_t>(step.stuff + put_bit(&step.state, byte >> i & 1));
                }
                table[row_of({.last = last, .run = run})][byte] = step;
            }
        }
    }
    return table;
}();

constexpr std::array<std::uint16_t, kByteValues> kCrcTable = [] {
    std::array<std::uint16_t, kByteValues> table{};
    for (unsigned int byte = 0; byte < kByteValues; ++byte) {
        unsigned int crc = 0;
        for (int i = 7; i >= 0; --i) {
            crc = crc_put_bit(crc, byte >> i & 1);
        }
        table[byte] = static_cast<std::uint16_t>(crc);
    }
    return table;
}();

// Bits from the start of frame on.
class BitStream {
  public:
    explicit BitStream(FrameBits* bits) : bits_(bits) {}

    void put(unsigned int bit) {
        add(1, put_bit(&state_, bit));
        crc_ = crc_put_bit(crc_, bit);
    }
    // The lowest `count` bits of a value, highest first.
    void put(unsigned int value, int count) {
        for (; count >= 8; count -= 8) {
            put_byte(value >> (count - 8) & 0xFF);
        }
        for (int i = count - 1; i >= 0; --i) {
            put(value >> i & 1);
        }
    }
    // Adds the stuff bit that is due, if one is.
    void end() { add(0, put_stuff(&state_)); }
    // What follows is at the data rate.
    void rate_switch() { is_data_ = true; }

    void put_crc() { put(crc_, kCrcBits); }

  private:
    void put_byte(unsigned int byte) {
        const ByteStep& step = kStuffTable[row_of(state_)][byte];
        add(8, step.stuff);
        state_ = step.state;
        crc_ = (crc_ << 8 & kCrcMask) ^ kCrcTable[(crc_ >> (kCrcBits - 8) ^ byte) & 0xFF];
    }
    void add(int bits, int stuff) {
        (is_data_ ? bits_->data : bits_->nominal) += bits + stuff;
        bits_->stuff += stuff;
    }

    FrameBits* bits_;
    bool is_data_ = false;
    StuffState state_{};
    unsigned int crc_ = 0;  // of CAN 2.0; CAN FD takes the room of its own without its value
};

// From the start of frame to IDE and, of 29 bits, to the bit behind the identifier.
// `remote`: RTR; in CAN FD it is always 0.
void put_identifier(BitStream& stream, const CAN_FRAME_INFO& frame, unsigned int remote) {
    constexpr int kShort = 11;
    constexpr int kRest = 18;
    stream.put(0);
    if (frame.id_type == TAVU_SID) {
        stream.put(frame.id, kShort);
        stream.put(remote);
        stream.put(0);  // IDE
        return;
    }
    stream.put(frame.id >> kRest, kShort);
    stream.put(1);  // SRR
    stream.put(1);  // IDE
    stream.put(frame.id, kRest);
    stream.put(remote);
}

void put_content(BitStream& stream, const CAN_FRAME_INFO& frame) {
    stream.put(static_cast<unsigned int>(frame.dlc), 4);
    const int bytes = payload_bytes(frame);
    for (int i = 0; i < bytes; ++i) {
        stream.put(frame.data[i], 8);
    }
}

FrameBits classic_bits(const CAN_FRAME_INFO& frame) {
    FrameBits bits;
    BitStream stream(&bits);
    put_identifier(stream, frame, static_cast<unsigned int>(frame.rtr));
    stream.put(0, frame.id_type == TAVU_SID ? 1 : 2);  // r0; r1, r0
    put_content(stream, frame);
    stream.put_crc();
    stream.end();
    bits.nominal += kCrcDelimiter + kAcknowledge + kEndOfFrame + kIntermission;
    return bits;
}

FrameBits fd_bits(const CAN_FRAME_INFO& frame) {
    constexpr int kMostShortCrc = 16;  // bytes with the CRC of 17 bits, more have that of 21
    constexpr int kStuffCount = 4;     // with its parity
    FrameBits bits;
    BitStream stream(&bits);
    put_identifier(stream, frame, 0);
    stream.put(1);  // FDF
    stream.put(0);  // reserved
    stream.put(static_cast<unsigned int>(frame.brs));
    if (frame.brs == TAVU_BRS_ON) {
        stream.rate_switch();
    }
    stream.put(static_cast<unsigned int>(frame.esi));
    put_content(stream, frame);
    // A fixed stuff bit stands before the field and behind each four bits of it. The first one is
    // also the dynamic one, should that be due, so stream.end() is not called.
    const int field = kStuffCount + (payload_bytes(frame) > kMostShortCrc ? 21 : 17);
    const int fixed = 1 + field / 4;
    bits.stuff += fixed;
    (frame.brs == TAVU_BRS_ON ? bits.data : bits.nominal) += field + fixed + kCrcDelimiter;
    bits.nominal += kAcknowledge + kEndOfFrame + kIntermission;
    return bits;
}

std::int64_t part_ns(int bits, std::uint32_t rate_bps) {
    return (bits * kNanosInSecond + rate_bps / 2) / rate_bps;
}

bool is_channel(int channel) {
    return channel >= 0 && channel < TAVU_CHANNEL_CNT;
}

}  // namespace

std::uint32_t rate_bps(int code) {
    constexpr std::array<std::uint32_t, 11> kRates{5000,   10000,  20000,  50000,   100000, 125000,
                                                   250000, 500000, 800000, 1000000, 400000};
    return code >= 0 && code < static_cast<int>(kRates.size())
               ? kRates[static_cast<std::size_t>(code)]
               : 0;
}

int frame_bits(const CAN_FRAME_INFO& frame, FrameBits* bits) {
    if (!frame_is_valid(frame) || !frame_is_data(frame)) {
        return TAVU_FAILURE;
    }
    *bits = frame.fdf == TAVU_FDF_ON ? fd_bits(frame) : classic_bits(frame);
    return TAVU_SUCCESS;
}

std::int64_t bits_ns(const FrameBits& bits, const BusRates& rates) {
    if (rates.nominal_bps == 0 || (bits.data != 0 && rates.data_bps == 0)) {
        return 0;
    }
    return part_ns(bits.nominal, rates.nominal_bps) +
           (bits.data == 0 ? 0 : part_ns(bits.data, rates.data_bps));
}

void meter_start(BusMeter* meter, const std::array<BusRates, TAVU_CHANNEL_CNT>& rates,
                 std::int64_t now_us) {
    *meter = {};
    meter->rates = rates;
    meter->since_us.fill(now_us);
}

int meter_add(BusMeter* meter, const Record& record) {
    FrameBits bits;
    if (frame_bits(record.frame, &bits) != TAVU_SUCCESS) {
        return TAVU_FAILURE;
    }
    const auto channel = static_cast<std::size_t>(record.frame.CAN_port);
    const std::int64_t busy_ns = bits_ns(bits, meter->rates[channel]);
    ++meter->load[channel].frames;
    meter->load[channel].busy_ns += busy_ns;
    return busy_ns > 0 ? TAVU_SUCCESS : TAVU_FAILURE;
}

BusLoad meter_read(BusMeter* meter, int channel, std::int64_t now_us) {
    if (!is_channel(channel)) {
        return {};
    }
    constexpr double kMicrosInSecond = 1e6;
    BusLoad& counted = meter->load[static_cast<std::size_t>(channel)];
    std::int64_t& since_us = meter->since_us[static_cast<std::size_t>(channel)];
    BusLoad load = counted;
    if (now_us > since_us) {
        const auto passed_us = static_cast<double>(now_us - since_us);
        load.frames_per_s = static_cast<double>(load.frames) * kMicrosInSecond / passed_us;
        load.percent = static_cast<double>(load.busy_ns) / 10 / passed_us;  // ns, us, per cent
    }
    counted = {};
    since_us = now_us;
    return load;
}

}  // namespace trace
