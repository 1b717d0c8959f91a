// tests/trace/bus_load_test.cpp - test: bits of frames and bus load against numbers found by hand.
// SPDX-License-Identifier: MIT
#include "trace/bus_load.h"

#include "tests/trace/support.h"

using namespace trace;

namespace {

CAN_FRAME_INFO frame_of(int id_type, unsigned int id, int dlc, unsigned char byte) {
    Frame frame{.id_type = id_type, .dlc = dlc, .id = id};
    frame.data.fill(byte);
    return frame;
}

CAN_FRAME_INFO fd_of(CAN_FRAME_INFO frame, int brs, int esi) {
    frame.fdf = TAVU_FDF_ON;
    frame.brs = brs;
    frame.esi = esi;
    return frame;
}

void expect_bits(const CAN_FRAME_INFO& frame, int nominal, int data, int stuff) {
    FrameBits bits;
    ASSERT_EQ(frame_bits(frame, &bits), TAVU_SUCCESS);
    EXPECT_EQ(bits.nominal, nominal);
    EXPECT_EQ(bits.data, data);
    EXPECT_EQ(bits.stuff, stuff);
}

}  // namespace

TEST(BusLoad, Can20FramesHaveTheBitsOfTheirStreamAndCrc) {
    // 98 bits up to the CRC: 15 zeros give 3 stuff bits, the 1 of the dlc none, the 67 zeros behind
    // it 13; the CRC 001010001011011 goes on for two zeros, gives none. 13 bits end the frame.
    expect_bits(frame_of(TAVU_SID, 0, 8, 0), 98 + 16 + 13, 0, 16);
    // CRC 111110000100000: its five ones give one and the stuff bit with the four zeros another,
    // its last five zeros one more, behind which the delimiter comes.
    expect_bits(frame_of(TAVU_SID, 9, 0, 0), 34 + 5 + 13, 0, 5);
    CAN_FRAME_INFO j1939 = frame_of(TAVU_EID, 0x18FEF100, 8, 0);
    for (unsigned int i = 0; i < 8; ++i) {
        j1939.data[i] = static_cast<unsigned char>(0x11 * (i + 1));
    }
    expect_bits(j1939, 118 + 5 + 13, 0, 5);
    expect_bits(frame_of(TAVU_SID, 0x2A5, 14, 0xFF), 98 + 13 + 13, 0, 13);
    CAN_FRAME_INFO remote = frame_of(TAVU_EID, 0x1FFFFFFF, 0, 0);
    remote.rtr = TAVU_EN_RTR;
    expect_bits(remote, 54 + 7 + 13, 0, 7);
}

TEST(BusLoad, CanFdFramesAreSplitWhereTheRateChanges) {
    // 17 bits up to the bit-rate switch and 12 at the end; 5 bits, stuff count and CRC of 21 bits
    // with 6 fixed stuff bits and the delimiter at the data rate.
    expect_bits(fd_of(frame_of(TAVU_SID, 0x123, 0, 0), 1, 1), 29, 5 + 21 + 6 + 1, 6);
    // Data that ends with five ones: the fixed stuff bit is the one that they need.
    expect_bits(fd_of(frame_of(TAVU_SID, 0x123, 1, 0x1F), 1, 0), 29, 41, 6);
    expect_bits(fd_of(frame_of(TAVU_SID, 0x123, 1, 0x3F), 1, 0), 29, 42, 7);
    // 13 zeros up to IDE, two stuff bits; 105 for 525 ones or zeros; a CRC of 21 bits, 7 fixed.
    expect_bits(fd_of(frame_of(TAVU_SID, 0, 15, 0), 1, 0), 31, 652, 111);
    expect_bits(fd_of(frame_of(TAVU_EID, 0x18FEF100, 15, 0xFF), 1, 1), 50, 653, 112);
    expect_bits(fd_of(frame_of(TAVU_EID, 0x18FEF100, 15, 0xFF), 0, 0), 703, 0, 112);
    // The longer CRC begins above 16 bytes.
    expect_bits(fd_of(frame_of(TAVU_SID, 0x07E, 10, 0x55), 0, 0), 192, 0, 8);
    expect_bits(fd_of(frame_of(TAVU_SID, 0x07E, 11, 0x55), 0, 0), 229, 0, 9);
}

TEST(BusLoad, BitsTakeTheTimeOfTheirRates) {
    EXPECT_EQ(bits_ns({.nominal = 127}, {.nominal_bps = 500000}), 254000);
    EXPECT_EQ(bits_ns({.nominal = 29, .data = 33}, {500000, 8000000}), 58000 + 4125);
    EXPECT_EQ(bits_ns({.nominal = 29, .data = 33}, {500000, 0}), 0);
    EXPECT_EQ(rate_bps(TAVU_RATE_800K), 800000);
    EXPECT_EQ(rate_bps(TAVU_RATE_400K), 400000);
    EXPECT_EQ(rate_bps(TAVU_RATE_CUSTOM_1), 0);
    EXPECT_EQ(rate_bps(-1), 0);
}

TEST(BusLoad, AMeterTellsTheLoadSinceItsLastReading) {
    BusMeter meter;
    meter_start(&meter, {{{500000, 0}, {0, 0}}}, 1000000);
    const Record record{.frame = frame_of(TAVU_SID, 0, 8, 0)};  // 254 us
    for (int i = 0; i < 500; ++i) {
        EXPECT_EQ(meter_add(&meter, record), TAVU_SUCCESS);
    }
    Record other = record;
    other.frame.CAN_port = TAVU_CAN_2;
    EXPECT_EQ(meter_add(&meter, other), TAVU_FAILURE);  // its rate is not known
    BusLoad load = meter_read(&meter, TAVU_CAN_1, 1500000);
    EXPECT_EQ(load.frames, 500);
    EXPECT_DOUBLE_EQ(load.frames_per_s, 1000);
    EXPECT_DOUBLE_EQ(load.percent, 25.4);
    load = meter_read(&meter, TAVU_CAN_2, 1500000);
    EXPECT_DOUBLE_EQ(load.frames_per_s, 2);
    EXPECT_EQ(load.percent, 0);
    EXPECT_EQ(meter_read(&meter, TAVU_CAN_1, 1600000).frames, 0);
    meter_add(&meter, record);
    EXPECT_EQ(meter_read(&meter, TAVU_CAN_1, 1600000).percent, 0);  // no time has passed
    EXPECT_EQ(meter_read(&meter, 2, 1700000).frames, 0);
}
