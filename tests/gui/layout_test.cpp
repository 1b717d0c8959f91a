// tests/gui/layout_test.cpp - test: every control can be reached and read, also on a small desk in a large font.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

#include <algorithm>
#include <array>

namespace {

// Width and height: of a widget, and the place of its upper left corner in another.
struct Extent {
    int begin;
    int size;
};
using Area = std::array<Extent, 2>;

Area area_in(GtkWidget* widget, GtkWidget* outer) {
    Area area{{{0, gtk_widget_get_allocated_width(widget)},
               {0, gtk_widget_get_allocated_height(widget)}}};
    gtk_widget_translate_coordinates(widget, outer, 0, 0, &area[0].begin, &area[1].begin);
    return area;
}

// What keeps a user from seeing all of `widget`, which stands in a scrolled window: nothing if a
// scroll bar that can be seen brings it up.
std::string fault_in(GtkWidget* widget, GtkScrolledWindow* outer) {
    GtkWidget* port = gtk_bin_get_child(GTK_BIN(outer));
    Area area = area_in(widget, port);
    const Area room = area_in(port, port);
    const std::array across{gtk_scrolled_window_get_hadjustment(outer),
                            gtk_scrolled_window_get_vadjustment(outer)};
    std::array<GtkPolicyType, 2> policy{};
    gtk_scrolled_window_get_policy(outer, &policy[0], &policy[1]);
    for (std::size_t i = 0; i < area.size(); ++i) {
        double end = room[i].size;
        if (policy[i] != GTK_POLICY_NEVER) {
            area[i].begin += static_cast<int>(gtk_adjustment_get_value(across[i]));
            end = gtk_adjustment_get_upper(across[i]);
            const bool is_bar_seen = policy[i] != GTK_POLICY_EXTERNAL &&
                                     !gtk_scrolled_window_get_overlay_scrolling(outer);
            const bool is_seen =
                area[i].begin + area[i].size <= gtk_adjustment_get_page_size(across[i]);
            if (!is_seen && !is_bar_seen) {
                return "scrolls without a bar";
            }
        }
        if (area[i].begin < 0 || area[i].begin + area[i].size > end) {
            return "outside its scrolled part";
        }
    }
    return {};
}

std::string fault_in(GtkWidget* widget, GtkWindow* window) {
    int room[2];
    gtk_window_get_size(window, &room[0], &room[1]);
    const Area area = area_in(widget, GTK_WIDGET(window));
    for (std::size_t i = 0; i < area.size(); ++i) {
        if (area[i].begin < 0 || area[i].begin + area[i].size > room[i]) {
            return "outside the window";
        }
    }
    return {};
}

std::string out_of_reach(GtkWidget* widget) {
    std::string fault;
    GtkWidget* inner = widget;
    for (GtkWidget* outer = gtk_widget_get_parent(widget); outer != nullptr && fault.empty();
         outer = gtk_widget_get_parent(outer)) {
        if (GTK_IS_WINDOW(outer)) {
            fault = fault_in(inner, GTK_WINDOW(outer));
        } else if (GTK_IS_SCROLLED_WINDOW(outer)) {
            fault = fault_in(inner, GTK_SCROLLED_WINDOW(outer));
            inner = outer;
        }
    }
    return fault;
}

std::string cut(GtkWidget* widget) {
    GtkRequisition whole;
    gtk_widget_get_preferred_size(widget, nullptr, &whole);
    whole.width -= gtk_widget_get_margin_start(widget) + gtk_widget_get_margin_end(widget);
    const Area area = area_in(widget, widget);
    return area[0].size < whole.width || area[1].size < whole.height ? "cut" : "";
}

// Adds to the Lines what is wrong with a widget and all in it, as far as it is shown.
void inspect(GtkWidget* widget, gpointer lines) {
    if (!gtk_widget_get_mapped(widget)) {
        return;
    }
    if (GTK_IS_LABEL(widget) || GTK_IS_ENTRY(widget) || GTK_IS_BUTTON(widget) ||
        GTK_IS_CELL_VIEW(widget)) {
        const auto text = ui_script::text_of(widget);
        for (const std::string& fault : {out_of_reach(widget), cut(widget)}) {
            if (!fault.empty()) {
                static_cast<Lines*>(lines)->push_back(std::string(gtk_widget_get_name(widget)) +
                                                      " \"" + text.value_or("") + "\" " + fault);
            }
        }
    }
    if (GTK_IS_CONTAINER(widget)) {
        gtk_container_forall(GTK_CONTAINER(widget), inspect, lines);
    }
}

Lines faults(GtkWidget* window) {
    Lines lines;
    inspect(window, &lines);
    return lines;
}

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

void resize(int width, int height) {
    GtkWindow* window = GTK_WINDOW(windows->main_window);
    gtk_window_resize(window, width, height);
    int now[2]{};
    EXPECT_TRUE(run_until([&] {
        gtk_window_get_size(window, &now[0], &now[1]);
        return now[0] == width && now[1] == height;
    })) << now[0]
        << " by " << now[1];
}

// Pixels between two widgets, in the direction in which they are farther apart.
int distance_px(GtkWidget* from, GtkWidget* to) {
    const Area place = area_in(to, from);
    const Area origin = area_in(from, from);
    int distance = 0;
    for (std::size_t i = 0; i < place.size(); ++i) {
        distance =
            std::max({distance, place[i].begin - origin[i].size, -place[i].begin - place[i].size});
    }
    return distance;
}

// Whether a widget of the upper panels is shown as a whole, without scrolling.
bool is_in_view(GtkWidget* widget) {
    GtkWidget* port = gtk_widget_get_ancestor(widget, GTK_TYPE_VIEWPORT);
    const Area area = area_in(widget, port);
    const Area room = area_in(port, port);
    return std::ranges::equal(area, room, [](const Extent& part, const Extent& whole) {
        return part.begin >= 0 && part.begin + part.size <= whole.size;
    });
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

}  // namespace

TEST_F(Layout, EveryControlOfASmallWindowInALargeFontIsWholeAndInReach) {
    for (const char* font : {"DejaVu Sans 16", "DejaVu Sans 10"}) {
        g_object_set(gtk_settings_get_default(), "gtk-font-name", font, nullptr);
        resize(800, 600);
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
        g_object_set(gtk_settings_get_default(), "gtk-font-name", font, nullptr);
        resize(width, 700);
        for (GtkWidget* button : {ss_info.btn_can_data, ss_info.btn_send, ss_info.btn_stop}) {
            GtkWidget* last_byte = ss_info.ety_d[SS_ETY_D_B7];
            EXPECT_TRUE(run_until([=] { return distance_px(last_byte, button) < 100; })) << font;
        }
        EXPECT_EQ(tab_order(ss_info.ety_u[SS_ETY_LAB_U_COUNT], 5), order) << font;
        EXPECT_TRUE(run_until([] { return is_in_view(ss_info.btn_stop); })) << font;
    }
    EXPECT_TRUE(run_until([] { return area_in(bs_info.frame, ss_info.frame)[1].begin == 0; }));
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
    GtkWidget* label = bs_info.label_content[BS_LABEL_EE_C];
    std::array<std::vector<unsigned char>, 3> pictures;
    auto picture = pictures.begin();
    for (const char* text : {"\U000F1234", "\U000F5678", "○"}) {
        gtk_label_set_text(GTK_LABEL(label), text);
        GtkAllocation area;
        gtk_widget_get_allocation(label, &area);
        gtk_widget_get_preferred_size(label, nullptr, nullptr);
        gtk_widget_size_allocate(label, &area);
        cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_A8, 64, 64);
        cairo_t* cairo = cairo_create(surface);
        gtk_widget_draw(label, cairo);
        cairo_surface_flush(surface);
        const unsigned char* bytes = cairo_image_surface_get_data(surface);
        picture++->assign(bytes, bytes + 64 * cairo_image_surface_get_stride(surface));
        cairo_destroy(cairo);
        cairo_surface_destroy(surface);
    }
    EXPECT_EQ(pictures[0], pictures[1]);
    EXPECT_NE(pictures[0], pictures[2]);
    EXPECT_GT(std::ranges::count(pictures[0], 0xFF), 10);  // and there is something
    set_err_str(TAVU_DIS_ALL);
}
