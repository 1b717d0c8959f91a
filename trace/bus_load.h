// trace/bus_load.h - trace: how long a frame occupies the bus, and how busy a bus is.
// Any layer above lib/ may include it.
// Thread: any, one at a time for each meter.
// SPDX-License-Identifier: MIT
#ifndef TRACE_BUS_LOAD_H
#define TRACE_BUS_LOAD_H

#include "trace/record.h"

#include <array>

namespace trace {

// Bits of one frame as it stands on the bus, stuff bits included, from its start of frame to the
// end of the three bits of intermission, in which no other frame can begin.
struct FrameBits {
    int nominal = 0;  // at the nominal rate
    int data = 0;     // at the data rate: none without bit-rate switch
    int stuff = 0;    // how many of both are stuff bits, dynamic and fixed
};

// Bit rates of a channel, bit/s; without bit-rate switch data_bps is not used.
struct BusRates {
    std::uint32_t nominal_bps = 0;
    std::uint32_t data_bps = 0;
};

// Nominal rate in bit/s of a code TAVU_RATE_...; 0 for the custom ones and any other.
std::uint32_t rate_bps(int code);

// Counts the bits of a data or remote frame exactly: CAN 2.0 from its bit stream with CRC, CAN FD
// (ISO: with stuff count) from its bit stream up to the CRC field, which has fixed stuff bits.
// Of a CAN FD frame with bit-rate switch the bit in which the rate rises counts as nominal, the one
// in which it falls as data: the parts of both at the other rate make up for each other when the
// sample points are at the same part of the bit. TAVU_FAILURE: no such frame, *bits is untouched.
int frame_bits(const CAN_FRAME_INFO& frame, FrameBits* bits);

// Nanoseconds on the bus; 0 when a rate that is needed is 0.
std::int64_t bits_ns(const FrameBits& bits, const BusRates& rates);

// Load of one channel since its last reading.
struct BusLoad {
    std::uint64_t frames = 0;  // frames, and the time that they took on the bus
    std::int64_t busy_ns = 0;  //
    double frames_per_s = 0;   //
    double percent = 0;  // of the time that passed; above 100 when frames are recorded in gusts
};

// A meter of both channels. Frames of both directions count: each was once on the bus. Error frames
// do not: how long they were is not known. Set it up with meter_start.
struct BusMeter {
    std::array<BusRates, TAVU_CHANNEL_CNT> rates;
    std::array<BusLoad, TAVU_CHANNEL_CNT> load;           // counts since the last reading
    std::array<std::int64_t, TAVU_CHANNEL_CNT> since_us;  // time of the last reading
};

// Begins to measure both channels, CAN 1 first.
void meter_start(BusMeter* meter, const std::array<BusRates, TAVU_CHANNEL_CNT>& rates,
                 std::int64_t now_us);

// Adds a record. TAVU_FAILURE: it is no data or remote frame, or a rate that it needs is 0 (it is
// counted then, but takes no time).
int meter_add(BusMeter* meter, const Record& record);

// Load of a channel since its last reading or the start, which a later reading begins behind. When
// no time has passed, or the clock went back: rates of 0. A channel other than 0 and 1 has none.
BusLoad meter_read(BusMeter* meter, int channel, std::int64_t now_us);

}  // namespace trace

#endif
