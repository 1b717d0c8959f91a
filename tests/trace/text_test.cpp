// tests/trace/text_test.cpp - test: frames as text against lines written by hand, and back again.
// SPDX-License-Identifier: MIT
#include "trace/text.h"

#include "tests/trace/support.h"

#include <stdlib.h>

#include <string.h>
#include <vector>

using namespace trace;

namespace {

constexpr std::int64_t kTime_us = 1436509052249713;

struct Case {
    Record record;
    const char* frame;
    const char* console;  // without time and details
};

Record received(const CAN_FRAME_INFO& frame) {
    return {.time_us = kTime_us, .frame = frame};
}

const std::array kCases{
    Case{received(Frame{
             .dlc = 8, .id = 0x123, .data = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88}}),
         "123#1122334455667788", "  can0  123   [8]  11 22 33 44 55 66 77 88"},
    Case{received(Frame{.CAN_port = TAVU_CAN_2,
                        .id_type = TAVU_EID,
                        .dlc = 4,
                        .id = 0x18FEF100,
                        .data = {0xDE, 0xAD, 0xBE, 0xEF}}),
         "18FEF100#DEADBEEF", "  can1  18FEF100   [4]  DE AD BE EF"},
    Case{received(Frame{.id = 7}), "007#", "  can0  007   [0] "},
    Case{received(Frame{.id_type = TAVU_EID, .id = 7}), "00000007#", "  can0  00000007   [0] "},
    Case{received(Frame{.rtr = TAVU_EN_RTR, .id = 0x7FF}), "7FF#R",
         "  can0  7FF   [0]  remote request"},
    Case{received(Frame{.rtr = TAVU_EN_RTR, .dlc = 5, .id = 0x7FF}), "7FF#R5",
         "  can0  7FF   [5]  remote request"},
    Case{received(Frame{.rtr = TAVU_EN_RTR, .dlc = 11, .id = 0x7FF}), "7FF#R8_B",
         "  can0  7FF   {B}  remote request"},
    Case{received(Frame{.dlc = 14, .id = 0x123, .data = {1, 2, 3, 4, 5, 6, 7, 8}}),
         "123#0102030405060708_E", "  can0  123   {E}  01 02 03 04 05 06 07 08"},
    Case{received(Frame{.dlc = 9,
                        .fdf = TAVU_FDF_ON,
                        .id = 0x123,
                        .data = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}}),
         "123##00102030405060708090A0B0C",
         "  can0  123  [12]  01 02 03 04 05 06 07 08 09 0A 0B 0C"},
    Case{received(Frame{.msg_type = TAVU_BUSERR_TYPE}), nullptr,
         nullptr},  // a report, no error frame
    Case{received(Frame{.id_type = TAVU_EID,
                        .dlc = 8,
                        .msg_type = TAVU_BUSERR_TYPE,
                        .id = kErrorController | kErrorCounters,
                        .data = {0, 8, 0, 0, 0, 0, 0x80, 0}}),
         "20000204#0008000000008000",
         "  can0  20000204   [8]  00 08 00 00 00 00 80 00   ERRORFRAME"},
};

// What a write call gives: the text, or "none".
template <typename Write>
std::string written(Write write) {
    std::array<char, kTextMost> text{};
    const int length = write(std::span<char>(text));
    return length < 0 ? "none" : std::string(text.data(), static_cast<std::size_t>(length));
}
std::string console(const Record& record, const ConsoleForm& form = {}) {
    return written(
        [&](std::span<char> text) { return console_line_write(record, {}, form, text); });
}
std::string log(const Record& record, LogForm form) {
    return written([&](std::span<char> text) { return log_line_write(record, {}, form, text); });
}

// What a parse call gives: all the record tells, or offset and reason.
template <typename Parse>
std::string parsed(const std::string& text, Parse parse) {
    Record record;
    ParseError error;
    if (parse(text, &record, &error) == TAVU_SUCCESS) {
        return told(record);
    }
    EXPECT_EQ(told(record), told({})) << text;
    return std::to_string(error.offset) + ' ' + error.reason;
}
std::string parsed_console(const std::string& text) {
    return parsed(text, [](auto line, Record* record, ParseError* error) {
        return console_line_parse(line, {}, record, error);
    });
}
std::string parsed_log(const std::string& text) {
    return parsed(text, [](auto line, Record* record, ParseError* error) {
        return log_line_parse(line, {}, record, error);
    });
}
std::string parsed_frame(const std::string& text) {
    return parsed(text, [](auto line, Record* record, ParseError* error) {
        return frame_parse(line, &record->frame, error);
    });
}

}  // namespace

TEST(Text, FramesReadAsTheCommandsOfOthersWriteThem) {
    for (const Case& each : kCases) {
        const std::string channel = each.record.frame.CAN_port == 0 ? "can0 " : "can1 ";
        const std::string line = "(1436509052.249713) " + channel;
        if (each.frame == nullptr) {
            EXPECT_EQ(console(each.record) + log(each.record, kLogPlain), "nonenone");
            continue;
        }
        EXPECT_EQ(console(each.record), each.console);
        EXPECT_EQ(log(each.record, kLogPlain), line + each.frame);
        EXPECT_EQ(parsed_log(line + each.frame), told(each.record));
        Record timeless = each.record;
        timeless.time_us = 0;
        EXPECT_EQ(parsed_console(each.console), told(timeless));
        if (frame_is_data(each.record.frame)) {
            timeless.frame.CAN_port = 0;
            EXPECT_EQ(parsed_frame(each.frame), told(timeless));
        }
    }
}

TEST(Text, TimeDirectionFlagsAndCharactersAreAddedOnRequest) {
    Record record{.time_us = 5000001, .is_sent = true, .frame = kCases[8].record.frame};
    record.frame.brs = TAVU_BRS_ON;
    EXPECT_EQ(console(record, {.time = kTimeSeconds, .has_details = true}),
              " (0000000005.000001)  can0  TX B -  123  [12]  01 02 03 04 05 06 07 08 09 0A 0B 0C");
    record.frame.esi = 1;
    EXPECT_EQ(log(record, kLogDirection),
              "(0000000005.000001) can0 123##30102030405060708090A0B0C T");
    record = {.time_us = 5000001, .frame = Frame{.dlc = 3, .id = 1, .data = {'A', '\'', 0x7F}}};
    EXPECT_EQ(console(record, {.has_details = true, .has_characters = true}),
              "  can0  RX - -  001   [3]  41 27 7F                  'A'.'");
    setenv("TZ", "UTC-1", 1);
    EXPECT_EQ(console(record, {.time = kTimeDate}),
              " (1970-01-01 01:00:05.000001)  can0  001   [3]  41 27 7F");
}

TEST(Text, WhatWasWrittenParsesToTheSame) {
    Dice dice;
    setenv("TZ", "UTC-1", 1);
    for (int i = 0; i < 20000; ++i) {
        const Record record = dice.record();
        const std::string all = told(record);
        for (const ConsoleTime time : {kTimeSeconds, kTimeDate}) {
            ASSERT_EQ(parsed_console(console(record, {time, true, (i & 1) == 0})), all);
        }
        ASSERT_EQ(parsed_log(log(record, kLogDirection)), all);
    }
}

TEST(Text, FormsOfOtherProgramsAreTaken) {
    const Record remote{.time_us = 1500000,
                        .frame = Frame{.rtr = TAVU_EN_RTR, .dlc = 8, .id = 0xABC & 0x7FF}};
    EXPECT_EQ(parsed_log("  (1.5)   can0\t2bc#r8   R "), told(remote));
    EXPECT_EQ(parsed_console("(1.500000999)  can0       2BC   [8]  remote request"), told(remote));
    Record data{.frame = Frame{.dlc = 3, .id = 0x5A1, .data = {0x11, 0x22, 0x33}}};
    EXPECT_EQ(parsed_frame("5A1#11.2233"), told(data));
    EXPECT_EQ(parsed_console("  can0  5A1   {3}  11 22 33"), told(data));
    data.frame.fdf = TAVU_FDF_ON;
    data.frame.esi = 1;
    EXPECT_EQ(parsed_frame("5a1##6112233"), told(data));  // says once more that it is CAN FD
}

TEST(Text, AFaultIsNamedWithItsPlace) {
    const std::string digits = "an identifier has 3 or 8 hexadecimal digits";
    const std::string no_place = "this character cannot stand here";
    const std::string none_so_long = "no CAN FD frame has so many bytes";
    const std::array<std::array<std::string, 2>, 23> frames{{
        {"", "0 " + digits},
        {"12#00", "2 " + digits},
        {"1234#00", "4 " + digits},
        {"123456789#", "8 " + digits},
        {" 800#00", "1 an 11-bit identifier above 7FF"},
        {"40000000#00", "0 a 29-bit identifier above 1FFFFFFF"},
        {"20000001#0000000000000000", "0 an error frame cannot be sent"},
        {"123", "3 no # behind the identifier"},
        {"123#0", "5 a byte has two hexadecimal digits"},
        {"123#0.0", "5 a byte has two hexadecimal digits"},
        {"123#00.", "7 no byte behind the dot"},
        {"123#00..00", "7 no byte behind the dot"},
        {"123#.00", "4 " + no_place},
        {"123#00x", "6 " + no_place},
        {"123#00 00", "6 " + no_place},
        {"123#112233445566778899", "20 more than 8 bytes"},
        {"123#1122334455667788_8", "21 a dlc above 8 is a hexadecimal digit from 9 to F"},
        {"123#11_9", "6 " + no_place},
        {"123#R9", "5 a remote frame has a dlc of at most 8 here"},
        {"123##", "5 CAN FD flags are one hexadecimal digit"},
        {"123##8", "5 CAN FD flags are 1 (bit-rate switch) and 2 (ESI)"},
        {"123##0112233445566778899", "24 " + none_so_long},
        {"123##0" + std::string(130, 'A'), "134 more than 64 bytes"},
    }};
    for (const auto& [text, fault] : frames) {
        EXPECT_EQ(parsed_frame(text), fault) << text;
    }
    const std::array<std::array<std::string, 2>, 9> lines{{
        {"1.5 can0 123#", "0 no time in parentheses"},
        {"(1) can0 123#", "2 no decimals behind the seconds"},
        {"(9223372036854.0) can0 123#", "14 the number is too high"},
        {"(1.5)can0 123#", "5 no space"},
        {"(1.5) can2 123#", "6 an unknown interface name"},
        {"(1.5) can0", "10 the line ends too early"},
        {"(1.5) can0 20000001#00", "22 an error frame has 8 bytes"},
        {"(1.5) can0 123# X", "16 a direction is T (sent) or R (received)"},
        {"(1.5) can0 123# T T", "17 " + no_place},
    }};
    for (const auto& [text, fault] : lines) {
        EXPECT_EQ(parsed_log(text), fault) << text;
    }
    const std::array<std::array<std::string, 2>, 9> shown{{
        {"can0 RX B - 123 [1] 00", "16 flags of CAN FD, but the length of CAN 2.0"},
        {"can0 123 8 00", "9 no length in brackets"},
        {"can0 123 [9] 00", "10 one digit is the length of CAN 2.0, at most 8"},
        {"can0 123 [13] 00", "10 " + none_so_long},
        {"can0 123 [2] 00", "15 fewer bytes than the length says"},
        {"can0 123 [1] 00 00", "16 more bytes than the length says"},
        {"can0 123 [1] 00 'AB'", "18 no quotation mark behind the characters"},
        {"can0 20000001 [7] 00", "14 an error frame has 8 bytes"},
        {"(2015-07-32 1:1:1.0) can0 123 [0]", "11 the number is too high"},
    }};
    for (const auto& [text, fault] : shown) {
        EXPECT_EQ(parsed_console(text), fault) << text;
    }
}

TEST(Text, TooLittleRoomAndANameThatIsNoneWriteNothing) {
    std::array<char, 8> room{"kept"};
    EXPECT_EQ(frame_write(kCases[2].record.frame, std::span(room).first(4)), -1);
    EXPECT_STREQ(room.data(), "kept");
    EXPECT_EQ(frame_write(kCases[2].record.frame, std::span(room).first(5)), 4);
    EXPECT_STREQ(room.data(), "007#");
    std::array<char, kTextMost> text{};
    EXPECT_EQ(log_line_write(kCases[0].record, {.name = {{{"a b"}, {"can1"}}}}, kLogPlain, text),
              -1);
    EXPECT_GT(log_line_write(kCases[0].record, {.name = {{{"vcan0"}, {""}}}}, kLogPlain, text), 0);
}

TEST(Record, AReportGivesErrorFramesOfTheChannelsThatItNames) {
    CAN_FRAME_INFO report = Frame{.msg_type = TAVU_BUSERR_TYPE};
    std::array<CAN_FRAME_INFO, TAVU_CHANNEL_CNT> frames{};
    const auto expect_frames = [&](const std::array<unsigned char, 12>& counters,
                                   const std::vector<std::string>& lines) {
        memcpy(report.data_err, counters.data(), counters.size());
        ASSERT_EQ(error_frames(report, &frames), lines.size());
        for (std::size_t i = 0; i < lines.size(); ++i) {
            EXPECT_EQ(console(received(frames[i])), lines[i]);
        }
    };
    expect_frames({0, 0, 0, 3, 0x85, 0x60, 0, 0, 0, 0, 0x7F, 0x80},
                  {"  can0  20000204   [8]  00 18 00 00 00 00 60 85   ERRORFRAME",
                   "  can1  20000204   [8]  00 24 00 00 00 00 80 7F   ERRORFRAME"});
    expect_frames({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x5F, 8},
                  {"  can1  20000200   [8]  00 00 00 00 00 00 08 5F   ERRORFRAME"});
    report.msg_type = TAVU_BUSERR_PSR_TYPE;
    expect_frames({9, 9, 9, 0, 0, 0, 0, 0, 0, 1, 2, 0x0B},
                  {"  can1  20000008   [8]  00 00 00 00 00 01 02 0B   ERRORFRAME"});
    report.msg_type = TAVU_ROMERR_TYPE;
    expect_frames({0, 0, 0, 1, 1, 1}, {});
}

TEST(Record, FieldsOutOfRangeMakeAFrameInvalid) {
    const CAN_FRAME_INFO good = Frame{.dlc = 15, .fdf = TAVU_FDF_ON, .id = 0x7FF};
    ASSERT_TRUE(frame_is_valid(good));
    const auto refuse = [&](int CAN_FRAME_INFO::*field, int value) {
        CAN_FRAME_INFO bad = good;
        bad.*field = value;
        EXPECT_FALSE(frame_is_valid(bad)) << told({.frame = bad});
    };
    refuse(&CAN_FRAME_INFO::CAN_port, 2);
    refuse(&CAN_FRAME_INFO::id_type, 0);
    refuse(&CAN_FRAME_INFO::rtr, TAVU_EN_RTR);  // CAN FD has no remote frames
    refuse(&CAN_FRAME_INFO::dlc, 16);
    refuse(&CAN_FRAME_INFO::dlc, -1);
    refuse(&CAN_FRAME_INFO::brs, 2);
    refuse(&CAN_FRAME_INFO::esi, -1);
    refuse(&CAN_FRAME_INFO::fdf, 2);
    CAN_FRAME_INFO beyond = good;
    beyond.id = 0x800;
    EXPECT_FALSE(frame_is_valid(beyond));
}
