// tests/gui/module_watch_test.cpp - test: hang-ups during clicks, many notices at once.
// Uses tests/gui/ui_fixture.h. What each notice says is tried on the real program, in tests/end_to_end.
// Thread: main; the module is unplugged by another.
// SPDX-License-Identifier: MIT
#include "gui/notice_bar.h"

#include "tests/gui/ui_fixture.h"

#include <thread>

namespace {

using namespace std::chrono_literals;

std::string notice() {
    const bool is_shown = gtk_widget_get_visible(ui_script::find_by_id("notice_bar")) != FALSE;
    return is_shown ? ui_script::text_of(ui_script::find_by_id("notice_label")).value_or("") : "";
}

using ModuleWatch = UiTest;

TEST_F(ModuleWatch, AHangUpInTheMiddleOfAClickIsToldAndTheWindowGoesOn) {
    GtkWidget* const clicks[] = {cd_info.btn_start, cs_info.btn[CS_BTN_RESET], cd_info.btn_cnnt};
    for (GtkWidget* button : clicks) {
        for (const auto moment : {20ms, 170ms, 400ms}) {
            ASSERT_TRUE(connected());
            {
                const std::jthread hand([moment] {
                    std::this_thread::sleep_for(moment);
                    station().unplug();
                });
                use(button);
            }
            if (is_connect) {
                EXPECT_TRUE(
                    run_until([] { return notice().starts_with("The module on ttyACM0"); }));
                use(cd_info.btn_cnnt);
            }
            EXPECT_FALSE(is_connect);
            EXPECT_EQ(notice(), "");
            station().plug();
        }
    }
}

TEST_F(ModuleWatch, OfManyNoticesTheLastOfEachKindIsShownTheMostUrgentFirst) {
    for (int i = 0; i <= 100; ++i) {
        notice_show(Notice::losses, "losses " + std::to_string(i), "counters");
        notice_show(Notice::start, "start " + std::to_string(i));
    }
    EXPECT_EQ(notice(), "start 100\u2028losses 100");
    notice_show(Notice::gone, "gone");
    EXPECT_EQ(notice(), "gone");
    for (const Notice kind : {Notice::gone, Notice::start, Notice::losses}) {
        notice_hide(kind);
    }
    EXPECT_EQ(notice(), "");
}

}  // namespace
