// tests/gui/bus_page_test.cpp - test: numbers, words and plot of the monitor's bus page.
// Uses tests/gui/ui_fixture.h, gui/monitor/.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/bus_measure.h"
#include "gui/monitor/page.h"

#include "tests/gui/ui_fixture.h"

namespace {

constexpr std::array<trace::BusRates, TAVU_CHANNEL_CNT> kRates{{{500000, 0}, {0, 0}}};

CAN_FRAME_INFO frame_of(int channel) {
    CAN_FRAME_INFO frame{};  // 254 us at 500 kbit/s
    frame.CAN_port = channel;
    frame.id_type = TAVU_SID;
    frame.dlc = 8;
    return frame;
}

CAN_FRAME_INFO report_of(unsigned char received, unsigned char sent) {
    CAN_FRAME_INFO report{};
    report.msg_type = TAVU_BUSERR_TYPE;
    report.data_err[TAVU_CAN_1][4] = received;
    report.data_err[TAVU_CAN_1][5] = sent;
    return report;
}

// Adds 250 frames of each channel and reads, `times` times a quarter of a second later.
void run(BusMeasure* measure, std::int64_t* now_us, int times) {
    for (int i = 0; i < times * 250; ++i) {
        bus_measure_add(measure, {.frame = frame_of(TAVU_CAN_1)});
        bus_measure_add(measure, {.frame = frame_of(TAVU_CAN_2)});
        if (i % 250 == 249) {
            *now_us += kBusReading_us;
            EXPECT_FALSE(bus_measure_read(measure, kRates, *now_us - 1));
            EXPECT_TRUE(bus_measure_read(measure, kRates, *now_us));
        }
    }
}

TEST(BusMeasure, TellsTheLastSecondAndRemembersFiveMinutes) {
    BusMeasure measure;
    std::int64_t now_us = 5'000'000;
    bus_measure_begin(&measure, now_us);
    run(&measure, &now_us, 4 * 400);
    const auto& [can1, can2] = measure.now;
    EXPECT_DOUBLE_EQ(can1.frames_per_s, 1000);
    EXPECT_EQ(bus_load_words(can1), "25.4 %");
    EXPECT_DOUBLE_EQ(can2.frames_per_s, 1000);
    EXPECT_EQ(bus_load_words(can2), "Unknown");
    const BusHistory& history = measure.history;
    EXPECT_EQ(history.at(history.count - 1).time_us, now_us);
    EXPECT_LE(history.at(0).time_us, now_us - kBusSpan_us);
    EXPECT_DOUBLE_EQ(history.at(0).sample[TAVU_CAN_1].percent, 25.4);
    now_us += 4 * kBusReading_us;  // a pause, in which nothing came
    EXPECT_TRUE(bus_measure_read(&measure, kRates, now_us));
    EXPECT_LT(measure.now[TAVU_CAN_1].frames_per_s, 500);
}

TEST(BusMeasure, PutsRatesAndErrorCountersIntoWords) {
    UPUI_INFO configuration{};
    configuration.device_type = 1;
    configuration.cfg_info_canfd.baud[TAVU_CAN_1] = TAVU_RATE_500K;
    configuration.cfg_info_canfd.baud[TAVU_CAN_2] = TAVU_RATE_CUSTOM_1;
    configuration.cfg_info_canfd.fdf_en[TAVU_CAN_1] = TAVU_FDF_ON;
    configuration.cfg_info_canfd.datarate[TAVU_CAN_1] = 5;
    EXPECT_EQ(bus_rate_words(bus_rates(configuration)[TAVU_CAN_1]), "500 kbit/s, 5 Mbit/s");
    EXPECT_EQ(bus_rate_words(bus_rates(configuration)[TAVU_CAN_2]), "Unknown");
    BusErrors errors;
    EXPECT_EQ(bus_state_words(errors, 0), "Not reported");
    errors = {.time_us = 0, .sent = 95, .received = 12};
    EXPECT_EQ(bus_state_words(errors, 999'999), "Active, now");
    errors.sent = 96;
    EXPECT_EQ(bus_state_words(errors, 119'000'000), "Warning, 119 s ago");
    errors.received = 128;
    EXPECT_EQ(bus_received_words(errors), "128+");
    EXPECT_EQ(bus_state_words(errors, 120'000'000), "Passive, 2 min ago");
}

struct BusPage : UiTest {
    void TearDown() override {
        monitor_close();
        UiTest::TearDown();
    }
};

GtkWidget* by_id(const char* id) {
    return ui_script::find_by_id(id);
}

TEST_F(BusPage, ShowsTrafficErrorsAndLossesOfARunningModule) {
    sim::ModuleState state;
    state.config[11 + sim::kRateAt] = TAVU_RATE_CUSTOM_1;
    station().set_state(state);
    ASSERT_TRUE(connected());
    losses_begin();
    monitor_open();
    gtk_notebook_set_current_page(GTK_NOTEBOOK(by_id("monitor_notebook")), 2);
    const Widgets watched{by_id("bus_bit_rate_1"), by_id("bus_sent_errors_1"), by_id("bus_state_1"),
                          by_id("bus_load_2"),     by_id("bus_hint"),          by_id("bus_losses")};
    EXPECT_TRUE(run_until([&] { return shown(watched).starts_with("500 kbit/s | – | Not rep"); }));
    EXPECT_NE(shown(watched).find("Error type: Enable All"), std::string::npos);
    report_post(report_of(255, 3));
    for (int i = 0; i <= kRingSlots; ++i) {
        recv_queue_push(frame_of(TAVU_CAN_1));
    }
    recv_queue_push(frame_of(TAVU_CAN_1));
    show_losses();
    EXPECT_TRUE(run_until([&] { return shown(watched).starts_with("500 kbit/s | 3 | Passive"); }));
    EXPECT_TRUE(shown(watched).ends_with(
        "Unknown | hidden | 2 frames came faster than the display could take them"))
        << shown(watched);
    EXPECT_TRUE(run_until([] { return *ui_script::text_of(by_id("bus_frames_1")) > "0"; }));
    const std::string description =
        atk_object_get_description(gtk_widget_get_accessible(by_id("bus_plot")));
    EXPECT_NE(description.find("transmit errors 3, receive errors 128+, error state: Passive"),
              std::string::npos)
        << description;
    losses_begin();
    use(by_id("monitor_clear_btn"));
    EXPECT_TRUE(shown(watched).starts_with("Unknown | – | Not reported")) << shown(watched);
    EXPECT_TRUE(shown(watched).ends_with("Nothing"));
}

}  // namespace
