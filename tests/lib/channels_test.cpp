// tests/lib/channels_test.cpp - test: channel settings on the wire, and the range filters.
// Uses the public calls against a simulated module.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <thread>

namespace {

RANGE_FILTER_INFO table_of(std::size_t entry, RANGE_INFO range) {
    RANGE_FILTER_INFO table{.enable = 1, .reserved = {}, .range = {}};
    table.range[entry] = range;
    return table;
}

TEST(Channels, FiltersOfNoChannelAreRefusedAndBusStatusIsAskedFor) {
    OpenModule module;
    EXPECT_EQ(TAVUClearFilter(kPort, 2), TAVU_FAILURE);
    EXPECT_EQ(TAVUSetFilter(kPort, {2, TAVU_SID, 0, 0}), TAVU_FAILURE);
    EXPECT_EQ(TAVUGetBusError(kPort), TAVU_SUCCESS);
    EXPECT_EQ(module.sent(1), Texts{"62 62 0D 0A"});
}

TEST(Channels, SlowRatesNeedNewerFirmware) {
    OpenModule module;
    const Texts asked = {"35 35 0D 0A", "36 36 0D 0A"};
    const Texts set = {"35 35 0D 0A", "36 36 0D 0A", "30 02 07 39 0D 0A"};
    module.change([](auto& state) { state.firmware = {0x02, 0x05}; });
    EXPECT_EQ(TAVUSetBaudRate(kPort, 2, 7), TAVU_FAILURE);
    EXPECT_EQ(module.sent(), asked);
    module.change([](auto& state) { state.firmware = {0x03, 0x00}; });
    EXPECT_EQ(TAVUSetBaudRate(kPort, 2, 7), TAVU_SUCCESS);
    EXPECT_EQ(module.sent(), set);
    module.station.script_reply(0x35, {});
    EXPECT_EQ(TAVUSetBaudRate(kPort, 7, 3), TAVU_FAILURE) << "unreadable counts as firmware 0";
    EXPECT_EQ(module.sent(), asked);
}

TEST(Channels, RangeTablesLoadDisabledAndOperateByChannel) {
    OpenModule module;
    const RANGE_FILTER_INFO loaded = table_of(15, {1, TAVU_SID, 0x100, 0x1FF});
    RANGE_FILTER_INFO can1{};
    RANGE_FILTER_INFO can2{};
    ASSERT_EQ(TAVUSetRangeFilter(kPort, &loaded, &loaded), TAVU_SUCCESS);
    const auto state = [&] {
        EXPECT_EQ(TAVUGetRangeFilter(kPort, &can1, &can2), TAVU_SUCCESS);
        return std::array<unsigned int, 4>{can1.enable, can2.enable, can1.range[15].id_end,
                                           can2.range[15].id_end};
    };
    const struct {
        int can1, can2;
        std::array<unsigned int, 4> state;
    } rows[] = {{0, 0, {0, 0, 0x1FF, 0x1FF}}, {2, 0, {1, 0, 0x1FF, 0x1FF}},
                {0, 2, {1, 1, 0x1FF, 0x1FF}}, {1, 4, {0, 1, 0x1FF, 0x1FF}},
                {3, 0, {0, 1, 0, 0x1FF}},     {2, 3, {1, 0, 0, 0}}};
    for (const auto& row : rows) {
        ASSERT_EQ(TAVUInitRangeFilter(kPort, row.can1, row.can2), TAVU_SUCCESS);
        EXPECT_EQ(state(), row.state);
    }
    ASSERT_EQ(TAVUSetRangeFilter(kPort, nullptr, &loaded), TAVU_SUCCESS);
    EXPECT_EQ(state(), (std::array{1U, 0U, 0U, 0x1FFU}))
        << "a table without a source is left alone";
    EXPECT_TRUE(module.sent().empty());
}

// Any half-copied table would remove the frame, as each of the two has it in one entry only.
TEST(Channels, ReceptionNeverSeesAHalfWrittenTable) {
    OpenModule module;
    const std::array tables = {table_of(0, {1, TAVU_SID, 0x150, 0x150}),
                               table_of(15, {1, TAVU_SID, 0x100, 0x1FF})};
    TAVUSetRangeFilter(kPort, &tables[0], nullptr);
    std::atomic<bool> is_done = false;
    std::jthread writer([&] {
        for (std::size_t i = 0; !is_done; ++i) {
            TAVUSetRangeFilter(kPort, &tables[i % 2], &tables[i % 2]);
            TAVUInitRangeFilter(kPort, 2, 2);
        }
    });
    const sim::Bytes report = hex("E1 81 00 00 01 50 00 00 00 00 00 00 00 00 00 0D 0A");
    sim::Bytes stream;
    constexpr int kReports = 2000;
    for (int i = 0; i < kReports; ++i) {
        stream.insert(stream.end(), report.begin(), report.end());
    }
    std::jthread sender([&] { module.station.send_to_host(stream); });
    CAN_FRAME_INFO info{};
    int passed = 0;
    while (passed < kReports && TAVUWaitReceive(kPort, 2000) == TAVU_SUCCESS) {
        ASSERT_EQ(TAVUReceive_CANFD(kPort, &info), TAVU_REPORT);
        ++passed;
    }
    is_done = true;
    EXPECT_EQ(passed, kReports);
}

}  // namespace
