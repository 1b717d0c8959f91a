// tests/gui/layout_test.cpp - test: every control can be reached and read, also on a small desk in a large font.
// Uses tests/gui/ui_fixture.h, tests/gui/inspection.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/inspection.h"
#include "tests/gui/ui_fixture.h"

#include <algorithm>
#include <array>

namespace {

// The window with all that it can show.
struct Layout : UiTest {
    void SetUp() override {
        UiTest::SetUp();
        use(ss_info.chk[SS_CHK_FDF], "on");
        use(ss_info.cbbox[SS_CBBOX_LEN], "64");
    }
    void TearDown() override {
        use(ss_info.chk[SS_CHK_FDF], "off");
        gtk_settings_reset_property(gtk_settings_get_default(), "gtk-font-name");
        UiTest::TearDown();
    }
};

// Waits until the window has been laid out anew: a font takes effect only then.
void resize(int width, int height, const char* font) {
    GtkWindow* window = GTK_WINDOW(windows->main_window);
    int laid_out = 0;
    const gulong handler = g_signal_connect_swapped(
        window, "size-allocate", G_CALLBACK(+[](int* count) { ++*count; }), &laid_out);
    g_object_set(gtk_settings_get_default(), "gtk-font-name", font, nullptr);
    gtk_window_resize(window, width, height);
    gtk_widget_queue_resize(windows->main_window);
    int now[2]{};
    EXPECT_TRUE(run_until([&] {
        gtk_window_get_size(window, &now[0], &now[1]);
        return laid_out > 0 && now[0] == width && now[1] == height;
    })) << testing::PrintToString(now);
    g_signal_handler_disconnect(window, handler);
}

// Whether less than 100 pixels are between two widgets.
bool is_near(GtkWidget* from, GtkWidget* to) {
    const GdkRectangle area = area_in(to, from);
    const GdkRectangle own = area_in(from, from);
    const GdkRectangle around{-100, -100, own.width + 200, own.height + 200};
    return gdk_rectangle_intersect(&area, &around, nullptr) != FALSE;
}

// Whether a widget of the upper panels is shown as a whole, without scrolling.
bool is_in_view(GtkWidget* widget) {
    GtkWidget* port = gtk_widget_get_ancestor(widget, GTK_TYPE_VIEWPORT);
    return is_inside(area_in(widget, port), area_in(port, port));
}

// The ids of the widgets that Tab comes to, from `first` on.
std::string tab_order(GtkWidget* first, int steps) {
    std::string ids;
    gtk_widget_grab_focus(first);
    for (int step = 0; step < steps; ++step) {
        g_signal_emit_by_name(windows->main_window, "move-focus", GTK_DIR_TAB_FORWARD);
        GtkWidget* focus = gtk_window_get_focus(GTK_WINDOW(windows->main_window));
        ids += std::string(step > 0 ? " " : "") + gtk_buildable_get_name(GTK_BUILDABLE(focus));
    }
    return ids;
}

// What the label of the memory's state looks like with a text.
std::vector<unsigned char> picture_with(const char* text) {
    constexpr int kSize_px = 64;
    GtkWidget* label = bs_info.label_content[BS_LABEL_EE_C];
    gtk_label_set_text(GTK_LABEL(label), text);
    GtkAllocation area;
    gtk_widget_get_allocation(label, &area);
    gtk_widget_get_preferred_size(label, nullptr, nullptr);
    gtk_widget_size_allocate(label, &area);
    std::vector<unsigned char> picture(kSize_px * kSize_px);
    cairo_surface_t* surface = cairo_image_surface_create_for_data(picture.data(), CAIRO_FORMAT_A8,
                                                                   kSize_px, kSize_px, kSize_px);
    cairo_t* cairo = cairo_create(surface);
    gtk_widget_draw(label, cairo);
    cairo_destroy(cairo);
    cairo_surface_destroy(surface);
    return picture;
}

}  // namespace

TEST_F(Layout, EveryControlOfASmallWindowInALargeFontIsWholeAndInReach) {
    for (const char* font : {"DejaVu Sans 16", "DejaVu Sans 10"}) {
        resize(800, 600, font);
        for (const int page : {CAN_1, CAN_2}) {
            gtk_notebook_set_current_page(GTK_NOTEBOOK(cs_info.grid_container[CS_NOTEBOOK]), page);
            run_until([] { return faults(windows->main_window).empty(); });
            EXPECT_EQ(faults(windows->main_window), Lines{}) << font << ", page " << page;
        }
    }
}

// Small: the buttons below the inputs. Wide: beside them, and all panels in a row.
TEST_F(Layout, ButtonsStandByTheirInputsAndComeAfterThem) {
    const char* order = "s_Interval_entry s_Times_entry s_EditData_btn s_Send_btn s_Stop_btn";
    wgt_show_hide(true, true);
    for (const auto& [width, font] : {std::pair{800, "DejaVu Sans 16"}, {1400, "DejaVu Sans 10"}}) {
        resize(width, 700, font);
        for (GtkWidget* button : {ss_info.btn_can_data, ss_info.btn_send, ss_info.btn_stop}) {
            GtkWidget* last_byte = ss_info.ety_d[SS_ETY_D_B7];
            EXPECT_TRUE(run_until([=] { return is_near(last_byte, button); })) << font;
        }
        EXPECT_EQ(tab_order(ss_info.ety_u[SS_ETY_LAB_U_COUNT], 5), order) << font;
        EXPECT_TRUE(run_until([] { return is_in_view(ss_info.btn_stop); })) << font;
    }
    EXPECT_TRUE(run_until([] { return area_in(bs_info.frame, ss_info.frame).y == 0; }));
    wgt_show_hide(false, false);
}

TEST_F(Layout, ReportsLeaveTheirColumnsAsWideAsThePlaceholders) {
    GtkWidget* report = bs_info.label_content[BS_LABEL_CAN1_PSR_C];
    int width_px[2];
    for (const char* text : {"  N/A   ", "A20000"}) {
        gtk_label_set_text(GTK_LABEL(report), text);
        gtk_widget_get_preferred_width(report, nullptr, &width_px[text[0] == 'A']);
    }
    EXPECT_EQ(width_px[0], width_px[1]);
    set_err_str(TAVU_DIS_ALL);
}

// The toolkit's boxes show the number of the character that no font has, so two of them differ.
TEST_F(Layout, SignThatNoFontHasIsDrawnAsACross) {
    const auto cross = picture_with("\U000F1234");
    EXPECT_EQ(cross, picture_with("\U000F5678"));
    EXPECT_NE(cross, picture_with("○"));
    EXPECT_GT(std::ranges::count(cross, 0xFF), 10);  // and there is something
    set_err_str(TAVU_DIS_ALL);
}
